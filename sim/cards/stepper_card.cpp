#include "cards/stepper_card.h"

namespace rack {

namespace {

enum Port : std::uint8_t {
  kVersion = 3,
  kType = 4,
  kSelect = 7,
  kControl = 8,
  kFrequency = 9,
  kStartStepsLow = 10,
  kStartStepsHigh = 11,
  kSteps = 12,
  kStepsEnd = 15,
  kCompensationLow = 16,
  kCompensationHigh = 17,
  kGeneratorClear = 18,
  kEncoderClear = 19,
  kEncoder = 20,
  kEncoderEnd = 23,
  kBusyOrStart = 24,
  kStop = 26,
  kStopEnd = 29
};

constexpr std::uint8_t kStopInputBits = 0x03;

}  // namespace

RowsOf<RegisterName> StepperCard::Registers() {
  static constexpr RegisterName rows[] = {
      {kVersion, Access::Read, "version"},
      {kType, Access::Read, "type"},
      {kSelect, Access::Write, "channel select"},
      {kControl, Access::Write, "control"},
      {kFrequency, Access::Write, "frequency"},
      {kStartStepsLow, Access::Write, "start steps 0-7"},
      {kStartStepsHigh, Access::Write, "start steps 8-15"},
      {kSteps, Access::Write, "step count 0-7"},
      {kSteps + 1, Access::Write, "step count 8-15"},
      {kSteps + 2, Access::Write, "step count 16-23"},
      {kSteps + 3, Access::Write, "step count 24-31"},
      {kCompensationLow, Access::Write, "compensation 0-7"},
      {kCompensationHigh, Access::Write, "compensation 8-15"},
      {kGeneratorClear, Access::Write, "generator clear"},
      {kEncoderClear, Access::Write, "encoder clear"},
      {kEncoder, Access::Read, "encoder 0-7"},
      {kEncoder + 1, Access::Read, "encoder 8-15"},
      {kEncoder + 2, Access::Read, "encoder 16-23"},
      {kEncoder + 3, Access::Read, "encoder 24-31"},
      {kBusyOrStart, Access::Read, "busy"},
      {kBusyOrStart, Access::Write, "start"},
      {kStop, Access::Write, "stop count 0-7"},
      {kStop + 1, Access::Write, "stop count 8-15"},
      {kStop + 2, Access::Write, "stop count 16-23"},
      {kStop + 3, Access::Write, "stop count 24-31"},
  };
  return rows;
}

RowsOf<CardSetting> StepperCard::Settings() {
  static constexpr CardSetting rows[] = {
      PulseRateSetting(&SetMember<State, std::uint32_t, &State::pulsesPerUnit>)};
  return rows;
}

void StepperCard::PowerOn(std::uint8_t type) {
  state_ = State{};
  state_.version = kCardVersion;
  state_.type = type;
  state_.pulsesPerUnit = kDefaultPulsesPerUnit;
  for (PulseChannelState& channel : state_.channels) PulseChannel(channel).PowerOn();
}

std::uint8_t StepperCard::Read(std::uint8_t port, Nanos now) {
  if (port == kVersion) return state_.version;
  if (port == kType) return state_.type;
  const bool selected = state_.selected < kStepperChannels;
  if (port == kBusyOrStart)
    return selected && PulseChannel(state_.channels[state_.selected]).Busy(now) ? 1 : 0;
  if (!selected || port < kEncoder || port > kEncoderEnd) return kOpenBus;
  return PulseChannel(state_.channels[state_.selected]).ReadEncoder(port - kEncoder, now);
}

void StepperCard::Write(std::uint8_t port, std::uint8_t value, Nanos now) {
  if (port == kSelect) {
    state_.selected = value;
    return;
  }
  if (state_.selected >= kStepperChannels) return;
  PulseChannelState& registers = state_.channels[state_.selected];
  PulseChannel channel(registers);
  if (port >= kSteps && port <= kStepsEnd) return channel.WriteSteps(port - kSteps, value);
  if (port >= kStop && port <= kStopEnd) return channel.WriteStopCount(port - kStop, value);
  switch (port) {
    case kControl:
      registers.control = value & static_cast<std::uint8_t>(~kStopInputBits);
      return;
    case kFrequency:
      registers.frequency = value;
      return;
    case kStartStepsLow:
    case kStartStepsHigh:
      channel.WriteStartSteps(port - kStartStepsLow, value);
      return;
    case kCompensationLow:
    case kCompensationHigh:
      channel.WriteCompensation(port - kCompensationLow, value);
      return;
    case kGeneratorClear:
      channel.ClearGenerator(value, now);
      return;
    case kEncoderClear:
      channel.ClearEncoder(value, now);
      return;
    case kBusyOrStart:
      if (value == 1) channel.Start(state_.pulsesPerUnit, now);
      return;
    default:
      return;
  }
}

void StepperCard::SetStopInput(int input, bool level, Nanos now) {
  if (input >= 0 && input < kStepperChannels)
    PulseChannel(state_.channels[input]).SetStopInput(0, level, now);
}

// Every register but version and type belongs to the selected channel, the busy register too.
Protest StepperCard::ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos /*now*/) const {
  const Protest wrong = RegisterProtest(Registers(), access, port);
  if (wrong != Protest::None || port == kVersion || port == kType) return wrong;
  if (port == kSelect) return value < kStepperChannels ? Protest::None : Protest::NoChannel;
  if (state_.selected >= kStepperChannels) return Protest::NoneSelected;
  if (access == Access::Read) return Protest::None;
  switch (port) {
    case kControl:
      return (value & (kStopInputBits | kUnusedControlBit)) == 0 ? Protest::None : Protest::BadValue;
    case kSteps:
    case kStop:
      return ProtestOfCount(value);
    case kBusyOrStart:
      return ProtestOfStart(state_.channels[state_.selected], value);
    default:
      return Protest::None;
  }
}

}  // namespace rack
