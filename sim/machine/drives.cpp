#include "machine/drives.h"

#include <algorithm>

#include "toml/times.h"
#include "toml/words.h"

namespace rack {

namespace {

// Inputs that wait for each other in a circle end here.
constexpr int kFarthestBack = 8;
// Positions of a link from here on stand for "no limit on this side".
constexpr std::int64_t kNoLimit = 1'000'000'000;

const CardView* CardOf(const Snapshot& machine, int entry) {
  const bool there = entry >= 0 && static_cast<std::size_t>(entry) < machine.cards.size();
  return there ? &machine.cards[static_cast<std::size_t>(entry)] : nullptr;
}

const char* OnOff(bool on) {
  return on ? "on" : "off";
}

// The level that what hangs on the signal sees: of an input the natural one.
bool LevelOf(const Snapshot& machine, SignalRef signal) {
  const CardView* card = CardOf(machine, signal.entry);
  if (card == nullptr) return false;
  const std::uint32_t levels = signal.kind == SignalKind::Input ? card->natural : card->outputs;
  return (levels >> signal.channel & 1) != 0;
}

bool Drives(const PlantLink& link, int entry, int channel) {
  const bool input = link.then == Effect::Follow || link.then == Effect::Arrive;
  return input && link.target.entry == entry && link.target.channel == channel;
}

std::string LevelChange(const Snapshot& machine, int entry, int channel, int depth);

// What a signal is now, and of an input that has the wrong level what it waits for in turn.
std::string Is(const Snapshot& machine, SignalRef signal, bool wanted, int depth) {
  const bool level = LevelOf(machine, signal);
  std::string text = std::string(", which is ") + OnOff(level);
  if (level == wanted || signal.kind != SignalKind::Input) return text;
  return text + ": " + LevelChange(machine, signal.entry, signal.channel, depth + 1);
}

std::string Range(const PlantLink& link) {
  if (link.from <= -kNoLimit) return "at or below " + std::to_string(link.to);
  if (link.to >= kNoLimit) return "at or above " + std::to_string(link.from);
  if (link.from == link.to) return "at " + std::to_string(link.from);
  return "between " + std::to_string(link.from) + " and " + std::to_string(link.to);
}

std::string MotorIs(const Snapshot& machine, const PlantLink& link) {
  const CardView* card = CardOf(machine, link.entry);
  if (card == nullptr || link.channel >= card->motors.size()) return "";
  const MotorView& motor = card->motors[link.channel];
  return std::string(", which ") + (motor.busy ? "moves, at " : "stands at ") +
         std::to_string(motor.position) + (HeldBy(motor).empty() ? "" : " (" + HeldBy(motor) + ")");
}

std::string CylinderIs(const Snapshot& machine, const PlantLink& link) {
  const CardView* card = CardOf(machine, link.entry);
  if (card == nullptr || link.channel >= card->cylinders.size()) return "";
  const CylinderView& cylinder = card->cylinders[link.channel];
  const std::string at = PlaceText(cylinder);
  if ((cylinder.status & kCylinderAlarm) != 0) return ", which is in alarm at " + at;
  return ((cylinder.status & kCylinderMoving) != 0 ? ", which moves, at " : ", which stands at ") + at;
}

// The thing that a link looks at, as it must become, and as it is: "clamp (1.0) goes off, which is on".
std::string ConditionText(const Snapshot& machine, const PlantLink& link, bool holds, int depth) {
  const bool wanted = holds != (link.inverted != 0);
  const std::string address = std::to_string(link.entry) + "." + std::to_string(link.channel);
  switch (link.when) {
    case Condition::Signal:
      return SignalText(machine, link.source.kind, link.source.entry, link.source.channel) +
             (wanted ? "" : " goes off") + Is(machine, link.source, wanted, depth);
    case Condition::MotorWithin:
      return "motor " + address + (wanted ? " is " : " is no longer ") + Range(link) + MotorIs(machine, link);
    case Condition::CylinderStands:
      return "cylinder " + address + (wanted ? " stands at " : " has left ") + std::to_string(link.from) +
             CylinderIs(machine, link);
    case Condition::CylinderAlarm:
      return (wanted ? "an alarm of cylinder " : "the end of the alarm of cylinder ") + address +
             CylinderIs(machine, link);
  }
  return "";
}

// "100 ms after", or without a delay a word that says that it comes at once.
std::string After(Nanos delay) {
  return delay > 0 ? TimeText(delay) + " after " : "when ";
}

// An arrival acts when its condition becomes true: one that is true already must end first.
std::string Arrival(const Snapshot& machine, const LinkView& view, int depth) {
  const std::string text = After(view.link.onDelay) + ConditionText(machine, view.link, true, depth);
  return view.state.holds != 0 ? text + " already: that must end and come again" : text;
}

std::string Leaving(const Snapshot& machine, const LinkView& view, int depth) {
  const PlantLink& link = view.link;
  const std::string after = After(link.offDelay);
  if (link.removal.kind == SignalKind::None) return after + ConditionText(machine, link, false, depth);
  const std::string text = after +
                           SignalText(machine, link.removal.kind, link.removal.entry, link.removal.channel) +
                           Is(machine, link.removal, true, depth);
  return LevelOf(machine, link.removal) ? text + " already: that must go off and come again" : text;
}

// What one link waits for before it wants the other level of its input.
std::string LinkChange(const Snapshot& machine, const LinkView& view, bool wanted, int depth) {
  const std::string goes = std::string("goes ") + OnOff(wanted) + " ";
  const PlantLink& link = view.link;
  if (view.state.dueAt != kNever && (view.state.dueLevel != 0) == wanted)
    return goes + "in " + Seconds(view.state.dueAt - machine.nowNanos);
  if (link.then == Effect::Arrive)
    return goes + (wanted ? Arrival(machine, view, depth) : Leaving(machine, view, depth));
  return goes + After(wanted ? link.onDelay : link.offDelay) + ConditionText(machine, link, wanted, depth);
}

// The natural level: any of its links switches an input on, all of those that hold it must let it go.
std::string LevelChange(const Snapshot& machine, int entry, int channel, int depth) {
  const CardView* card = CardOf(machine, entry);
  if (card == nullptr || depth > kFarthestBack) return "and so on";
  const bool wanted = (card->natural >> channel & 1) == 0;
  std::vector<std::string> ways;
  bool driven = false;
  for (const LinkView& view : machine.links) {
    if (!Drives(view.link, entry, channel)) continue;
    driven = true;
    if ((view.state.level != 0) != wanted) ways.push_back(LinkChange(machine, view, wanted, depth));
  }
  if (!wanted && (card->switchedOn >> channel & 1) != 0)
    ways.emplace_back("nothing in rack.toml turns off what is on from the start");
  if (!driven && ways.empty())
    return "nothing in rack.toml drives " + SignalLabel(machine, SignalKind::Input, entry, channel);
  return Join(ways, wanted ? ", or " : ", and ");
}

bool HeldByFault(const Snapshot& machine, const CardView& card, int channel) {
  return std::any_of(machine.faultRecords.begin(), machine.faultRecords.end(), [&](const FaultRecord& fault) {
    return fault.kind == FaultKind::InputStuck && fault.slot == card.slot && fault.channel == channel;
  });
}

}  // namespace

std::string WhyNoChange(const Snapshot& snapshot, int entry, int channel) {
  const CardView* card = CardOf(snapshot, entry);
  if (card == nullptr) return "";
  if ((card->forced >> channel & 1) == 0) return LevelChange(snapshot, entry, channel, 0);
  return HeldByFault(snapshot, *card, channel) ? "a fault holds it, \"fault clear\" ends that"
                                               : "held by hand, \"in\" with \"release\" gives it back";
}

std::string SignalSentence(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  const CardView* card = CardOf(snapshot, entry);
  if (card == nullptr) return "";
  const std::uint32_t levels = kind == SignalKind::Input ? card->inputs : card->outputs;
  const std::string text =
      SignalText(snapshot, kind, entry, channel) + " is " + OnOff((levels >> channel & 1) != 0);
  return kind == SignalKind::Input ? text + ": " + WhyNoChange(snapshot, entry, channel) : text;
}

}  // namespace rack
