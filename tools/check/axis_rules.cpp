// Motors, cylinders and motor cards over all tasks of a machine.
#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "check/motion_table.h"
#include "check/topics.h"

namespace check {

namespace {

class AxisRules {
 public:
  AxisRules(const ProgramTree& tree, Report* report) : table_(tree), out_(*report) {
    for (int axis = 0; axis < static_cast<int>(table_.Axes().size()); ++axis) {
      const std::vector<int>& acts = table_.RunOnAxis(axis);
      starts_.push_back(
          std::any_of(acts.begin(), acts.end(), [&](int index) { return table_.ActOf(index).starts; }));
    }
  }

  void Check() {
    for (int axis = 0; axis < static_cast<int>(table_.Axes().size()); ++axis) {
      CheckDrivers(axis);
      CheckStarts(axis);
    }
    for (int card = 0; card < static_cast<int>(table_.Cards().size()); ++card) CheckCard(card);
  }

 private:
  void Add(const Act& act, RuleId rule, const std::string& message) {
    out_.Add(*act.program, *act.line, act.line->parsed.KeywordColumn, rule, message);
  }

  // A task that sets a cylinder up, or clears its alarm, helps another that drives it.
  void CheckDrivers(int axis) {
    const Act* first = nullptr;
    std::set<const Task*> reported;
    for (const int index : table_.RunOnAxis(axis)) {
      const Act& act = table_.ActOf(index);
      if (!act.starts || (act.deed != Deed::Move && act.deed != Deed::Travel)) continue;
      if (first == nullptr) first = &act;
      if (act.task == first->task || !reported.insert(act.task).second) continue;
      Add(act, RuleId::SharedAxis,
          "task " + std::to_string(first->task->number) + " moves " + table_.AxisOf(act).Title() + " too (" +
              first->PlaceInMachine() + "): a move that still runs is replaced by the other task's");
    }
  }

  // Whatever names the axis counts: what is wrong with such a line is said there.
  void CheckStarts(int axis) {
    const std::vector<int>& acts = table_.RunOnAxis(axis);
    const bool isStarted = std::any_of(acts.begin(), acts.end(), [&](int index) {
      const Deed deed = table_.ActOf(index).deed;
      return deed == Deed::Move || deed == Deed::Travel || deed == Deed::Setup || deed == Deed::Reset ||
             deed == Deed::Nothing;
    });
    if (isStarted) return;
    for (const int index : acts) {
      const Act& act = table_.ActOf(index);
      if (act.deed != Deed::MotorWait && act.deed != Deed::CylinderWait) continue;
      Add(act, RuleId::WaitWithoutMove,
          "no task ever starts " + table_.AxisOf(act).Title() + ": " + EffectOf(act) +
              DidYouMean(StartedBeside(act)));
    }
  }

  static std::string EffectOf(const Act& act) {
    if (act.asksLast) return "the card answers for the motor that was addressed last";
    return "the wait is met at once";
  }

  // The wait for the only axis of the card that is started; nothing when there are none or several.
  std::string StartedBeside(const Act& act) const {
    const Axis& meant = table_.AxisOf(act);
    std::string wait;
    for (int axis = 0; axis < static_cast<int>(table_.Axes().size()); ++axis) {
      const Axis& other = table_.Axes()[static_cast<size_t>(axis)];
      if (!starts_[static_cast<size_t>(axis)] || other.isCylinder != meant.isCylinder ||
          other.slot != meant.slot)
        continue;
      if (!wait.empty()) return "";
      wait = other.Wait();
    }
    return wait;
  }

  // Once for each task that asks the card.
  void CheckCard(int card) {
    std::set<const Task*> reported;
    const std::vector<const Act*> selecting = FirstSelecting(card);
    for (const int index : table_.RunOnCard(card)) {
      const Act& act = table_.ActOf(index);
      if (!act.asksLast || reported.count(act.task) != 0) continue;
      const Act* other = SelectedElsewhere(selecting, act);
      if (other == nullptr) continue;
      reported.insert(act.task);
      const std::string channel = std::to_string(table_.ChannelOf(*other));
      const bool waits = act.deed == Deed::MotorWait;
      Add(act, RuleId::SharedCard,
          "task " + std::to_string(other->task->number) + " addresses channel " + channel +
              " of this card too (" + other->PlaceInMachine() + "): when it has come between, the card " +
              (waits ? "tells when that motor stands" : "clears that counter") + ", not channel " +
              std::to_string(table_.ChannelOf(act)) +
              (waits ? "; wait with ROW, or move the axis to another card"
                     : "; move the axis to another card"));
    }
  }

  // The first line of each task that selects an axis of the card, in their order.
  std::vector<const Act*> FirstSelecting(int card) const {
    std::vector<const Act*> selecting;
    std::set<std::pair<const Task*, int>> seen;
    for (const int index : table_.RunOnCard(card)) {
      const Act& act = table_.ActOf(index);
      if (act.selects && seen.insert({act.task, act.axis}).second) selecting.push_back(&act);
    }
    return selecting;
  }

  static const Act* SelectedElsewhere(const std::vector<const Act*>& selecting, const Act& asking) {
    const auto other = std::find_if(selecting.begin(), selecting.end(), [&](const Act* act) {
      return act->task != asking.task && act->axis != asking.axis;
    });
    return other == selecting.end() ? nullptr : *other;
  }

  const MotionTable table_;
  Report& out_;
  std::vector<bool> starts_;  // by axis: some line moves it
};

}  // namespace

void CheckAxes(const ProgramTree& tree, Report* report) {
  AxisRules(tree, report).Check();
}

}  // namespace check
