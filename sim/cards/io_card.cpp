#include "cards/io_card.h"

namespace rack {

namespace {

enum Port : std::uint8_t {
  kVersion = 3,
  kType = 4,
  kOutputsLow = 5,
  kOutputsHigh = 6,
  kRelays = 7,
  kInputsLow = 8,
  kInputsHigh = 9
};

}  // namespace

RowsOf<RegisterName> IoCard::Registers() {
  static constexpr RegisterName rows[] = {
      {kVersion, Access::Read, "version"},
      {kType, Access::Read, "type"},
      {kOutputsLow, Access::Both, "outputs 0-7", SignalKind::Output, 0},
      {kOutputsHigh, Access::Both, "outputs 8-15", SignalKind::Output, 8},
      {kRelays, Access::Both, "relays 16-23", SignalKind::Output, kFirstRelay},
      {kInputsLow, Access::Read, "inputs 0-7", SignalKind::Input, 0},
      {kInputsHigh, Access::Read, "inputs 8-15", SignalKind::Input, 8},
  };
  return rows;
}

void IoCard::PowerOn(std::uint8_t type) {
  state_ = State{};
  state_.version = kCardVersion;
  state_.type = type;
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

Protest IoCard::ProtestOf(Access access, std::uint8_t port, std::uint8_t /*value*/, Nanos /*now*/) const {
  return RegisterProtest(Registers(), access, port);
}

}  // namespace rack
