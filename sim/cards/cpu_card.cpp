#include "cards/cpu_card.h"

namespace rack {

namespace {

enum Port : std::uint8_t {
  kVersion = 0,
  kTypeOrKeyClear = 1,
  kKeyOrStatus = 2,
  kInputsLow = 3,
  kInputsHigh = 4,
  kOutputsLow = 5,
  kOutputsHigh = 6,
  kSettings = 7,
  kTaskCount = 8,
  kFirstFunctionPort = 9
};

constexpr std::uint8_t kFunctionKeyBits = (1 << kFunctionKeys) - 1;

}  // namespace

RowsOf<RegisterName> CpuCard::Registers() {
  static constexpr RegisterName rows[] = {
      {kVersion, Access::Read, "version"},
      {kTypeOrKeyClear, Access::Read, "type"},
      {kTypeOrKeyClear, Access::Write, "keypad clear"},
      {kKeyOrStatus, Access::Read, "keypad code"},
      {kKeyOrStatus, Access::Write, "status"},
      {kInputsLow, Access::Read, "inputs 0-7", SignalKind::Input, 0},
      {kInputsHigh, Access::Read, "inputs 8-15", SignalKind::Input, 8},
      {kOutputsLow, Access::Both, "outputs 0-7", SignalKind::Output, 0},
      {kOutputsHigh, Access::Both, "outputs 8-15", SignalKind::Output, 8},
      {kSettings, Access::Read, "settings"},
      {kTaskCount, Access::Read, "task count"},
  };
  return rows;
}

void CpuCard::PowerOn(std::uint8_t type) {
  state_ = State{};
  state_.version = kCardVersion;
  state_.type = type;
  state_.taskCount = 1;
}

std::uint8_t CpuCard::Read(std::uint8_t port, Nanos /*now*/) {
  if (port >= kFirstFunctionPort && port == state_.functionPort)
    return state_.functionKeys & kFunctionKeyBits;
  switch (port) {
    case kVersion:
      return state_.version;
    case kTypeOrKeyClear:
      return state_.type;
    case kKeyOrStatus:
      return state_.keyCode;
    case kInputsLow:
      return ByteOf(state_.inputs, 0);
    case kInputsHigh:
      return ByteOf(state_.inputs, 1);
    case kOutputsLow:
      return ByteOf(state_.outputs, 0);
    case kOutputsHigh:
      return ByteOf(state_.outputs, 1);
    case kSettings:
      return state_.settings;
    case kTaskCount:
      return state_.taskCount;
    default:
      return kOpenBus;
  }
}

void CpuCard::Write(std::uint8_t port, std::uint8_t value, Nanos /*now*/) {
  switch (port) {
    case kTypeOrKeyClear:
      if (value != 0 || state_.keyCode == 0) return;
      state_.keyCode = 0;
      ++state_.keyClears;
      return;
    case kKeyOrStatus:
      state_.status = value;
      return;
    case kOutputsLow:
      SetByte(state_.outputs, 0, value);
      return;
    case kOutputsHigh:
      SetByte(state_.outputs, 1, value);
      return;
    default:
      return;
  }
}

// The port of the function keys is in no list: it is where the rack file puts it.
Protest CpuCard::ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos /*now*/) const {
  if (access == Access::Read && port >= kFirstFunctionPort && port == state_.functionPort)
    return Protest::None;
  const Protest wrong = RegisterProtest(Registers(), access, port);
  if (wrong != Protest::None || access == Access::Read) return wrong;
  return port == kTypeOrKeyClear && value != 0 ? Protest::BadValue : Protest::None;
}

}  // namespace rack
