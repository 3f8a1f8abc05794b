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
  return signal.kind == SignalKind::Input && signal.entry < kMaxEntries && signal.channel < kInputBits;
}

bool Same(SignalRef left, SignalRef right) {
  return left.kind == right.kind && left.entry == right.entry && left.channel == right.channel;
}

void SetBit(std::uint16_t& bits, int bit, bool level) {
  bits = static_cast<std::uint16_t>(level ? bits | 1 << bit : bits & ~(1 << bit));
}

// Whether the link changes with its condition, or only acts when it becomes true.
bool TakesLevel(const PlantLink& link) {
  return link.then == Effect::Follow || link.then == Effect::Stop;
}

bool DrivesInput(const PlantLink& link) {
  return link.then == Effect::Follow || link.then == Effect::Arrive;
}

}  // namespace

void Plant::PowerOn() {
  state_.time = 0;
  state_.linkCount = std::min<std::uint32_t>(state_.linkCount, kMaxLinks);
  std::fill(std::begin(state_.inputs), std::end(state_.inputs), std::uint16_t{0});
  std::fill(std::begin(state_.manual), std::end(state_.manual), std::uint16_t{0});
  std::fill(std::begin(state_.states), std::end(state_.states), PlantLinkState{kNever, 0, 0, 0, 0, 0});
  const int count = static_cast<int>(state_.linkCount);
  for (int index = 0; index < count; ++index) {
    if (state_.links[index].then == Effect::Arrive && state_.links[index].startsOn != 0)
      Apply(index, true, 0);
  }
  // A link may look at an input that a later one drives.
  for (int pass = 0; pass < count; ++pass) {
    for (int index = 0; index < count; ++index) TakeOver(index);
  }
}

// The condition of a link at power-on.
void Plant::TakeOver(int index) {
  const PlantLink& link = state_.links[index];
  PlantLinkState& state = state_.states[index];
  state.holds = Holds(link, 0);
  state.removing = SignalLevel(link.removal);
  if (TakesLevel(link) && state.level != state.holds) Apply(index, state.holds != 0, 0);
}

bool Plant::Advance(Nanos now) {
  UpdateAll(state_.time);
  for (int events = 0; events < kMaxEvents; ++events) {
    const std::optional<Nanos> next = NextEvent();
    if (!next || *next > now) {
      state_.time = std::max(state_.time, now);
      return true;
    }
    state_.time = *next;
    UpdateAll(*next);
  }
  return false;
}

void Plant::SetInput(SignalRef input, bool level, Nanos now) {
  if (!IsInput(input)) return;
  Advance(now);
  SetBit(state_.manual[input.entry], input.channel, level);
  RefreshInput(input, state_.time);
  UpdateAll(state_.time);
}

std::optional<Nanos> Plant::NextEvent() const {
  Nanos next = kNever;
  for (std::uint32_t index = 0; index < state_.linkCount; ++index) {
    next = std::min({next, state_.states[index].dueAt, NextChange(state_.links[index])});
  }
  if (next == kNever) return std::nullopt;
  return next;
}

bool Plant::InputLevel(SignalRef input) const {
  return IsInput(input) && (state_.inputs[input.entry] >> input.channel & 1) != 0;
}

CardState* Plant::Card(int entry) const {
  return entry >= 0 && entry < kMaxEntries ? cards_.entries[entry] : nullptr;
}

bool Plant::SignalLevel(SignalRef signal) const {
  if (signal.kind == SignalKind::Input) return InputLevel(signal);
  const CardState* card = Card(signal.entry);
  return signal.kind == SignalKind::Output && card != nullptr && OutputLevel(*card, signal.channel);
}

bool Plant::Holds(const PlantLink& link, Nanos at) const {
  return IsTrue(link, at) != (link.inverted != 0);
}

bool Plant::IsTrue(const PlantLink& link, Nanos at) const {
  if (link.when == Condition::Signal) return SignalLevel(link.source);
  CardState* card = Card(link.entry);
  if (card == nullptr) return false;
  if (link.when == Condition::MotorWithin) {
    PulseChannelState* motor = MotorChannel(*card, link.channel);
    if (motor == nullptr) return false;
    const std::int64_t position = PulseChannel(*motor).PositionAt(at);
    return link.from <= position && position <= link.to;
  }
  CylinderCardState* cylinders = Cylinders(*card);
  if (cylinders == nullptr) return false;
  const CylinderCard cylinder(*cylinders);
  if (link.when == Condition::CylinderAlarm) return cylinder.InAlarm(link.channel, at);
  const int position = cylinder.StandsAt(link.channel, at);
  return position >= 0 && position == link.from;
}

// When a motor or a cylinder may change the condition next; signals change only by what happens here or from
// outside.
Nanos Plant::NextChange(const PlantLink& link) const {
  CardState* card = link.when == Condition::Signal ? nullptr : Card(link.entry);
  if (card == nullptr) return kNever;
  if (link.when != Condition::MotorWithin) {
    CylinderCardState* cylinders = Cylinders(*card);
    if (cylinders == nullptr) return kNever;
    return CylinderCard(*cylinders).NextEvent(link.channel, state_.time).value_or(kNever);
  }
  PulseChannelState* motor = MotorChannel(*card, link.channel);
  if (motor == nullptr) return kNever;
  const std::int64_t from = std::clamp(link.from, -kFarthest, kFarthest);
  const std::int64_t to = std::clamp(link.to, -kFarthest, kFarthest);
  Nanos next = kNever;
  // Upwards into the range and out of it, downwards into it and out of it.
  for (const std::int64_t position : {from, to + 1, to, from - 1}) {
    const Nanos at = PulseChannel(*motor).ReachTime(position).value_or(kNever);
    if (at > state_.time) next = std::min(next, at);
  }
  return next;
}

// Lets everything happen that happens at that time. Links can set each other off, each at most once in a
// pass.
void Plant::UpdateAll(Nanos at) {
  bool changed = true;
  for (std::uint32_t pass = 0; changed && pass <= state_.linkCount; ++pass) {
    changed = false;
    for (std::uint32_t index = 0; index < state_.linkCount; ++index) {
      if (Update(static_cast<int>(index), at)) changed = true;
    }
  }
}

bool Plant::Update(int index, Nanos at) {
  const PlantLink& link = state_.links[index];
  PlantLinkState& state = state_.states[index];
  const bool due = state.dueAt <= at;
  if (due) Apply(index, state.dueLevel != 0, at);
  const bool holds = Holds(link, at);
  const bool turned = holds != (state.holds != 0);
  state.holds = holds;
  if (turned) React(index, at);
  const bool removing = SignalLevel(link.removal);
  // A part that is still on its way is not there to be taken.
  const bool taken = removing && state.removing == 0 && state.level != 0;
  if (link.then == Effect::Arrive && taken) Schedule(index, false, at);
  state.removing = removing;
  return due || turned;
}

// The condition of the link has changed.
void Plant::React(int index, Nanos at) {
  const PlantLink& link = state_.links[index];
  PlantLinkState& state = state_.states[index];
  const bool holds = state.holds != 0;
  switch (link.then) {
    case Effect::Follow:
      Schedule(index, holds, at);
      return;
    case Effect::Stop:
      Apply(index, holds, at);
      return;
    case Effect::Arrive:
      if (holds || link.removal.kind == SignalKind::None) Schedule(index, holds, at);
      return;
    case Effect::Count:
      if (holds) sink_.Counted(index, ++state.count, at);
      return;
  }
}

// Brings the link to the level after the delay of that level. The level that was asked for last wins.
void Plant::Schedule(int index, bool level, Nanos at) {
  const PlantLink& link = state_.links[index];
  PlantLinkState& state = state_.states[index];
  const bool underWay = state.dueAt != kNever;
  if (level == (state.level != 0)) {
    state.dueAt = kNever;
    return;
  }
  if (underWay) return;
  const Nanos delay = level ? link.onDelay : link.offDelay;
  if (delay <= 0) {
    Apply(index, level, at);
    return;
  }
  state.dueAt = at + delay;
  state.dueLevel = level;
}

void Plant::Apply(int index, bool level, Nanos at) {
  const PlantLink& link = state_.links[index];
  PlantLinkState& state = state_.states[index];
  state.dueAt = kNever;
  state.level = level;
  if (DrivesInput(link)) {
    RefreshInput(link.target, at);
    return;
  }
  CardState* card = Card(link.stopEntry);
  if (card != nullptr) SetMotorStop(*card, link.stopChannel, level, at);
}

void Plant::RefreshInput(SignalRef input, Nanos at) {
  if (!IsInput(input)) return;
  bool level = (state_.manual[input.entry] >> input.channel & 1) != 0;
  for (std::uint32_t index = 0; index < state_.linkCount; ++index) {
    const PlantLink& link = state_.links[index];
    if (DrivesInput(link) && Same(link.target, input) && state_.states[index].level != 0) level = true;
  }
  if (level == InputLevel(input)) return;
  SetBit(state_.inputs[input.entry], input.channel, level);
  sink_.InputEdge(input, level, at);
}

}  // namespace rack
