// What all card models share: time, how registers and settings are called, and what makes a state fit for a
// file that several programs map.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "cards/rows.h"

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

constexpr std::uint8_t kCardVersion = 1;

enum class SignalKind : std::uint8_t { None = 0, Input = 1, Output = 2 };

// A register's name, for people who read bus accesses. Reading and writing one port may reach two registers.
enum class Access : std::uint8_t { Read, Write, Both };
struct RegisterName {
  std::uint8_t port;
  Access access;
  const char* name;
  // Of a register that shows eight signals: their kind, and the channel of bit 0.
  SignalKind signals = SignalKind::None;
  std::uint8_t firstChannel = 0;
};

// What an access is that no card can make sense of, and no controller has to make.
enum class Protest : std::uint8_t {
  None = 0,
  NoRegister,     // nothing is at this port
  NotReadable,    // a register that can only be written
  NotWritable,    // a register that can only be read
  NoChannel,      // a channel select beyond the last channel
  NoneSelected,   // a channel's register while no channel is selected
  BadValue,       // a value that the register does not take
  CommandHeld,    // a command while the card still holds the last one
  GeneratorHeld,  // a start while the generator is held clear
};

// What there is to say of an access by the list of registers alone.
constexpr Protest RegisterProtest(const RowsOf<RegisterName>& registers, Access access, std::uint8_t port) {
  bool there = false;
  for (const RegisterName& row : registers) {
    if (row.port != port) continue;
    if (row.access == Access::Both || row.access == access) return Protest::None;
    there = true;
  }
  if (!there) return Protest::NoRegister;
  return access == Access::Read ? Protest::NotReadable : Protest::NotWritable;
}

// What the rack file may say of a card: a whole number from lowest to highest, a time, or true and false.
enum class SettingUnit : std::uint8_t { Number, Time, Flag };
struct CardSetting {
  const char* word;
  const char* meaning;
  SettingUnit unit;
  std::int64_t lowest;
  std::int64_t highest;
  void (*set)(void* state, std::int64_t value);  // the state of a card of that kind
};

// Sets a member of a card's state.
template <class State, class Value, Value State::*Member>
void SetMember(void* state, std::int64_t value) {
  static_cast<State*>(state)->*Member = static_cast<Value>(value);
}

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
