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

constexpr std::uint8_t kFunctionKeyBits = 0x0F;

}  // namespace

void CpuCard::PowerOn() {
  State = CpuCardState{};
  State.Version = kCardVersion;
  State.Type = kCpuType;
  State.TaskCount = 1;
}

std::uint8_t CpuCard::Read(std::uint8_t port, Nanos /*now*/) {
  if (port >= kFirstFunctionPort && port == State.FunctionPort) return State.FunctionKeys & kFunctionKeyBits;
  switch (port) {
    case kVersion:
      return State.Version;
    case kTypeOrKeyClear:
      return State.Type;
    case kKeyOrStatus:
      return State.KeyCode;
    case kInputsLow:
      return ByteOf(State.Inputs, 0);
    case kInputsHigh:
      return ByteOf(State.Inputs, 1);
    case kOutputsLow:
      return ByteOf(State.Outputs, 0);
    case kOutputsHigh:
      return ByteOf(State.Outputs, 1);
    case kSettings:
      return State.Settings;
    case kTaskCount:
      return State.TaskCount;
    default:
      return kOpenBus;
  }
}

void CpuCard::Write(std::uint8_t port, std::uint8_t value, Nanos /*now*/) {
  switch (port) {
    case kTypeOrKeyClear:
      if (value != 0 || State.KeyCode == 0) return;
      State.KeyCode = 0;
      ++State.KeyClears;
      return;
    case kKeyOrStatus:
      State.Status = value;
      return;
    case kOutputsLow:
      SetByte(State.Outputs, 0, value);
      return;
    case kOutputsHigh:
      SetByte(State.Outputs, 1, value);
      return;
    default:
      return;
  }
}

}  // namespace rack
