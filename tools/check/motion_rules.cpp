// Moves, and the waits for them, along all paths of a program.
#include <string>
#include <utility>

#include "check/flow.h"
#include "check/topics.h"

namespace check {

namespace {

using Axis = std::pair<int, int>;  // slot index and channel

// What may be the case when a line begins.
struct MotionState {
  std::map<Axis, std::string> Moving;  // started in that file and line, and nothing has waited for it since
  std::map<int, std::set<int>> Selected;  // by slot index: the channel that was addressed last

  // True when something is new.
  bool Join(const MotionState& other) {
    bool isNew = false;
    for (const auto& [axis, place] : other.Moving) isNew |= Moving.emplace(axis, place).second;
    for (const auto& [slot, channels] : other.Selected) {
      for (const int channel : channels) isNew |= Selected[slot].insert(channel).second;
    }
    return isNew;
  }
};

// What a block does to the state of its caller.
struct BlockEffect {
  MotionState AtEnd;
  std::set<Axis> Awaited;
};

bool IsMotorWait(SYNXIDX command) {
  return command == SYN_LMOT || command == SYN_ROW;
}

class MotionRules {
 public:
  MotionRules(const Machine& machine, const Task& task, Report* report)
      : OfMachine(machine), OfTask(task), Out(*report) {}

  void Check() {
    for (const auto& [name, program] : OfTask.Programs) {
      const Flow flow = FlowOf(OfTask, program);
      const std::vector<MotionState> states = Follow(program, flow);
      for (size_t i = 0; i < program.Lines.size(); ++i) {
        if (flow.Reached[i]) CheckLine(program, program.Lines[i], states[i]);
      }
    }
  }

 private:
  // The states in front of all lines, each program taken for itself.
  std::vector<MotionState> Follow(const Program& program, const Flow& flow) {
    std::vector<MotionState> states(program.Lines.size() + 1);
    std::vector<size_t> open = {0};
    std::vector<bool> isSeen(states.size(), false);
    while (!open.empty()) {
      const size_t index = open.back();
      open.pop_back();
      if (index == program.Lines.size()) continue;
      isSeen[index] = true;
      const MotionState after = After(states[index], program, program.Lines[index]);
      for (const size_t next : flow.Next[index]) {
        if (states[next].Join(after) || !isSeen[next]) open.push_back(next);
      }
    }
    return states;
  }

  // The channel that the card really takes; nothing when it takes none. Without a known card the written one.
  std::optional<int> Channel(const Line& line) const {
    const CardType* card = OfMachine.CardOf(line.Parsed.SlotIdx.Value);
    if (card == nullptr) return line.Parsed.ChIdx.Value;
    const CardCommand* command = card->Find(line.Parsed.CmdIdx);
    const int channel = command == nullptr ? -1 : ReachedChannel(*command, line.Parsed.ChIdx.Value);
    return channel < 0 ? std::nullopt : std::optional(channel);
  }

  MotionState After(MotionState state, const Program& program, const Line& line) {
    const EXPLAINEDLINE& parsed = line.Parsed;
    if (parsed.CmdIdx == SYN_FL || parsed.CmdIdx == SYN_IF) return AfterCall(state, line);
    const bool moves = parsed.CmdIdx == SYN_MOT;
    const bool waits = IsMotorWait(parsed.CmdIdx);
    const std::optional<int> channel = moves || waits ? Channel(line) : std::nullopt;
    if (!channel) return state;
    const Axis axis(parsed.SlotIdx.Value, *channel);
    if (waits) state.Moving.erase(axis);
    if (moves) state.Moving[axis] = program.Name + ":" + std::to_string(line.Number);
    if (parsed.CmdIdx != SYN_LMOT) state.Selected[axis.first] = {*channel};
    return state;
  }

  MotionState AfterCall(const MotionState& before, const Line& line) {
    MotionState after;
    if (MayCallNothing(OfTask, line)) after = before;
    for (const Program* block : BlocksOf(OfTask, line)) {
      const BlockEffect& effect = EffectOf(*block);
      MotionState back = before;
      for (const Axis& axis : effect.Awaited) back.Moving.erase(axis);
      for (const auto& [axis, started] : effect.AtEnd.Moving) back.Moving[axis] = started;
      for (const auto& [slot, channels] : effect.AtEnd.Selected) back.Selected[slot] = channels;
      after.Join(back);
    }
    return after;
  }

  // A block that is being looked at already, because blocks replace each other in a circle, adds nothing.
  const BlockEffect& EffectOf(const Program& block) {
    const auto [entry, isNew] = Effects.try_emplace(block.Name);
    if (!isNew) return entry->second;
    BlockEffect effect;
    const Flow flow = FlowOf(OfTask, block);
    const std::vector<MotionState> states = Follow(block, flow);
    for (size_t i = 0; i < block.Lines.size(); ++i) {
      const Line& line = block.Lines[i];
      const SYNXIDX command = line.Parsed.CmdIdx;
      const std::optional<int> awaited = IsMotorWait(command) ? Channel(line) : std::nullopt;
      if (awaited) effect.Awaited.emplace(line.Parsed.SlotIdx.Value, *awaited);
      for (const Program* next : BlocksOf(OfTask, line)) {
        const BlockEffect& further = EffectOf(*next);
        effect.Awaited.insert(further.Awaited.begin(), further.Awaited.end());
      }
      if (command == SYN_END || !BlocksOf(OfTask, line).empty())
        effect.AtEnd.Join(After(states[i], block, line));
    }
    return Effects[block.Name] = effect;
  }

  void CheckLine(const Program& program, const Line& line, const MotionState& before) {
    const SYNXIDX command = line.Parsed.CmdIdx;
    const bool asksCard = command == SYN_LMOT || command == SYN_ROCLR;
    if (command != SYN_MOT && !asksCard) return;
    const std::optional<int> channel = Channel(line);
    if (!channel) return;
    if (asksCard) return CheckSelection(program, line, *channel, before);
    const int slot = line.Parsed.SlotIdx.Value;
    const auto moving = before.Moving.find({slot, *channel});
    if (moving == before.Moving.end()) return;
    Out.Add(program, line, line.Parsed.KeywordColumn, RuleId::UnawaitedMove,
            "nothing has waited for the move that " + moving->second +
                " has started: the controller programs the running motor anew; put \"LMOT: " +
                std::to_string(slot) + ", " + std::to_string(*channel) + ",\" between them");
  }

  void CheckSelection(const Program& program, const Line& line, int channel, const MotionState& before) {
    const EXPLAINEDLINE& parsed = line.Parsed;
    const CardType* card = OfMachine.CardOf(parsed.SlotIdx.Value);
    const auto selected = before.Selected.find(parsed.SlotIdx.Value);
    if (card == nullptr || !card->ChannelOfLastSelection || selected == before.Selected.end()) return;
    for (const int other : selected->second) {
      if (other == channel) continue;
      return Out.Add(
          program, line, parsed.KeywordColumn, RuleId::OtherChannel,
          "channel " + std::to_string(other) + " of this card may have been addressed last: the card " +
              (parsed.CmdIdx == SYN_LMOT ? "tells when that motor stands" : "clears that counter") +
              ", not channel " + std::to_string(channel));
    }
  }

  const Machine& OfMachine;
  const Task& OfTask;
  Report& Out;
  std::map<std::string, BlockEffect> Effects;
};

}  // namespace

void CheckMotion(const Machine& machine, const Task& task, Report* report) {
  MotionRules(machine, task, report).Check();
}

}  // namespace check
