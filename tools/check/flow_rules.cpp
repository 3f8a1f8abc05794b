// Labels, ends of files, calls of blocks and loops.
#include <algorithm>
#include <string>

#include "check/flow.h"
#include "check/topics.h"
#include "public.h"

namespace check {

namespace {

std::string ListOf(const std::set<std::string>& words) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
  return list;
}

// The pause between commands may be 0 when a line begins.
struct PauseState {
  std::map<std::string, std::vector<bool>> MayBeZero;  // by program, then by line; last: at its end

  bool At(const Program& program, size_t index) const { return MayBeZero.at(program.Name)[index]; }
};

// Follows G_ST through the programs of a task. The pause outlasts calls and changes of the program.
class PauseFlow {
 public:
  PauseFlow(const Task& task, const std::map<std::string, Flow>& flows) : OfTask(task), Flows(flows) {
    for (const auto& [name, program] : task.Programs) {
      State.MayBeZero[name].assign(program.Lines.size() + 1, false);
    }
  }

  PauseState Solve() {
    do {
      Changed = false;
      for (const auto& [name, program] : OfTask.Programs) Pass(program);
    } while (Changed);
    return State;
  }

 private:
  void Pass(const Program& program) {
    if (program.Name == kFlowProgram && ResetLeavesZero()) Enter(program, 0);
    for (size_t i = 0; i < program.Lines.size(); ++i) {
      if (!LeavesZero(program, i)) continue;
      for (const size_t next : Flows.at(program.Name).Next[i]) Enter(program, next);
      for (const Program* block : BlocksOf(OfTask, program.Lines[i])) Enter(*block, 0);
    }
  }

  bool LeavesZero(const Program& program, size_t index) const {
    const Line& line = program.Lines[index];
    if (!Flows.at(program.Name).Reached[index]) return false;
    if (line.Parsed.CmdIdx == SYN_G_ST && line.Parsed.SlotIdx.Value >= 0)
      return line.Parsed.SlotIdx.Value == 0;
    bool leaves = State.At(program, index);
    for (const Program* block : BlocksOf(OfTask, line)) leaves |= EndsZero(*block);
    return leaves;
  }

  bool EndsZero(const Program& program) const {
    for (size_t i = 0; i < program.Lines.size(); ++i) {
      if (program.Lines[i].Parsed.CmdIdx == SYN_END && State.At(program, i)) return true;
    }
    return false;
  }

  bool ResetLeavesZero() const {
    const Program* reset = OfTask.Find(kResetProgram);
    if (reset == nullptr) return false;
    const std::vector<bool>& zero = State.MayBeZero.at(kResetProgram);
    return std::find(zero.begin(), zero.end(), true) != zero.end();
  }

  void Enter(const Program& program, size_t index) {
    std::vector<bool>& zero = State.MayBeZero[program.Name];
    if (zero[index]) return;
    zero[index] = true;
    Changed = true;
  }

  const Task& OfTask;
  const std::map<std::string, Flow>& Flows;
  PauseState State;
  bool Changed = false;
};

class FlowRules {
 public:
  FlowRules(const Task& task, Report* report) : OfTask(task), Out(*report) {
    for (const auto& [name, program] : task.Programs) Flows.emplace(name, FlowOf(task, program));
    Pauses = PauseFlow(task, Flows).Solve();
  }

  void Check() {
    for (const auto& [name, program] : OfTask.Programs) {
      if (program.IsUtf16) continue;
      CheckLabels(program);
      CheckCalls(program);
      CheckReach(program);
      CheckLoops(program);
      if (program.Name == kResetProgram) CheckFirstLine(program);
      if (program.IsMain || HasCommand(program))
        CheckEnd(program);
      else
        CheckEmptyBlock(program);
    }
  }

 private:
  static bool HasCommand(const Program& program) {
    return std::any_of(program.Lines.begin(), program.Lines.end(),
                       [](const Line& line) { return line.IsCommand(); });
  }

  void CheckLabels(const Program& program) {
    std::set<std::string> labels;
    for (size_t i = 0; i < program.Lines.size(); ++i) {
      const Line& line = program.Lines[i];
      int number = 0;
      if (!IsLabel(line.Raw.c_str(), &number)) continue;
      labels.insert(std::to_string(number));
      const size_t first = *FindLabel(program, number);
      if (first == i) continue;
      Out.Add(program, line, 0, RuleId::DuplicateLabel,
              "label " + std::to_string(number) + " stands in line " +
                  std::to_string(program.Lines[first].Number) +
                  " too: GO goes there and never here; give it another number");
    }
    for (const Line& line : program.Lines) {
      if (line.Parsed.CmdIdx != SYN_GO || FindLabel(program, line.Parsed.SlotIdx.Value)) continue;
      Out.Add(program, line, line.Parsed.SlotIdx.Column, RuleId::MissingLabel,
              "there is no label " + std::to_string(line.Parsed.SlotIdx.Value) +
                  " in this file: the controller repeats the line for ever; " +
                  (labels.empty() ? "the file has no label" : "it has " + ListOf(labels)));
    }
  }

  void CheckCalls(const Program& program) {
    for (const Line& line : program.Lines) {
      for (const BlockName& block : CalledBlocks(line)) {
        CheckBlockFile(program, line, block);
      }
      if (!program.IsMain && program.IsCalled) CheckNesting(program, line);
    }
  }

  void CheckBlockFile(const Program& program, const Line& line, const BlockName& block) {
    const std::string effect = program.IsMain ? "the controller passes over the call"
                                              : "the controller closes this block and the task idles";
    const std::string path = "plc" + std::to_string(OfTask.Number) + "/" + block.Name;
    if (path.size() >= MAXNAME) {
      return Out.Add(program, line, block.Column, RuleId::BlockName,
                     "a block's name whose path has 200 characters or more: " + effect + "; shorten it");
    }
    if (OfTask.Find(block.Name) != nullptr) return;
    Out.Add(program, line, block.Column, RuleId::MissingBlock,
            "there is no file \"" + block.Name + "\": " + effect +
                DidYouMean(NearMiss(block.Name, FileNames(OfTask.Directory))));
  }

  void CheckNesting(const Program& program, const Line& line) {
    for (const Program* block : BlocksOf(OfTask, line)) {
      Out.Add(program, line, line.Parsed.KeywordColumn, RuleId::BlockInBlock,
              "a call inside a block: " + block->Name + " replaces " + program.Name +
                  ", and its END returns to " + ListOf(MainsAbove(program)));
    }
  }

  // The main programs from which a block is reached.
  std::set<std::string> MainsAbove(const Program& program) const {
    std::set<std::string> mains;
    for (const auto& [name, main] : OfTask.Programs) {
      std::set<const Program*> seen;
      if (main.IsMain && Calls(main, program, &seen)) mains.insert(name);
    }
    if (mains.empty()) mains.insert("the main program");
    return mains;
  }

  bool Calls(const Program& caller, const Program& callee, std::set<const Program*>* seen) const {
    if (!seen->insert(&caller).second) return false;
    for (const Line& line : caller.Lines) {
      for (const Program* block : BlocksOf(OfTask, line)) {
        if (block == &callee || Calls(*block, callee, seen)) return true;
      }
    }
    return false;
  }

  // One finding for each run of lines.
  void CheckReach(const Program& program) {
    const Flow& flow = Flows.at(program.Name);
    bool isReported = false;
    for (size_t i = 0; i < program.Lines.size(); ++i) {
      const Line& line = program.Lines[i];
      if (flow.Reached[i]) isReported = false;
      if (flow.Reached[i] || !line.IsCommand() || isReported) continue;
      isReported = true;
      Out.Add(program, line, line.Parsed.KeywordColumn, RuleId::Unreachable,
              "the controller never comes to this line: the program ends or goes elsewhere before it");
    }
  }

  void CheckFirstLine(const Program& program) {
    if (program.Lines.empty()) return;
    const Line& line = program.Lines.front();
    const SYNXIDX command = line.Parsed.CmdIdx;
    if (command != SYN_MOT && command != SYN_DG && command != SYN_IF) return;
    Out.Add(program, line, line.Parsed.KeywordColumn, RuleId::ResetFirstLine,
            std::string(SYNXCMD[command]) +
                " in the first line: the controller executes it in each pass while the minus key is down; "
                "put a comment "
                "line first");
  }

  void CheckEmptyBlock(const Program& program) {
    if (!program.IsCalled) return;
    const char* effect = program.Lines.empty()
                             ? "the controller repeats the line that called it, without a pause"
                             : "the task never returns from it";
    Out.Add(program.Path, 1, 1, RuleId::EmptyBlock,
            "the block has no command: " + std::string(effect) + "; write at least END");
  }

  void CheckEnd(const Program& program) {
    if (!Flows.at(program.Name).ReachesEnd()) return;
    if (program.Lines.empty()) {
      return Out.Add(
          program.Path, 1, 1, RuleId::OpenEnd,
          "the program is empty: the controller repeats the line executed before; write at least EXIT");
    }
    const Line& line = program.Lines.back();
    const SYNXIDX command = line.Parsed.CmdIdx;
    if (command == SYN_EXIT) return;
    const std::string meant =
        program.IsMain ? "; END or EXIT was probably meant" : "; END was probably meant";
    if (command == SYN_OUT || command == SYN_MOT || command == SYN_DG) {
      return Out.Add(program, line, line.Parsed.KeywordColumn, RuleId::EndlessAction,
                     "the file ends here: the controller executes this " + std::string(SYNXCMD[command]) +
                         " again and again" + meant);
    }
    const bool endsInCall = program.IsMain && !BlocksOf(OfTask, line).empty();
    const char* effect = endsInCall ? "the END of the block is executed once more, in this program"
                                    : "the controller stays in this line for ever";
    Out.Add(program, line, 0, RuleId::OpenEnd, "the file ends here: " + std::string(effect) + meant);
  }

  // A line that takes no time worth mentioning when the pause between commands is 0.
  bool IsBusy(const Program& program, size_t index) const {
    const Line& line = program.Lines[index];
    if (!Pauses.At(program, index)) return false;
    switch (line.Parsed.CmdIdx) {
      case SYN_DLY:
      case SYN_G_ST:
        return line.Parsed.SlotIdx.Value <= 0;
      case SYN_DG:  // set-up and reset wait for their end
        return line.Parsed.Param != "-1" && line.Parsed.Param != "-2";
      case SYN_FL:  // the END of a block takes a second
        return BlocksOf(OfTask, line).empty();
      case SYN_IF:
        return MayCallNothing(OfTask, line);
      default:
        return SYNXTRAITS[line.Parsed.CmdIdx].Repeat == REPEAT::Once;
    }
  }

  bool IsBusyPath(const Program& program, size_t from, size_t to) const {
    std::set<size_t> seen;
    std::vector<size_t> open = {from};
    while (!open.empty()) {
      const size_t index = open.back();
      open.pop_back();
      if (index == program.Lines.size() || !IsBusy(program, index) || !seen.insert(index).second) continue;
      if (index == to) return true;
      const std::set<size_t>& next = Flows.at(program.Name).Next[index];
      open.insert(open.end(), next.begin(), next.end());
    }
    return false;
  }

  void CheckLoops(const Program& program) {
    const Flow& flow = Flows.at(program.Name);
    for (size_t i = 0; i < program.Lines.size(); ++i) {
      const Line& line = program.Lines[i];
      if (line.Parsed.CmdIdx != SYN_GO || !flow.Reached[i] || !FindLabel(program, line.Parsed.SlotIdx.Value))
        continue;
      if (!IsBusyPath(program, *flow.Next[i].begin(), i)) continue;
      Out.Add(program, line, line.Parsed.KeywordColumn, RuleId::BusyLoop,
              "this loop neither pauses nor waits while G_ST is 0: the task takes the processor from all "
              "others; add a "
              "DLY or a wait");
    }
  }

  const Task& OfTask;
  Report& Out;
  std::map<std::string, Flow> Flows;
  PauseState Pauses;
};

}  // namespace

void CheckFlow(const Task& task, Report* report) {
  FlowRules(task, report).Check();
}

}  // namespace check
