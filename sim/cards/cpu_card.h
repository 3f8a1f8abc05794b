// CPU card: 16 inputs, 16 outputs, keypad, task-count switch, settings, status. Slot 0.
//
//   Port  Read                                      Write
//   0     version                                   (slot select, decoded by the rack)
//   1     type, 0xA3                                keypad clear: 0 clears the latched code, others nothing
//   2     keypad code latched last, 0 when none     status byte
//   3     inputs 0 to 7, bit n = input n            -
//   4     inputs 8 to 15                            -
//   5     outputs 0 to 7, as last written           outputs 0 to 7
//   6     outputs 8 to 15, as last written          outputs 8 to 15
//   7     settings                                  -
//   8     task count                                -
//   F     function keys held down, bits 3 to 0      -
//         F: the port in functionPort, 9 to 255; none when 0
//
// Any other port reads 0xFF; writes marked "-" and to other ports are lost.
#pragma once

#include "cards/card.h"

namespace rack {

constexpr int kCpuInputs = 16;
constexpr int kCpuOutputs = 16;
constexpr int kFunctionKeys = 4;  // bits of their register

struct CpuCardState {
  std::uint8_t version;
  std::uint8_t type;
  std::uint8_t settings;
  std::uint8_t taskCount;
  std::uint8_t functionPort;  // port of the function-key register; 0: the card has none
  std::uint8_t functionKeys;  // bit 3 RUN, 2 STEP, 1 ZERO, 0 CANCEL
  std::uint8_t keyCode;       // latched make code, 0 when none
  std::uint8_t status;        // byte last written to port 2
  std::uint16_t outputs;
  std::uint16_t inputs;     // levels at the terminals
  std::uint32_t keyClears;  // how many times a latched code was cleared by a write to port 1
};
static_assert(kSharable<CpuCardState> && sizeof(CpuCardState) == 16);

class CpuCard {
 public:
  using State = CpuCardState;
  static RowsOf<RegisterName> Registers();
  static RowsOf<CardSetting> Settings() {
    return {};
  }                          // the CPU card is the rack itself: its words stand there
  template <class AnyState>  // const or not
  static auto& Inputs(AnyState& state) {
    return state.inputs;
  }
  static std::uint32_t Outputs(const State& state) { return state.outputs; }

  explicit CpuCard(State& state) : state_(state) {}
  // Everything off and default settings: one task, no function keys. What the rack file says is set
  // afterwards.
  void PowerOn(std::uint8_t type);
  std::uint8_t Read(std::uint8_t port, Nanos now);
  void Write(std::uint8_t port, std::uint8_t value, Nanos now);
  // What the card cannot make sense of.
  Protest ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos now) const;
  // A code byte comes from the keypad: it overwrites a code that nobody has read yet.
  void LatchKey(std::uint8_t code) { state_.keyCode = code; }

 private:
  CpuCardState& state_;
};

}  // namespace rack
