#include "plant/plant.h"

#include <algorithm>
#include <iterator>

namespace rack {

namespace {

// Of one Advance: links that set each other off without end take this many turns, and then the bus goes on.
constexpr int kMaxEvents = 10000;
// Positions of links are held to this, so that nothing overflows beside them.
constexpr std::int64_t kFarthest = std::int64_t{1} << 40;
constexpr int kInputBits = 16;

bool IsInput(SignalRef signal) {
  return signal.Kind == SignalKind::Input && signal.Entry < kMaxEntries && signal.Channel < kInputBits;
}

bool Same(SignalRef left, SignalRef right) {
  return left.Kind == right.Kind && left.Entry == right.Entry && left.Channel == right.Channel;
}

void SetBit(std::uint16_t& bits, int bit, bool level) {
  bits = static_cast<std::uint16_t>(level ? bits | 1 << bit : bits & ~(1 << bit));
}

// Whether the link changes with its condition, or only acts when it becomes true.
bool TakesLevel(const PlantLink& link) {
  return link.Then == Effect::Follow || link.Then == Effect::Stop;
}

bool DrivesInput(const PlantLink& link) {
  return link.Then == Effect::Follow || link.Then == Effect::Arrive;
}

}  // namespace

void Plant::PowerOn() {
  State.Time = 0;
  State.LinkCount = std::min<std::uint32_t>(State.LinkCount, kMaxLinks);
  std::fill(std::begin(State.Inputs), std::end(State.Inputs), std::uint16_t{0});
  std::fill(std::begin(State.Manual), std::end(State.Manual), std::uint16_t{0});
  std::fill(std::begin(State.States), std::end(State.States), PlantLinkState{kNever, 0, 0, 0, 0, 0});
  const int count = static_cast<int>(State.LinkCount);
  for (int index = 0; index < count; ++index) {
    if (State.Links[index].Then == Effect::Arrive && State.Links[index].StartsOn != 0) Apply(index, true, 0);
  }
  // A link may look at an input that a later one drives.
  for (int pass = 0; pass < count; ++pass) {
    for (int index = 0; index < count; ++index) TakeOver(index);
  }
}

// The condition of a link at power-on.
void Plant::TakeOver(int index) {
  const PlantLink& link = State.Links[index];
  PlantLinkState& state = State.States[index];
  state.Holds = Holds(link, 0);
  state.Removing = SignalLevel(link.Removal);
  if (TakesLevel(link) && state.Level != state.Holds) Apply(index, state.Holds != 0, 0);
}

bool Plant::Advance(Nanos now) {
  UpdateAll(State.Time);
  for (int events = 0; events < kMaxEvents; ++events) {
    const std::optional<Nanos> next = NextEvent();
    if (!next || *next > now) {
      State.Time = std::max(State.Time, now);
      return true;
    }
    State.Time = *next;
    UpdateAll(*next);
  }
  return false;
}

void Plant::SetInput(SignalRef input, bool level, Nanos now) {
  if (!IsInput(input)) return;
  Advance(now);
  SetBit(State.Manual[input.Entry], input.Channel, level);
  RefreshInput(input, State.Time);
  UpdateAll(State.Time);
}

std::optional<Nanos> Plant::NextEvent() const {
  Nanos next = kNever;
  for (std::uint32_t index = 0; index < State.LinkCount; ++index) {
    next = std::min({next, State.States[index].DueAt, NextChange(State.Links[index])});
  }
  if (next == kNever) return std::nullopt;
  return next;
}

bool Plant::InputLevel(SignalRef input) const {
  return IsInput(input) && (State.Inputs[input.Entry] >> input.Channel & 1) != 0;
}

CardState* Plant::Card(int entry) const {
  return entry >= 0 && entry < kMaxEntries ? Machine.Entries[entry] : nullptr;
}

bool Plant::SignalLevel(SignalRef signal) const {
  if (signal.Kind == SignalKind::Input) return InputLevel(signal);
  const CardState* card = Card(signal.Entry);
  return signal.Kind == SignalKind::Output && card != nullptr && OutputLevel(*card, signal.Channel);
}

bool Plant::Holds(const PlantLink& link, Nanos at) const {
  return IsTrue(link, at) != (link.Inverted != 0);
}

bool Plant::IsTrue(const PlantLink& link, Nanos at) const {
  if (link.When == Condition::Signal) return SignalLevel(link.Source);
  CardState* card = Card(link.Entry);
  if (card == nullptr) return false;
  if (link.When == Condition::MotorWithin) {
    PulseChannelState* motor = MotorChannel(*card, link.Channel);
    if (motor == nullptr) return false;
    const std::int64_t position = PulseChannel(*motor).PositionAt(at);
    return link.From <= position && position <= link.To;
  }
  if (card->Kind != CardKind::Cylinder) return false;
  const CylinderCard cylinder(card->Cylinder);
  if (link.When == Condition::CylinderAlarm) return cylinder.InAlarm(link.Channel, at);
  const int position = cylinder.StandsAt(link.Channel, at);
  return position >= 0 && position == link.From;
}

// When a motor or a cylinder may change the condition next; signals change only by what happens here or from
// outside.
Nanos Plant::NextChange(const PlantLink& link) const {
  CardState* card = link.When == Condition::Signal ? nullptr : Card(link.Entry);
  if (card == nullptr) return kNever;
  if (link.When != Condition::MotorWithin) {
    if (card->Kind != CardKind::Cylinder) return kNever;
    return CylinderCard(card->Cylinder).NextEvent(link.Channel, State.Time).value_or(kNever);
  }
  PulseChannelState* motor = MotorChannel(*card, link.Channel);
  if (motor == nullptr) return kNever;
  const std::int64_t from = std::clamp(link.From, -kFarthest, kFarthest);
  const std::int64_t to = std::clamp(link.To, -kFarthest, kFarthest);
  Nanos next = kNever;
  // Upwards into the range and out of it, downwards into it and out of it.
  for (const std::int64_t position : {from, to + 1, to, from - 1}) {
    const Nanos at = PulseChannel(*motor).ReachTime(position).value_or(kNever);
    if (at > State.Time) next = std::min(next, at);
  }
  return next;
}

// Lets everything happen that happens at that time. Links can set each other off, each at most once in a
// pass.
void Plant::UpdateAll(Nanos at) {
  bool changed = true;
  for (std::uint32_t pass = 0; changed && pass <= State.LinkCount; ++pass) {
    changed = false;
    for (std::uint32_t index = 0; index < State.LinkCount; ++index) {
      if (Update(static_cast<int>(index), at)) changed = true;
    }
  }
}

bool Plant::Update(int index, Nanos at) {
  const PlantLink& link = State.Links[index];
  PlantLinkState& state = State.States[index];
  const bool due = state.DueAt <= at;
  if (due) Apply(index, state.DueLevel != 0, at);
  const bool holds = Holds(link, at);
  const bool turned = holds != (state.Holds != 0);
  state.Holds = holds;
  if (turned) React(index, at);
  const bool removing = SignalLevel(link.Removal);
  // A part that is still on its way is not there to be taken.
  const bool taken = removing && state.Removing == 0 && state.Level != 0;
  if (link.Then == Effect::Arrive && taken) Schedule(index, false, at);
  state.Removing = removing;
  return due || turned;
}

// The condition of the link has changed.
void Plant::React(int index, Nanos at) {
  const PlantLink& link = State.Links[index];
  PlantLinkState& state = State.States[index];
  const bool holds = state.Holds != 0;
  switch (link.Then) {
    case Effect::Follow:
      Schedule(index, holds, at);
      return;
    case Effect::Stop:
      Apply(index, holds, at);
      return;
    case Effect::Arrive:
      if (holds || link.Removal.Kind == SignalKind::None) Schedule(index, holds, at);
      return;
    case Effect::Count:
      if (holds) Sink.Counted(index, ++state.Count, at);
      return;
  }
}

// Brings the link to the level after the delay of that level. The level that was asked for last wins.
void Plant::Schedule(int index, bool level, Nanos at) {
  const PlantLink& link = State.Links[index];
  PlantLinkState& state = State.States[index];
  const bool underWay = state.DueAt != kNever;
  if (level == (state.Level != 0)) {
    state.DueAt = kNever;
    return;
  }
  if (underWay) return;
  const Nanos delay = level ? link.OnDelay : link.OffDelay;
  if (delay <= 0) {
    Apply(index, level, at);
    return;
  }
  state.DueAt = at + delay;
  state.DueLevel = level;
}

void Plant::Apply(int index, bool level, Nanos at) {
  const PlantLink& link = State.Links[index];
  PlantLinkState& state = State.States[index];
  state.DueAt = kNever;
  state.Level = level;
  if (DrivesInput(link)) {
    RefreshInput(link.Target, at);
    return;
  }
  CardState* card = Card(link.StopEntry);
  if (card != nullptr) SetMotorStop(*card, link.StopChannel, level, at);
}

void Plant::RefreshInput(SignalRef input, Nanos at) {
  if (!IsInput(input)) return;
  bool level = (State.Manual[input.Entry] >> input.Channel & 1) != 0;
  for (std::uint32_t index = 0; index < State.LinkCount; ++index) {
    const PlantLink& link = State.Links[index];
    if (DrivesInput(link) && Same(link.Target, input) && State.States[index].Level != 0) level = true;
  }
  if (level == InputLevel(input)) return;
  SetBit(State.Inputs[input.Entry], input.Channel, level);
  Sink.InputEdge(input, level, at);
}

}  // namespace rack
