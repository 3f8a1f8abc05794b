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
  State = IoCardState{};
  State.Version = kCardVersion;
  State.Type = kIoType;
}

std::uint8_t IoCard::Read(std::uint8_t port, Nanos /*now*/) {
  if (port >= kOutputsLow && port <= kRelays) return ByteOf(State.Outputs, port - kOutputsLow);
  switch (port) {
    case kVersion:
      return State.Version;
    case kType:
      return State.Type;
    case kInputsLow:
      return ByteOf(State.Inputs, 0);
    case kInputsHigh:
      return ByteOf(State.Inputs, 1);
    default:
      return kOpenBus;
  }
}

void IoCard::Write(std::uint8_t port, std::uint8_t value, Nanos /*now*/) {
  if (port >= kOutputsLow && port <= kRelays) SetByte(State.Outputs, port - kOutputsLow, value);
}

}  // namespace rack
