// The kinds of cards, one row each, and the way from a card's state to the model of its kind.
//
// Whatever depends on the kind of a card is made of these rows or asks them. Of what its row counts, a kind's
// model says where it stands (see the functions in card_kinds.cpp); a row that its model does not live up to
// does not compile.
#pragma once

#include <iterator>

#include "cards/card.h"
#include "cards/cpu_card.h"
#include "cards/cylinder_card.h"
#include "cards/io_card.h"
#include "cards/servo_card.h"
#include "cards/stepper_card.h"

// kind: in CardKind. state: in the union of CardState, and the kind's word in rack files and on displays.
// type: as the card's type register shows it. Then how many channels of each sort the card has: inputs;
// outputs, the relays included; motors; counters, what ROW looks at; cylinders.
// clang-format off
//      kind,     state,    type, inputs,     outputs,     motors,           counters,         cylinders,         model
#define RACK_CARD_KINDS(row)                                                                                             \
    row(Cpu,      cpu,      0xA3, kCpuInputs, kCpuOutputs, 0,                0,                0,                 CpuCard)      \
    row(Io,       io,       0x83, kIoInputs,  kIoOutputs,  0,                0,                0,                 IoCard)       \
    row(Stepper,  stepper,  0x81, 0,          0,           kStepperChannels, kStepperChannels, 0,                 StepperCard)  \
    row(Servo,    servo,    0x84, 0,          0,           kServoChannels,   kServoChannels,   0,                 ServoCard)    \
    row(Cylinder, cylinder, 0x82, 0,          0,           0,                0,                kCylinderChannels, CylinderCard)
// clang-format on

namespace rack {

enum class CardKind : std::uint8_t {
  None = 0,
#define RACK_KIND(kind, state, type, inputs, outputs, motors, counters, cylinders, model) kind,
  RACK_CARD_KINDS(RACK_KIND)
#undef RACK_KIND
};

struct CardState {
  CardKind kind;  // says which member of the union counts
  std::uint8_t reserved[7];
  union {
#define RACK_STATE(kind, state, type, inputs, outputs, motors, counters, cylinders, model) model::State state;
    RACK_CARD_KINDS(RACK_STATE)
#undef RACK_STATE
  };
};
static_assert(std::is_trivially_copyable_v<CardState> && std::is_standard_layout_v<CardState>);
#define RACK_LAYOUT(kind, state, type, inputs, outputs, motors, counters, cylinders, model)             \
  static_assert(kSharable<model::State> && sizeof(model::State) % 8 == 0 &&                             \
                offsetof(CardState, state) == 8);                                                       \
  static_assert((motors) <= (counters), "the first counters of a card are the encoders of its motors"); \
  static_assert((inputs) <= 16, "the levels of a card's inputs are 16 bits");                           \
  static_assert((outputs) <= 32, "the levels of a card's outputs are 32 bits");
RACK_CARD_KINDS(RACK_LAYOUT)
#undef RACK_LAYOUT

// A sort of channels that programs address.
enum class ChannelSort : std::uint8_t { Input, Output, Motor, Counter, Cylinder };
const char* WordOf(ChannelSort sort);  // "input"

struct CardRow {
  CardKind kind;
  const char* word;  // "empty" for None
  std::uint8_t type;
  int inputs;
  int outputs;
  int motors;
  int counters;
  int cylinders;
  RowsOf<RegisterName> (*registers)();
  RowsOf<CardSetting> (*settings)();

  constexpr int Channels(ChannelSort sort) const {
    switch (sort) {
      case ChannelSort::Input:
        return inputs;
      case ChannelSort::Output:
        return outputs;
      case ChannelSort::Motor:
        return motors;
      case ChannelSort::Counter:
        return counters;
      case ChannelSort::Cylinder:
        return cylinders;
    }
    return 0;
  }
};

template <class Row>
RowsOf<Row> NoRows() {
  return {};
}

// In CardKind order.
inline constexpr CardRow kCardRows[] = {
    {CardKind::None, "empty", kOpenBus, 0, 0, 0, 0, 0, &NoRows<RegisterName>, &NoRows<CardSetting>},
#define RACK_ROW(kind, state, type, inputs, outputs, motors, counters, cylinders, model) \
  {CardKind::kind, #state,     (type),      (inputs),          (outputs),                \
   (motors),       (counters), (cylinders), &model::Registers, &model::Settings},
    RACK_CARD_KINDS(RACK_ROW)
#undef RACK_ROW
};
constexpr std::size_t kCardKinds = std::size(kCardRows);
static_assert(AreRowsOf(kCardRows, &CardRow::kind, kCardKinds), "the rows stand in CardKind order");

constexpr const CardRow& RowOf(CardKind kind) {
  return kCardRows[static_cast<std::size_t>(kind)];
}
inline const char* KindName(CardKind kind) {
  return RowOf(kind).word;
}
// Whether cards of this kind stand in the slots from 1 on; the CPU card has slot 0.
constexpr bool IsPlugIn(CardKind kind) {
  return kind != CardKind::None && kind != CardKind::Cpu;
}

constexpr bool TypesDiffer() {
  for (const CardRow& row : kCardRows) {
    for (const CardRow& other : kCardRows) {
      if (row.kind != other.kind && row.type == other.type) return false;
    }
  }
  return true;
}
static_assert(TypesDiffer(), "no two kinds of cards have the same type code");

// The largest number of motors, or of cylinders, on one card.
constexpr int MostMovers() {
  int most = 0;
  for (const CardRow& row : kCardRows) {
    if (row.motors > most) most = row.motors;
    if (row.cylinders > most) most = row.cylinders;
  }
  return most;
}

// The card as it is when power comes. Settings of the rack file are put into the state afterwards.
void PowerOn(CardState& card, CardKind kind);
// No card: 0xFF, and writes are lost.
std::uint8_t ReadCard(CardState& card, std::uint8_t port, Nanos now);
void WriteCard(CardState& card, std::uint8_t port, std::uint8_t value, Nanos now);
// Why the card cannot make sense of this access; asked before it is made.
Protest ProtestOfRead(CardState& card, std::uint8_t port, Nanos now);
Protest ProtestOfWrite(CardState& card, std::uint8_t port, std::uint8_t value, Nanos now);

// Gives a setting of the card's kind its value.
void ApplySetting(CardState& card, const CardSetting& setting, std::int64_t value);

// Levels at the card's terminals. A channel that the card does not have is off, and setting it does nothing.
bool InputLevel(const CardState& card, int channel);
void SetInputLevel(CardState& card, int channel, bool level);
bool OutputLevel(const CardState& card, int channel);
// All outputs, bit n = output n.
std::uint32_t OutputLevels(const CardState& card);

// The state of a motor channel; null when the card has no such channel.
PulseChannelState* MotorChannel(CardState& card, int channel);
// Stop input of a motor card: on the stepper card that of the channel of the same number.
void SetMotorStop(CardState& card, int input, bool level, Nanos now);
// What the counter of a channel shows, 0 when the card has no such channel.
std::int64_t CountOf(CardState& card, int channel, Nanos now);
// The cylinders of a card; null when it has none.
CylinderCardState* Cylinders(CardState& card);
// The channel that was selected last on a card with motors or cylinders, 0 on others.
int SelectedChannel(const CardState& card);

// How many channels of each sort a card has.
inline int InputCount(const CardState& card) {
  return RowOf(card.kind).inputs;
}
inline int OutputCount(const CardState& card) {
  return RowOf(card.kind).outputs;
}
inline int MotorCount(const CardState& card) {
  return RowOf(card.kind).motors;
}
inline int CylinderCount(const CardState& card) {
  return RowOf(card.kind).cylinders;
}

}  // namespace rack
