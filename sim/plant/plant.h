// What hangs on the cards: switches on axes and cylinders, valves with their sensors, parts that arrive,
// stops, counters.
//
// The plant is a list of links. Each link watches one condition and has one effect:
//
//   Condition       true while
//   Signal          the input or output `source` is on
//   MotorWithin     the position of the motor entry.channel lies in `from` to `to`, both included
//   CylinderStands  the cylinder entry.channel stands at position `from`
//   CylinderAlarm   the cylinder entry.channel is in alarm
//
//   Effect   does
//   Follow   the input `target` follows the condition: on after onDelay, off after offDelay; a condition that
//            does not last that long changes nothing
//   Arrive   the input `target` goes on onDelay after the condition has become true, and off offDelay after
//            the signal `removal` has gone on; without one, offDelay after the condition has become false
//   Stop     the stop input stopChannel of the motor card stopEntry follows the condition
//   Count    each time the condition becomes true counts one
//
// `inverted` turns the condition round. Several links may drive one input: it is on while one of them wants it
// on. At power-on Follow and Stop take their level at once; for Arrive and Count power-on is no change. Links
// see the natural levels of the inputs, those without any force.
#pragma once

#include <optional>

#include "cards/card_kinds.h"

namespace rack {

// A channel as programs address it: relays are outputs 16 to 23 of an I/O card.
struct SignalRef {
  std::uint8_t entry;
  SignalKind kind;
  std::uint8_t channel;
  std::uint8_t reserved;
};

enum class Condition : std::uint8_t { Signal = 0, MotorWithin = 1, CylinderStands = 2, CylinderAlarm = 3 };
enum class Effect : std::uint8_t { Follow = 0, Arrive = 1, Stop = 2, Count = 3 };

struct PlantLink {
  std::int64_t from;
  std::int64_t to;
  Nanos onDelay;
  Nanos offDelay;
  SignalRef source;
  SignalRef target;
  SignalRef removal;   // kind None: no removal
  std::uint32_t goal;  // of a counter, for those who look at it; 0: none
  Condition when;
  Effect then;
  std::uint8_t entry;
  std::uint8_t channel;
  std::uint8_t stopEntry;
  std::uint8_t stopChannel;
  std::uint8_t inverted;
  std::uint8_t startsOn;  // of Arrive: `target` is on at power-on
};
static_assert(kSharable<PlantLink> && sizeof(PlantLink) == 56);

struct PlantLinkState {
  Nanos dueAt;  // when `level` becomes dueLevel; kNever: nothing is under way
  std::uint32_t count;
  std::uint8_t holds;  // the condition, inversion included
  std::uint8_t level;  // what the link wants of its target
  std::uint8_t dueLevel;
  std::uint8_t removing;  // level of `removal`
};
static_assert(kSharable<PlantLinkState> && sizeof(PlantLinkState) == 16);

constexpr int kMaxLinks = 64;
constexpr Nanos kNever = INT64_MAX;

struct PlantState {
  Nanos time;  // up to which everything has happened
  std::uint32_t linkCount;
  std::uint32_t reserved;
  std::uint16_t inputs[kMaxEntries];  // natural levels, bit n = input n
  std::uint16_t manual[kMaxEntries];  // those switched on by SetInput
  PlantLink links[kMaxLinks];
  PlantLinkState states[kMaxLinks];
};
static_assert(kSharable<PlantState> && sizeof(PlantState) == 64 + kMaxLinks * 72);

// The cards by entry; null where there is none.
struct CardsByEntry {
  CardState* entries[kMaxEntries];
};

// Told of what happens, in order of time. The plant does not touch the cards' input terminals: the receiver
// does, so that it can hold one against the plant.
class EventSink {
 public:
  virtual ~EventSink() = default;
  virtual void InputEdge(SignalRef input, bool level, Nanos at) = 0;
  virtual void Counted(int /*link*/, std::uint32_t /*count*/, Nanos /*at*/) {}
};

class Plant {
 public:
  Plant(PlantState& state, const CardsByEntry& cards, EventSink& sink)
      : state_(state), cards_(cards), sink_(sink) {}

  // Starts with the links that stand in the state, after the cards have been powered on. Inputs that are on
  // at once are reported at time 0.
  void PowerOn();
  // Lets everything happen that happens until then, each thing at its own time. To be called before and after
  // every change from outside (a write to a card, a fault, an alarm), with the time of the change. One call
  // handles a bounded number of events; false: there were more, and the next call goes on from there.
  bool Advance(Nanos now);
  // Switches an input by hand, as a person at a button does, after everything up to then has happened.
  void SetInput(SignalRef input, bool level, Nanos now);
  // When something happens next if nothing comes from outside.
  std::optional<Nanos> NextEvent() const;
  bool InputLevel(SignalRef input) const;

 private:
  CardState* Card(int entry) const;
  bool SignalLevel(SignalRef signal) const;
  bool Holds(const PlantLink& link, Nanos at) const;
  bool IsTrue(const PlantLink& link, Nanos at) const;
  Nanos NextChange(const PlantLink& link) const;
  void TakeOver(int index);
  void UpdateAll(Nanos at);
  bool Update(int index, Nanos at);
  void React(int index, Nanos at);
  void Schedule(int index, bool level, Nanos at);
  void Apply(int index, bool level, Nanos at);
  void RefreshInput(SignalRef input, Nanos at);

  PlantState& state_;
  const CardsByEntry& cards_;
  EventSink& sink_;
};

}  // namespace rack
