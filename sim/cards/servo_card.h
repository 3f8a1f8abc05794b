// Servo card: 4 channels, each with a pulse generator and an encoder counter; 4 stop inputs that any channel
// can use. "ch": acts on the channel last written to port 5; with another number than 0 to 3 there, writes
// are lost and encoder bytes read 0xFF.
//
//   Port      Read                                          Write
//   3         version                                       -
//   4         type, 0x84                                    -
//   5         -                                             channel select, 0 to 3
//   8         -                                             ch  control byte (pulse_channel.h)
//   9         -                                             ch  frequency code
//   12 to 15  -                                             ch  pulses, bits 0 to 7 .. 24 to 31
//   18        -                                             ch  generator clear
//   19        -                                             ch  encoder clear
//   20 to 23  ch  encoder, bits 0 to 7 .. 24 to 31          -
//   24        bit n set while a move runs on channel n      ch  start: 1 starts, other values nothing
//   26 to 29  -                                             ch  stop count, bits 0 to 7 .. 24 to 31
//
// Any other port and "-" read 0xFF; writes marked "-" and to other ports are lost.
#pragma once

#include "cards/pulse_channel.h"

namespace rack {

constexpr int kServoChannels = 4;
constexpr int kServoStopInputs = 4;

struct ServoCardState {
  std::uint8_t version;
  std::uint8_t type;
  std::uint8_t selected;
  std::uint8_t reserved;
  std::uint32_t pulsesPerUnit;  // as on the stepper card
  PulseChannelState channels[kServoChannels];
};
static_assert(kSharable<ServoCardState> && sizeof(ServoCardState) == 488);

class ServoCard {
 public:
  using State = ServoCardState;
  static RowsOf<RegisterName> Registers();
  static RowsOf<CardSetting> Settings();
  static PulseChannelState* Motors(State& state) { return state.channels; }
  static std::int64_t Count(State& state, int channel, Nanos now) {
    return PulseChannel(state.channels[channel]).EncoderAt(now);
  }
  static int Selected(const State& state) { return state.selected; }

  explicit ServoCard(State& state) : state_(state) {}
  void PowerOn(std::uint8_t type);
  std::uint8_t Read(std::uint8_t port, Nanos now);
  void Write(std::uint8_t port, std::uint8_t value, Nanos now);
  // What the card cannot make sense of.
  Protest ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos now) const;
  // A stop input, 0 to 3, is seen by all channels.
  void SetStopInput(int input, bool level, Nanos now);

 private:
  std::uint8_t Busy(Nanos now) const;

  ServoCardState& state_;
};

}  // namespace rack
