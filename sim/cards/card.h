// What all card models share: time, kinds of cards, and what makes a state fit for a file that several
// programs map.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace rack {

// Nanoseconds since the machine's power-on.
using Nanos = std::int64_t;
constexpr Nanos kMicrosecond = 1000;
constexpr Nanos kMillisecond = 1000 * kMicrosecond;
constexpr Nanos kSecond = 1000 * kMillisecond;

// What the bus shows where no card drives it: an unused or write-only port, an empty slot.
constexpr std::uint8_t kOpenBus = 0xFF;

// Entries of the card table: the CPU card is entry 0, the plug-in cards follow by rising slot.
constexpr int kMaxEntries = 12;

enum class CardKind : std::uint8_t { None = 0, Cpu = 1, Io = 2, Stepper = 3, Servo = 4, Cylinder = 5 };

// Type codes, as the cards' type registers show them.
constexpr std::uint8_t kCpuType = 0xA3;
constexpr std::uint8_t kStepperType = 0x81;
constexpr std::uint8_t kCylinderType = 0x82;
constexpr std::uint8_t kIoType = 0x83;
constexpr std::uint8_t kServoType = 0x84;
constexpr std::uint8_t kCardVersion = 1;

// A state lies in a file that a 32-bit and a 64-bit program map at once: fixed-width fields, 64-bit ones on
// multiples of 8, no padding.
template <class T>
constexpr bool kSharable = std::is_trivially_copyable_v<T>&& std::is_standard_layout_v<T>&&
    std::has_unique_object_representations_v<T>;

// Byte number index, 0 the lowest, of a register that is wider than the bus.
template <class T>
constexpr std::uint8_t ByteOf(T value, int index) {
  return static_cast<std::uint8_t>(value >> (8 * index));
}

template <class T>
constexpr void SetByte(T& value, int index, std::uint8_t byte) {
  const int shift = 8 * index;
  value = static_cast<T>((value & ~(T{0xFF} << shift)) | (T{byte} << shift));
}

}  // namespace rack
