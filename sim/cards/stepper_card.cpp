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
  state_ = StepperCardState{};
  state_.version = kCardVersion;
  state_.type = kStepperType;
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

}  // namespace rack
