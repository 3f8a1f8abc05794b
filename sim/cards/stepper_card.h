// Stepper motor card: 8 channels, each with a pulse generator, a stop input and an encoder counter.
// "ch": acts on the channel last written to port 7; with another number than 0 to 7 there, writes are lost
// and encoder bytes read 0xFF.
//
//   Port      Read                                          Write
//   3         version                                       -
//   4         type, 0x81                                    -
//   7         -                                             channel select, 0 to 7
//   8         -                                             ch  control byte (pulse_channel.h; bits 1, 0 not used)
//   9         -                                             ch  frequency code
//   10, 11    -                                             ch  start steps, low and high byte: kept, no effect
//   12 to 15  -                                             ch  steps, bits 0 to 7 .. 24 to 31
//   16, 17    -                                             ch  compensation, low and high byte: kept, no effect
//   18        -                                             ch  generator clear
//   19        -                                             ch  encoder clear
//   20 to 23  ch  encoder, bits 0 to 7 .. 24 to 31          -
//   24        ch  bit 0 set while a move runs, others 0     ch  start: 1 starts, other values nothing
//   26 to 29  -                                             ch  stop count, bits 0 to 7 .. 24 to 31
//
// Any other port and "-" read 0xFF; writes marked "-" and to other ports are lost.
#pragma once

#include "cards/pulse_channel.h"

namespace rack {

constexpr int kStepperChannels = 8;

struct StepperCardState {
  std::uint8_t version;
  std::uint8_t type;
  std::uint8_t selected;
  std::uint8_t reserved;
  std::uint32_t pulsesPerUnit;  // pulses per second and unit of frequency code, at most kMaxPulsesPerUnit
  PulseChannelState channels[kStepperChannels];
};
static_assert(kSharable<StepperCardState> && sizeof(StepperCardState) == 968);

class StepperCard {
 public:
  using State = StepperCardState;
  static RowsOf<RegisterName> Registers();
  static RowsOf<CardSetting> Settings();
  static PulseChannelState* Motors(State& state) { return state.channels; }
  static std::int64_t Count(State& state, int channel, Nanos now) {
    return PulseChannel(state.channels[channel]).EncoderAt(now);
  }
  static int Selected(const State& state) { return state.selected; }

  explicit StepperCard(State& state) : state_(state) {}
  void PowerOn(std::uint8_t type);
  std::uint8_t Read(std::uint8_t port, Nanos now);
  void Write(std::uint8_t port, std::uint8_t value, Nanos now);
  // What the card cannot make sense of.
  Protest ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos now) const;
  // Stop input of the channel of the same number.
  void SetStopInput(int input, bool level, Nanos now);

 private:
  StepperCardState& state_;
};

}  // namespace rack
