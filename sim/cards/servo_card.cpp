#include "cards/servo_card.h"

namespace rack {

namespace {

enum Port : std::uint8_t {
  kVersion = 3,
  kType = 4,
  kSelect = 5,
  kControl = 8,
  kFrequency = 9,
  kPulses = 12,
  kPulsesEnd = 15,
  kGeneratorClear = 18,
  kEncoderClear = 19,
  kEncoder = 20,
  kEncoderEnd = 23,
  kBusyOrStart = 24,
  kStop = 26,
  kStopEnd = 29
};

constexpr int kClearedChannels = 8;  // at the start of a controller

}  // namespace

RowsOf<RegisterName> ServoCard::Registers() {
  static constexpr RegisterName rows[] = {
      {kVersion, Access::Read, "version"},
      {kType, Access::Read, "type"},
      {kSelect, Access::Write, "channel select"},
      {kControl, Access::Write, "control"},
      {kFrequency, Access::Write, "frequency"},
      {kPulses, Access::Write, "pulse count 0-7"},
      {kPulses + 1, Access::Write, "pulse count 8-15"},
      {kPulses + 2, Access::Write, "pulse count 16-23"},
      {kPulses + 3, Access::Write, "pulse count 24-31"},
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

RowsOf<CardSetting> ServoCard::Settings() {
  static constexpr CardSetting rows[] = {
      PulseRateSetting(&SetMember<State, std::uint32_t, &State::pulsesPerUnit>)};
  return rows;
}

void ServoCard::PowerOn(std::uint8_t type) {
  state_ = State{};
  state_.version = kCardVersion;
  state_.type = type;
  state_.pulsesPerUnit = kDefaultPulsesPerUnit;
  for (PulseChannelState& channel : state_.channels) PulseChannel(channel).PowerOn();
}

std::uint8_t ServoCard::Busy(Nanos now) const {
  int busy = 0;
  for (int channel = 0; channel < kServoChannels; ++channel) {
    if (PulseChannel(state_.channels[channel]).Busy(now)) busy |= 1 << channel;
  }
  return static_cast<std::uint8_t>(busy);
}

std::uint8_t ServoCard::Read(std::uint8_t port, Nanos now) {
  if (port == kVersion) return state_.version;
  if (port == kType) return state_.type;
  if (port == kBusyOrStart) return Busy(now);
  if (state_.selected >= kServoChannels || port < kEncoder || port > kEncoderEnd) return kOpenBus;
  return PulseChannel(state_.channels[state_.selected]).ReadEncoder(port - kEncoder, now);
}

void ServoCard::Write(std::uint8_t port, std::uint8_t value, Nanos now) {
  if (port == kSelect) {
    state_.selected = value;
    return;
  }
  if (state_.selected >= kServoChannels) return;
  PulseChannelState& registers = state_.channels[state_.selected];
  PulseChannel channel(registers);
  if (port >= kPulses && port <= kPulsesEnd) return channel.WriteSteps(port - kPulses, value);
  if (port >= kStop && port <= kStopEnd) return channel.WriteStopCount(port - kStop, value);
  switch (port) {
    case kControl:
      registers.control = value;
      return;
    case kFrequency:
      registers.frequency = value;
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

void ServoCard::SetStopInput(int input, bool level, Nanos now) {
  if (input < 0 || input >= kServoStopInputs) return;
  for (PulseChannelState& channel : state_.channels) PulseChannel(channel).SetStopInput(input, level, now);
}

// The exceptions: at the start a controller clears the generators and counters of eight channels on both kinds of
// motor cards, so it selects the channels 4 to 7 here too, and what it writes to them for that is lost.
Protest ServoCard::ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos /*now*/) const {
  const Protest wrong = RegisterProtest(Registers(), access, port);
  if (wrong != Protest::None || port == kVersion || port == kType) return wrong;
  if (port == kSelect) return value < kClearedChannels ? Protest::None : Protest::NoChannel;
  if (port == kBusyOrStart && access == Access::Read) return Protest::None;
  if (state_.selected >= kServoChannels) {
    const bool clears = port == kGeneratorClear || port == kEncoderClear;
    return clears && state_.selected < kClearedChannels ? Protest::None : Protest::NoneSelected;
  }
  if (access == Access::Read) return Protest::None;
  switch (port) {
    case kControl:
      return (value & kUnusedControlBit) == 0 ? Protest::None : Protest::BadValue;
    case kPulses:
    case kStop:
      return ProtestOfCount(value);
    case kBusyOrStart:
      return ProtestOfStart(state_.channels[state_.selected], value);
    default:
      return Protest::None;
  }
}

}  // namespace rack
