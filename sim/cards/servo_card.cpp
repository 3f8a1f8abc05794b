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

}  // namespace

void ServoCard::PowerOn() {
  state_ = ServoCardState{};
  state_.version = kCardVersion;
  state_.type = kServoType;
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
  for (PulseChannelState& channel : state_.channels) PulseChannel(channel).SetStopInput(input, level, now);
}

}  // namespace rack
