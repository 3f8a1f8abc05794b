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
  State = ServoCardState{};
  State.Version = kCardVersion;
  State.Type = kServoType;
  State.PulsesPerUnit = kDefaultPulsesPerUnit;
  for (PulseChannelState& channel : State.Channels) PulseChannel(channel).PowerOn();
}

std::uint8_t ServoCard::Busy(Nanos now) const {
  int busy = 0;
  for (int channel = 0; channel < kServoChannels; ++channel) {
    if (PulseChannel(State.Channels[channel]).Busy(now)) busy |= 1 << channel;
  }
  return static_cast<std::uint8_t>(busy);
}

std::uint8_t ServoCard::Read(std::uint8_t port, Nanos now) {
  if (port == kVersion) return State.Version;
  if (port == kType) return State.Type;
  if (port == kBusyOrStart) return Busy(now);
  if (State.Selected >= kServoChannels || port < kEncoder || port > kEncoderEnd) return kOpenBus;
  return PulseChannel(State.Channels[State.Selected]).ReadEncoder(port - kEncoder, now);
}

void ServoCard::Write(std::uint8_t port, std::uint8_t value, Nanos now) {
  if (port == kSelect) {
    State.Selected = value;
    return;
  }
  if (State.Selected >= kServoChannels) return;
  PulseChannelState& registers = State.Channels[State.Selected];
  PulseChannel channel(registers);
  if (port >= kPulses && port <= kPulsesEnd) return channel.WriteSteps(port - kPulses, value);
  if (port >= kStop && port <= kStopEnd) return channel.WriteStopCount(port - kStop, value);
  switch (port) {
    case kControl:
      registers.Control = value;
      return;
    case kFrequency:
      registers.Frequency = value;
      return;
    case kGeneratorClear:
      channel.ClearGenerator(value, now);
      return;
    case kEncoderClear:
      channel.ClearEncoder(value, now);
      return;
    case kBusyOrStart:
      if (value == 1) channel.Start(State.PulsesPerUnit, now);
      return;
    default:
      return;
  }
}

void ServoCard::SetStopInput(int input, bool level, Nanos now) {
  for (PulseChannelState& channel : State.Channels) PulseChannel(channel).SetStopInput(input, level, now);
}

}  // namespace rack
