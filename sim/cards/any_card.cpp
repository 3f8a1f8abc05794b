#include "cards/any_card.h"

namespace rack {

namespace {

constexpr int kIoOutputs = 24;
constexpr int kCpuOutputs = 16;
constexpr int kInputs = 16;

// Calls the function with the model of the card; with none, gives the other result.
template <class Result, class Function>
Result WithModel(CardState& card, Result noCard, Function function) {
  switch (card.kind) {
    case CardKind::Cpu:
      return function(CpuCard(card.cpu));
    case CardKind::Io:
      return function(IoCard(card.io));
    case CardKind::Stepper:
      return function(StepperCard(card.stepper));
    case CardKind::Servo:
      return function(ServoCard(card.servo));
    case CardKind::Cylinder:
      return function(CylinderCard(card.cylinder));
    default:
      return noCard;
  }
}

}  // namespace

void PowerOn(CardState& card, CardKind kind) {
  card = CardState{};
  card.kind = kind;
  WithModel(card, 0, [](auto model) {
    model.PowerOn();
    return 0;
  });
}

std::uint8_t ReadCard(CardState& card, std::uint8_t port, Nanos now) {
  return WithModel(card, kOpenBus, [&](auto model) { return model.Read(port, now); });
}

void WriteCard(CardState& card, std::uint8_t port, std::uint8_t value, Nanos now) {
  WithModel(card, 0, [&](auto model) {
    model.Write(port, value, now);
    return 0;
  });
}

int InputCount(const CardState& card) {
  return card.kind == CardKind::Cpu || card.kind == CardKind::Io ? kInputs : 0;
}

int OutputCount(const CardState& card) {
  if (card.kind == CardKind::Cpu) return kCpuOutputs;
  return card.kind == CardKind::Io ? kIoOutputs : 0;
}

int MotorCount(const CardState& card) {
  if (card.kind == CardKind::Stepper) return kStepperChannels;
  return card.kind == CardKind::Servo ? kServoChannels : 0;
}

int CylinderCount(const CardState& card) {
  return card.kind == CardKind::Cylinder ? kCylinderChannels : 0;
}

bool InputLevel(const CardState& card, int channel) {
  if (channel < 0 || channel >= InputCount(card)) return false;
  const unsigned levels = card.kind == CardKind::Cpu ? card.cpu.inputs : card.io.inputs;
  return (levels >> channel & 1) != 0;
}

void SetInputLevel(CardState& card, int channel, bool level) {
  if (channel < 0 || channel >= InputCount(card)) return;
  std::uint16_t* bits = card.kind == CardKind::Cpu ? &card.cpu.inputs : &card.io.inputs;
  const int bit = 1 << channel;
  *bits = static_cast<std::uint16_t>(level ? *bits | bit : *bits & ~bit);
}

bool OutputLevel(const CardState& card, int channel) {
  if (channel < 0 || channel >= OutputCount(card)) return false;
  const std::uint32_t levels = card.kind == CardKind::Cpu ? card.cpu.outputs : card.io.outputs;
  return (levels >> channel & 1) != 0;
}

PulseChannelState* MotorChannel(CardState& card, int channel) {
  if (channel < 0 || channel >= MotorCount(card)) return nullptr;
  return card.kind == CardKind::Stepper ? &card.stepper.channels[channel] : &card.servo.channels[channel];
}

void SetMotorStop(CardState& card, int input, bool level, Nanos now) {
  if (card.kind == CardKind::Servo && input >= 0 && input < kServoStopInputs) {
    ServoCard(card.servo).SetStopInput(input, level, now);
  } else if (card.kind == CardKind::Stepper && input >= 0 && input < kStepperChannels) {
    PulseChannel(card.stepper.channels[input]).SetStopInput(0, level, now);
  }
}

}  // namespace rack
