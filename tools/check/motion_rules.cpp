// Moves, and the waits for them, along all ways of each task.
#include <set>
#include <string>
#include <vector>

#include "check/motion_flow.h"
#include "check/topics.h"
#include "commands/command_rows.h"
#include "kova_motion.h"

namespace check {

namespace {

// The channel that the controller's start leaves selected on each motor card.
constexpr int kSelectedAtStart = kClearedChannels - 1;

class MotionRules {
 public:
  MotionRules(const ProgramTree& tree, const Task& task, const MotionTable& table, Report* report)
      : tree_(tree), ofTask_(task), table_(table), flow_(task, table), out_(*report) {
    for (int axis = 0; axis < static_cast<int>(table.Axes().size()); ++axis) {
      awaitedElsewhere_.push_back(OtherTaskHas(axis, [](const Act& act) {
        return act.deed == Deed::MotorWait || act.deed == Deed::CountWait || act.deed == Deed::CylinderWait;
      }));
      countedElsewhere_.push_back(OtherTaskHas(
          axis, [](const Act& act) { return act.deed == Deed::Move || act.deed == Deed::ClearCount; }));
    }
    for (int card = 0; card < static_cast<int>(table.Cards().size()); ++card) {
      std::set<int>& channels = selected_.emplace_back();
      for (const int index : table.RunOnCard(card)) {
        const Act& act = table.ActOf(index);
        if (act.selects) channels.insert(table.ChannelOf(act));
      }
    }
  }

  void Check() {
    flow_.ForEachAct([this](const Program& program, size_t index, const Act& act, const int* facts) {
      if (act.asksLast) CheckSelection(act, facts);
      if (act.deed == Deed::Move) CheckMove(program, index, act, facts);
      if (act.deed == Deed::Travel || act.deed == Deed::Setup) CheckTravel(act, facts);
      if (act.deed == Deed::CountWait) CheckCount(act, act, facts);
    });
  }

 private:
  void Add(const Act& act, RuleId rule, const std::string& message) {
    out_.Add(*act.program, *act.line, act.line->parsed.KeywordColumn, rule, message);
  }

  // The move of the axis that runs, or may run; kNoAct when none does.
  static int MoveOf(int axis, const AxisFact (&kinds)[2], const int* facts) {
    for (const AxisFact kind : kinds) {
      const int move = facts[FactPlan::Of(axis, kind)];
      if (move >= 0) return move;
    }
    return kNoAct;
  }

  template <class Which>
  bool OtherTaskHas(int axis, Which which) const {
    for (const int index : table_.RunOnAxis(axis)) {
      const Act& act = table_.ActOf(index);
      if (act.task != &ofTask_ && which(act)) return true;
    }
    return false;
  }

  bool OtherTaskWaits(int axis) const { return awaitedElsewhere_[static_cast<size_t>(axis)]; }

  void CheckMove(const Program& program, size_t index, const Act& act, const int* facts) {
    if (!act.starts) return;
    const int moving = MoveOf(act.axis, kMovingFacts, facts);
    if (moving != kNoAct && !OtherTaskWaits(act.axis)) {
      Add(act, RuleId::UnawaitedMove,
          "nothing has waited for the move that " + table_.ActOf(moving).Place() +
              " has started: the controller programs the running motor anew; put \"" +
              table_.AxisOf(act).Wait() + "\" between them");
    }
    CheckLeftMoves(program, index, act, facts);
    CheckCountBehind(program, index, facts);
  }

  void CheckLeftMoves(const Program& program, size_t index, const Act& act, const int* facts) {
    for (int axis = 0; axis < static_cast<int>(table_.Axes().size()); ++axis) {
      const int left = MoveOf(axis, kLeftFacts, facts);
      if (left == kNoAct || axis == act.axis || OtherTaskWaits(axis)) continue;
      const Act& start = table_.ActOf(left);
      if (flow_.IsAwaitedLater(program, index, start)) continue;
      Add(act, RuleId::LeftMoving,
          table_.AxisOf(start).Title() + " may still be under way: " + start.Place() +
              " has started it, and nothing has waited for it since; put \"" + table_.AxisOf(start).Wait() +
              "\" before the END of " + start.program->name);
    }
  }

  void CheckTravel(const Act& act, const int* facts) {
    const int moving = MoveOf(act.axis, kMovingFacts, facts);
    if (moving == kNoAct || OtherTaskWaits(act.axis)) return;
    const Act& start = table_.ActOf(moving);
    if (act.deed == Deed::Travel && start.number == act.number) return;
    Add(act, RuleId::UnawaitedTravel,
        "nothing has waited for the travel to " + std::to_string(start.number) + " that " + start.Place() +
            " has started: the cylinder leaves its way for this one; put \"" + table_.AxisOf(act).Wait() +
            "\" between them");
  }

  // The ROW that follows a move, as long as each line leads to the next one.
  void CheckCountBehind(const Program& program, size_t index, const int* facts) {
    const std::vector<int>& acts = table_.ActsOf(program);
    const Act& move = table_.ActOf(acts[index]);
    if (facts[FactPlan::Of(move.axis, AxisFact::Counted)] < 0) return;
    for (size_t i = index + 1; i < acts.size(); ++i) {
      if (rack::RowOf(program.lines[i].parsed.CmdIdx).goesOn != rack::GoesOn::NextLine) return;
      if (acts[i] == kNoAct || table_.ActOf(acts[i]).axis != move.axis) continue;
      const Act& act = table_.ActOf(acts[i]);
      if (act.deed == Deed::CountWait) CheckCount(act, move, facts);
      if (act.deed != Deed::MotorWait) return;
    }
  }

  // facts: in front of the last act that could have changed the count.
  void CheckCount(const Act& act, const Act& last, const int* facts) {
    const int counted = facts[FactPlan::Of(last.axis, AxisFact::Counted)];
    if (counted < 0 || act.number > table_.ActOf(counted).number || act.number <= 0) return;
    if (countedElsewhere_[static_cast<size_t>(act.axis)]) return;
    const std::string axis =
        std::to_string(table_.AxisOf(act).slot) + ", " + std::to_string(table_.AxisOf(act).channel);
    Add(act, RuleId::StaleCount,
        "the counter has not been cleared since " + table_.ActOf(counted).Place() +
            ": it already stands at " + std::to_string(act.number) +
            " or more, and the wait is met at once; put \"ROCLR: " + axis + ",\" between them");
  }

  void CheckSelection(const Act& act, const int* facts) {
    const FactPlan& plan = flow_.Plan();
    const int channel = table_.ChannelOf(act);
    for (int other = 0; other < kChannelsOfCard; ++other) {
      const int selecting = facts[plan.Selected(act.card, other)];
      if (selecting < 0 || other == channel) continue;
      return Add(act, RuleId::OtherChannel,
                 "channel " + std::to_string(other) + " of this card may have been addressed last, by " +
                     table_.ActOf(selecting).Place() + ": the card " + Answers(act) + ", not channel " +
                     std::to_string(channel));
    }
    if (facts[plan.Selected(act.card, kAnySelected)] >= 0) CheckFirst(act, channel);
  }

  static const char* Answers(const Act& act) {
    return act.deed == Deed::MotorWait ? "tells when that motor stands" : "clears that counter";
  }

  // Nothing has addressed the card since the start, where the controller has cleared all counters and stopped all
  // motors, or since the minus key. When no other channel is ever addressed, a wait asks for the right one.
  void CheckFirst(const Act& act, int channel) {
    const std::set<int>& addressed = selected_[static_cast<size_t>(act.card)];
    const bool isAlone = addressed.size() == addressed.count(channel);
    if (isAlone && (act.deed == Deed::MotorWait || channel == kSelectedAtStart)) return;
    const rack::CardCommands& card = *tree_.CardOf(table_.AxisOf(act).slot);
    const bool isThere = kSelectedAtStart < rack::RowOf(card.kind).motors;
    const std::string selected = "channel " + std::to_string(kSelectedAtStart);
    Add(act, RuleId::OtherChannel,
        "nothing has addressed this card before: at the start " + selected + " is selected" +
            (isThere ? "" : ", which it has not") +
            ", after the minus key the one addressed last; the card " + Answers(act) +
            "; put a MOT or ROW of channel " + std::to_string(channel) + " before it");
  }

  const ProgramTree& tree_;
  const Task& ofTask_;
  const MotionTable& table_;
  MotionFlow flow_;
  Report& out_;
  std::vector<bool> awaitedElsewhere_;   // by axis: another task waits for it
  std::vector<bool> countedElsewhere_;   // by axis: another task moves it or clears its counter
  std::vector<std::set<int>> selected_;  // by card: the channels that lines of any task select
};

}  // namespace

void CheckMotion(const ProgramTree& tree, Report* report) {
  const MotionTable table(tree);
  for (const Task& task : tree.tasks) MotionRules(tree, task, table, report).Check();
}

}  // namespace check
