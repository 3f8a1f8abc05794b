// A card of any kind: its state for the machine's file, and the way from the bus to its model.
#pragma once

#include "cards/card.h"
#include "cards/cpu_card.h"
#include "cards/cylinder_card.h"
#include "cards/io_card.h"
#include "cards/servo_card.h"
#include "cards/stepper_card.h"

namespace rack {

struct CardState {
  CardKind kind;  // says which member of the union counts
  std::uint8_t reserved[7];
  union {
    CpuCardState cpu;
    IoCardState io;
    StepperCardState stepper;
    ServoCardState servo;
    CylinderCardState cylinder;
  };
};
static_assert(std::is_trivially_copyable_v<CardState> && std::is_standard_layout_v<CardState>);
static_assert(sizeof(CardState) == 8 + sizeof(StepperCardState) && offsetof(CardState, stepper) == 8);

// The card as it is when power comes. Settings of the rack file are put into the state afterwards.
void PowerOn(CardState& card, CardKind kind);
// No card: 0xFF, and writes are lost.
std::uint8_t ReadCard(CardState& card, std::uint8_t port, Nanos now);
void WriteCard(CardState& card, std::uint8_t port, std::uint8_t value, Nanos now);

// How many channels of each sort a card has; 0 for none. Outputs count the relays.
int InputCount(const CardState& card);
int OutputCount(const CardState& card);
int MotorCount(const CardState& card);
int CylinderCount(const CardState& card);

// Levels at the card's terminals. A channel that the card does not have is off, and setting it does nothing.
bool InputLevel(const CardState& card, int channel);
void SetInputLevel(CardState& card, int channel, bool level);
bool OutputLevel(const CardState& card, int channel);

// The state of a motor channel; null when the card has no such channel.
PulseChannelState* MotorChannel(CardState& card, int channel);
// Stop input of a motor card: on the stepper card that of the channel of the same number.
void SetMotorStop(CardState& card, int input, bool level, Nanos now);

}  // namespace rack
