// Moves, and the waits for them, along all paths of a program.
#include <set>
#include <string>
#include <utility>

#include "check/flow.h"
#include "check/topics.h"
#include "commands/command_rows.h"

namespace check {

namespace {

using Axis = std::pair<int, int>;  // slot index and channel

// What may be the case when a line begins.
struct MotionState {
  std::map<Axis, std::string> moving;  // started in that file and line, and nothing has waited for it since
  std::map<int, std::set<int>> selected;  // by slot index: the channel that was addressed last

  // True when something is new.
  bool Join(const MotionState& other) {
    bool isNew = false;
    for (const auto& [axis, place] : other.moving) isNew |= moving.emplace(axis, place).second;
    for (const auto& [slot, channels] : other.selected) {
      for (const int channel : channels) isNew |= selected[slot].insert(channel).second;
    }
    return isNew;
  }
};

// What a block does to the state of its caller.
struct BlockEffect {
  MotionState atEnd;
  std::set<Axis> awaited;
};

bool IsMotorWait(SYNXIDX command) {
  const rack::WaitsFor waitsFor = rack::RowOf(command).waitsFor;
  return waitsFor == rack::WaitsFor::MotorEnd || waitsFor == rack::WaitsFor::Count;
}

class MotionRules {
 public:
  MotionRules(const ProgramTree& tree, const Task& task, Report* report)
      : tree_(tree), ofTask_(task), out_(*report) {}

  void Check() {
    for (const auto& [name, program] : ofTask_.programs) {
      const Flow flow = FlowOf(ofTask_, program);
      const std::vector<MotionState> states = Follow(program, flow);
      for (size_t i = 0; i < program.lines.size(); ++i) {
        if (flow.reached[i]) CheckLine(program, program.lines[i], states[i]);
      }
    }
  }

 private:
  // The states in front of all lines, each program taken for itself.
  std::vector<MotionState> Follow(const Program& program, const Flow& flow) {
    std::vector<MotionState> states(program.lines.size() + 1);
    std::vector<size_t> open = {0};
    std::vector<bool> isSeen(states.size(), false);
    while (!open.empty()) {
      const size_t index = open.back();
      open.pop_back();
      if (index == program.lines.size()) continue;
      isSeen[index] = true;
      const MotionState after = After(states[index], program, program.lines[index]);
      for (const size_t next : flow.next[index]) {
        if (states[next].Join(after) || !isSeen[next]) open.push_back(next);
      }
    }
    return states;
  }

  // The channel that the card really takes; nothing when it takes none. Without a known card the written one.
  std::optional<int> Channel(const Line& line) const {
    const rack::CardCommands* card = tree_.CardOf(line.parsed.SlotIdx.Value);
    if (card == nullptr) return line.parsed.ChIdx.Value;
    const rack::CardCommand* command = card->Find(line.parsed.CmdIdx);
    const int channel = command == nullptr ? -1 : card->Reached(*command, line.parsed.ChIdx.Value);
    return channel < 0 ? std::nullopt : std::optional(channel);
  }

  MotionState After(MotionState state, const Program& program, const Line& line) {
    const EXPLAINEDLINE& parsed = line.parsed;
    if (rack::RowOf(parsed.CmdIdx).goesOn == rack::GoesOn::Block) return AfterCall(state, line);
    const bool moves = parsed.CmdIdx == SYN_MOT;
    const bool waits = IsMotorWait(parsed.CmdIdx);
    const std::optional<int> channel = moves || waits ? Channel(line) : std::nullopt;
    if (!channel) return state;
    const Axis axis(parsed.SlotIdx.Value, *channel);
    if (waits) state.moving.erase(axis);
    if (moves) state.moving[axis] = program.name + ":" + std::to_string(line.number);
    if (parsed.CmdIdx != SYN_LMOT) state.selected[axis.first] = {*channel};
    return state;
  }

  MotionState AfterCall(const MotionState& before, const Line& line) {
    MotionState after;
    if (MayCallNothing(ofTask_, line)) after = before;
    for (const Program* block : BlocksOf(ofTask_, line)) {
      const BlockEffect& effect = EffectOf(*block);
      MotionState back = before;
      for (const Axis& axis : effect.awaited) back.moving.erase(axis);
      for (const auto& [axis, started] : effect.atEnd.moving) back.moving[axis] = started;
      for (const auto& [slot, channels] : effect.atEnd.selected) back.selected[slot] = channels;
      after.Join(back);
    }
    return after;
  }

  // A block that is being looked at already, because blocks replace each other in a circle, adds nothing.
  const BlockEffect& EffectOf(const Program& block) {
    const auto [entry, isNew] = effects_.try_emplace(block.name);
    if (!isNew) return entry->second;
    BlockEffect effect;
    const Flow flow = FlowOf(ofTask_, block);
    const std::vector<MotionState> states = Follow(block, flow);
    for (size_t i = 0; i < block.lines.size(); ++i) {
      const Line& line = block.lines[i];
      const SYNXIDX command = line.parsed.CmdIdx;
      const std::optional<int> awaited = IsMotorWait(command) ? Channel(line) : std::nullopt;
      if (awaited) effect.awaited.emplace(line.parsed.SlotIdx.Value, *awaited);
      for (const Program* next : BlocksOf(ofTask_, line)) {
        const BlockEffect& further = EffectOf(*next);
        effect.awaited.insert(further.awaited.begin(), further.awaited.end());
      }
      if (command == SYN_END || !BlocksOf(ofTask_, line).empty())
        effect.atEnd.Join(After(states[i], block, line));
    }
    return effects_[block.name] = effect;
  }

  void CheckLine(const Program& program, const Line& line, const MotionState& before) {
    const SYNXIDX command = line.parsed.CmdIdx;
    const bool asksCard = command == SYN_LMOT || command == SYN_ROCLR;
    if (command != SYN_MOT && !asksCard) return;
    const std::optional<int> channel = Channel(line);
    if (!channel) return;
    if (asksCard) return CheckSelection(program, line, *channel, before);
    const int slot = line.parsed.SlotIdx.Value;
    const auto moving = before.moving.find({slot, *channel});
    if (moving == before.moving.end()) return;
    out_.Add(program, line, line.parsed.KeywordColumn, RuleId::UnawaitedMove,
             "nothing has waited for the move that " + moving->second +
                 " has started: the controller programs the running motor anew; put \"LMOT: " +
                 std::to_string(slot) + ", " + std::to_string(*channel) + ",\" between them");
  }

  void CheckSelection(const Program& program, const Line& line, int channel, const MotionState& before) {
    const EXPLAINEDLINE& parsed = line.parsed;
    const rack::CardCommands* card = tree_.CardOf(parsed.SlotIdx.Value);
    const auto selected = before.selected.find(parsed.SlotIdx.Value);
    if (card == nullptr || !card->asksLastSelected || selected == before.selected.end()) return;
    for (const int other : selected->second) {
      if (other == channel) continue;
      return out_.Add(
          program, line, parsed.KeywordColumn, RuleId::OtherChannel,
          "channel " + std::to_string(other) + " of this card may have been addressed last: the card " +
              (parsed.CmdIdx == SYN_LMOT ? "tells when that motor stands" : "clears that counter") +
              ", not channel " + std::to_string(channel));
    }
  }

  const ProgramTree& tree_;
  const Task& ofTask_;
  Report& out_;
  std::map<std::string, BlockEffect> effects_;
};

}  // namespace

void CheckMotion(const ProgramTree& tree, const Task& task, Report* report) {
  MotionRules(tree, task, report).Check();
}

}  // namespace check
