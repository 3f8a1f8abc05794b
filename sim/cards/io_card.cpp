#include "cards/io_card.h"

namespace rack {

namespace {

enum Port : std::uint8_t {
  kVersion = 3,
  kType = 4,
  kOutputsLow = 5,
  kRelays = 7,
  kInputsLow = 8,
  kInputsHigh = 9
};

}  // namespace

void IoCard::PowerOn() {
  state_ = IoCardState{};
  state_.version = kCardVersion;
  state_.type = kIoType;
}

std::uint8_t IoCard::Read(std::uint8_t port, Nanos /*now*/) {
  if (port >= kOutputsLow && port <= kRelays) return ByteOf(state_.outputs, port - kOutputsLow);
  switch (port) {
    case kVersion:
      return state_.version;
    case kType:
      return state_.type;
    case kInputsLow:
      return ByteOf(state_.inputs, 0);
    case kInputsHigh:
      return ByteOf(state_.inputs, 1);
    default:
      return kOpenBus;
  }
}

void IoCard::Write(std::uint8_t port, std::uint8_t value, Nanos /*now*/) {
  if (port >= kOutputsLow && port <= kRelays) SetByte(state_.outputs, port - kOutputsLow, value);
}

}  // namespace rack
