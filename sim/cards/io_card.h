// Digital I/O card: 16 outputs, 8 relays, 16 inputs.
//
//   Port  Read                                      Write
//   3     version                                   -
//   4     type, 0x83                                -
//   5     outputs 0 to 7, as last written           outputs 0 to 7, bit n = output n
//   6     outputs 8 to 15, as last written          outputs 8 to 15
//   7     relays, as last written                   relays, bit n = channel 16 + n
//   8     inputs 0 to 7                             -
//   9     inputs 8 to 15                            -
//
// Any other port reads 0xFF; writes marked "-" and to other ports are lost.
#pragma once

#include "cards/card.h"

namespace rack {

constexpr int kIoInputs = 16;
constexpr int kFirstRelay = 16;  // outputs from this channel on are relays
constexpr int kIoOutputs = 24;

struct IoCardState {
  std::uint8_t version;
  std::uint8_t type;
  std::uint16_t inputs;   // levels at the terminals
  std::uint32_t outputs;  // bits 0 to 15 outputs, 16 to 23 relays
};
static_assert(kSharable<IoCardState> && sizeof(IoCardState) == 8);

class IoCard {
 public:
  using State = IoCardState;
  static RowsOf<RegisterName> Registers();
  static RowsOf<CardSetting> Settings() { return {}; }
  template <class AnyState>  // const or not
  static auto& Inputs(AnyState& state) {
    return state.inputs;
  }
  static std::uint32_t Outputs(const State& state) { return state.outputs; }

  explicit IoCard(State& state) : state_(state) {}
  void PowerOn(std::uint8_t type);
  std::uint8_t Read(std::uint8_t port, Nanos now);
  void Write(std::uint8_t port, std::uint8_t value, Nanos now);
  // What the card cannot make sense of.
  Protest ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos now) const;

 private:
  IoCardState& state_;
};

}  // namespace rack
