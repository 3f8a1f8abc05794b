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

void StepperCard::PowerOn() {
  State = StepperCardState{};
  State.Version = kCardVersion;
  State.Type = kStepperType;
  State.PulsesPerUnit = kDefaultPulsesPerUnit;
  for (PulseChannelState& channel : State.Channels) PulseChannel(channel).PowerOn();
}

std::uint8_t StepperCard::Read(std::uint8_t port, Nanos now) {
  if (port == kVersion) return State.Version;
  if (port == kType) return State.Type;
  const bool selected = State.Selected < kStepperChannels;
  if (port == kBusyOrStart) return selected && PulseChannel(State.Channels[State.Selected]).Busy(now) ? 1 : 0;
  if (!selected || port < kEncoder || port > kEncoderEnd) return kOpenBus;
  return PulseChannel(State.Channels[State.Selected]).ReadEncoder(port - kEncoder, now);
}

void StepperCard::Write(std::uint8_t port, std::uint8_t value, Nanos now) {
  if (port == kSelect) {
    State.Selected = value;
    return;
  }
  if (State.Selected >= kStepperChannels) return;
  PulseChannelState& registers = State.Channels[State.Selected];
  PulseChannel channel(registers);
  if (port >= kSteps && port <= kStepsEnd) return channel.WriteSteps(port - kSteps, value);
  if (port >= kStop && port <= kStopEnd) return channel.WriteStopCount(port - kStop, value);
  switch (port) {
    case kControl:
      registers.Control = value & static_cast<std::uint8_t>(~kStopInputBits);
      return;
    case kFrequency:
      registers.Frequency = value;
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
      if (value == 1) channel.Start(State.PulsesPerUnit, now);
      return;
    default:
      return;
  }
}

}  // namespace rack
