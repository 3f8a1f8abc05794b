// What hangs on the cards: switches on axes and cylinders, valves with their sensors, parts that arrive,
// stops, counters.
//
// The plant is a list of links. Each link watches one condition and has one effect:
//
//   Condition       true while
//   Signal          the input or output Source is on
//   MotorWithin     the position of the motor Entry.Channel lies in From to To, both included
//   CylinderStands  the cylinder Entry.Channel stands at position From
//   CylinderAlarm   the cylinder Entry.Channel is in alarm
//
//   Effect   does
//   Follow   the input Target follows the condition: on after OnDelay, off after OffDelay; a condition that
//            does not last that long changes nothing
//   Arrive   the input Target goes on OnDelay after the condition has become true, and off OffDelay after the
//            signal Removal has gone on; without a Removal, OffDelay after the condition has become false
//   Stop     the stop input StopChannel of the motor card StopEntry follows the condition
//   Count    each time the condition becomes true counts one
//
// Inverted turns the condition round. Several links may drive one input: it is on while one of them wants it
// on. At power-on Follow and Stop take their level at once; for Arrive and Count power-on is no change. Links
// see the natural levels of the inputs, those without any force.
#pragma once

#include <optional>

#include "cards/any_card.h"

namespace rack {

enum class SignalKind : std::uint8_t { None = 0, Input = 1, Output = 2 };

// A channel as programs address it: relays are outputs 16 to 23 of an I/O card.
struct SignalRef {
  std::uint8_t Entry;
  SignalKind Kind;
  std::uint8_t Channel;
  std::uint8_t Reserved;
};

enum class Condition : std::uint8_t { Signal = 0, MotorWithin = 1, CylinderStands = 2, CylinderAlarm = 3 };
enum class Effect : std::uint8_t { Follow = 0, Arrive = 1, Stop = 2, Count = 3 };

struct PlantLink {
  std::int64_t From;
  std::int64_t To;
  Nanos OnDelay;
  Nanos OffDelay;
  SignalRef Source;
  SignalRef Target;
  SignalRef Removal;   // Kind None: no removal
  std::uint32_t Goal;  // of a counter, for those who look at it; 0: none
  Condition When;
  Effect Then;
  std::uint8_t Entry;
  std::uint8_t Channel;
  std::uint8_t StopEntry;
  std::uint8_t StopChannel;
  std::uint8_t Inverted;
  std::uint8_t StartsOn;  // of Arrive: Target is on at power-on
};
static_assert(kSharable<PlantLink> && sizeof(PlantLink) == 56);

struct PlantLinkState {
  Nanos DueAt;  // when Level becomes DueLevel; kNever: nothing is under way
  std::uint32_t Count;
  std::uint8_t Holds;  // the condition, inversion included
  std::uint8_t Level;  // what the link wants of its target
  std::uint8_t DueLevel;
  std::uint8_t Removing;  // level of Removal
};
static_assert(kSharable<PlantLinkState> && sizeof(PlantLinkState) == 16);

constexpr int kMaxLinks = 64;
constexpr Nanos kNever = INT64_MAX;

struct PlantState {
  Nanos Time;  // up to which everything has happened
  std::uint32_t LinkCount;
  std::uint32_t Reserved;
  std::uint16_t Inputs[kMaxEntries];  // natural levels, bit n = input n
  std::uint16_t Manual[kMaxEntries];  // those switched on by SetInput
  PlantLink Links[kMaxLinks];
  PlantLinkState States[kMaxLinks];
};
static_assert(kSharable<PlantState> && sizeof(PlantState) == 64 + kMaxLinks * 72);

// The cards by entry; null where there is none.
struct MachineView {
  CardState* Entries[kMaxEntries];
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
  Plant(PlantState& state, const MachineView& machine, EventSink& sink)
      : State(state), Machine(machine), Sink(sink) {}

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

  PlantState& State;
  const MachineView& Machine;
  EventSink& Sink;
};

}  // namespace rack
