// Labels, ends of files, calls of blocks and loops.
#include <algorithm>
#include <string>

#include "check/flow.h"
#include "check/topics.h"
#include "commands/command_rows.h"
#include "public.h"

namespace check {

namespace {

std::string ListOf(const std::set<std::string>& words) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
  return list;
}

rack::GoesOn GoesOnOf(const Line& line) {
  return rack::RowOf(line.parsed.CmdIdx).goesOn;
}

// The pause between commands may be 0 when a line begins.
struct PauseState {
  std::map<std::string, std::vector<bool>> mayBeZero;  // by program, then by line; last: at its end

  bool At(const Program& program, size_t index) const { return mayBeZero.at(program.name)[index]; }
};

// Follows G_ST through the programs of a task. The pause outlasts calls and changes of the program.
class PauseFlow {
 public:
  PauseFlow(const Task& task, const std::map<std::string, Flow>& flows) : ofTask_(task), flows_(flows) {
    for (const auto& [name, program] : task.programs) {
      state_.mayBeZero[name].assign(program.lines.size() + 1, false);
    }
  }

  PauseState Solve() {
    do {
      changed_ = false;
      for (const auto& [name, program] : ofTask_.programs) Pass(program);
    } while (changed_);
    return state_;
  }

 private:
  void Pass(const Program& program) {
    if (program.name == kFlowProgram && ResetLeavesZero()) Enter(program, 0);
    for (size_t i = 0; i < program.lines.size(); ++i) {
      if (!LeavesZero(program, i)) continue;
      for (const size_t next : flows_.at(program.name).next[i]) Enter(program, next);
      for (const Program* block : BlocksOf(ofTask_, program.lines[i])) Enter(*block, 0);
    }
  }

  bool LeavesZero(const Program& program, size_t index) const {
    const Line& line = program.lines[index];
    if (!flows_.at(program.name).reached[index]) return false;
    if (rack::RowOf(line.parsed.CmdIdx).waitsFor == rack::WaitsFor::PauseBetween &&
        line.parsed.SlotIdx.Value >= 0)
      return line.parsed.SlotIdx.Value == 0;
    const std::vector<const Program*> blocks = BlocksOf(ofTask_, line);
    const bool mayPassOver = blocks.empty() || MayCallNothing(ofTask_, line);
    bool leaves = mayPassOver && state_.At(program, index);
    for (const Program* block : blocks) leaves |= EndsZero(*block);
    return leaves;
  }

  bool EndsZero(const Program& program) const {
    for (size_t i = 0; i < program.lines.size(); ++i) {
      if (GoesOnOf(program.lines[i]) == rack::GoesOn::Caller && state_.At(program, i)) return true;
    }
    return false;
  }

  bool ResetLeavesZero() const {
    const Program* reset = ofTask_.Find(kResetProgram);
    if (reset == nullptr) return false;
    const std::vector<bool>& zero = state_.mayBeZero.at(kResetProgram);
    return std::find(zero.begin(), zero.end(), true) != zero.end();
  }

  void Enter(const Program& program, size_t index) {
    std::vector<bool>& zero = state_.mayBeZero[program.name];
    if (zero[index]) return;
    zero[index] = true;
    changed_ = true;
  }

  const Task& ofTask_;
  const std::map<std::string, Flow>& flows_;
  PauseState state_;
  bool changed_ = false;
};

class FlowRules {
 public:
  FlowRules(const Task& task, Report* report) : ofTask_(task), out_(*report) {
    for (const auto& [name, program] : task.programs) flows_.emplace(name, FlowOf(task, program));
    pauses_ = PauseFlow(task, flows_).Solve();
  }

  void Check() {
    for (const auto& [name, program] : ofTask_.programs) {
      if (program.isUtf16) continue;
      CheckLabels(program);
      CheckCalls(program);
      CheckReach(program);
      CheckLoops(program);
      CheckWaits(program);
      if (program.name == kResetProgram) CheckFirstLine(program);
      if (program.isMain || HasCommand(program))
        CheckEnd(program);
      else
        CheckEmptyBlock(program);
    }
  }

 private:
  static bool HasCommand(const Program& program) {
    return std::any_of(program.lines.begin(), program.lines.end(),
                       [](const Line& line) { return line.IsCommand(); });
  }

  void CheckLabels(const Program& program) {
    std::set<std::string> labels;
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      int number = 0;
      if (!IsLabel(line.raw.c_str(), &number)) continue;
      labels.insert(std::to_string(number));
      const size_t first = *FindLabel(program, number);
      if (first == i) continue;
      out_.Add(program, line, 0, RuleId::DuplicateLabel,
               "label " + std::to_string(number) + " stands in line " +
                   std::to_string(program.lines[first].number) +
                   " too: GO goes there and never here; give it another number");
    }
    for (const Line& line : program.lines) {
      if (GoesOnOf(line) != rack::GoesOn::Label || FindLabel(program, line.parsed.SlotIdx.Value)) continue;
      out_.Add(program, line, line.parsed.SlotIdx.Column, RuleId::MissingLabel,
               "there is no label " + std::to_string(line.parsed.SlotIdx.Value) +
                   " in this file: the controller repeats the line for ever; " +
                   (labels.empty() ? "the file has no label" : "it has " + ListOf(labels)));
    }
  }

  void CheckCalls(const Program& program) {
    for (const Line& line : program.lines) {
      for (const BlockName& block : CalledBlocks(line)) {
        CheckBlockFile(program, line, block);
      }
      if (!program.isMain && program.isCalled) CheckNesting(program, line);
    }
  }

  void CheckBlockFile(const Program& program, const Line& line, const BlockName& block) {
    const std::string effect = program.isMain ? "the controller passes over the call"
                                              : "the controller closes this block and the task idles";
    const std::string path = "plc" + std::to_string(ofTask_.number) + "/" + block.name;
    if (path.size() >= MAXNAME) {
      return out_.Add(program, line, block.column, RuleId::BlockName,
                      "a block's name whose path has 200 characters or more: " + effect + "; shorten it");
    }
    if (ofTask_.Find(block.name) != nullptr) return;
    out_.Add(program, line, block.column, RuleId::MissingBlock,
             "there is no file \"" + block.name + "\": " + effect +
                 DidYouMean(NearMiss(block.name, FileNames(ofTask_.directory))));
  }

  void CheckNesting(const Program& program, const Line& line) {
    for (const Program* block : BlocksOf(ofTask_, line)) {
      out_.Add(program, line, line.parsed.KeywordColumn, RuleId::BlockInBlock,
               "a call inside a block: " + block->name + " replaces " + program.name +
                   ", and its END returns to " + ListOf(MainsAbove(program)));
    }
  }

  // The main programs from which a block is reached.
  std::set<std::string> MainsAbove(const Program& program) const {
    std::set<std::string> mains;
    for (const auto& [name, main] : ofTask_.programs) {
      std::set<const Program*> seen;
      if (main.isMain && Calls(main, program, &seen)) mains.insert(name);
    }
    if (mains.empty()) mains.insert("the main program");
    return mains;
  }

  bool Calls(const Program& caller, const Program& callee, std::set<const Program*>* seen) const {
    if (!seen->insert(&caller).second) return false;
    for (const Line& line : caller.lines) {
      for (const Program* block : BlocksOf(ofTask_, line)) {
        if (block == &callee || Calls(*block, callee, seen)) return true;
      }
    }
    return false;
  }

  // One finding for each run of lines.
  void CheckReach(const Program& program) {
    const Flow& flow = flows_.at(program.name);
    bool isReported = false;
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      if (flow.reached[i]) isReported = false;
      if (flow.reached[i] || !line.IsCommand() || isReported) continue;
      isReported = true;
      out_.Add(program, line, line.parsed.KeywordColumn, RuleId::Unreachable,
               "the controller never comes to this line: the program ends or goes elsewhere before it");
    }
  }

  void CheckFirstLine(const Program& program) {
    if (program.lines.empty()) return;
    const Line& line = program.lines.front();
    const SYNXIDX command = line.parsed.CmdIdx;
    const rack::Again again = rack::RowOf(command).again;
    if (again != rack::Again::Moves && again != rack::Again::Calls) return;
    out_.Add(program, line, line.parsed.KeywordColumn, RuleId::ResetFirstLine,
             std::string(SYNXCMD[command]) +
                 " in the first line: the controller executes it in each pass while the minus key is down; "
                 "put a comment "
                 "line first");
  }

  // One finding for the waits of a program.
  void CheckWaits(const Program& program) {
    const Line* first = nullptr;
    int further = 0;
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      const bool waits = rack::kCommandTraits[line.parsed.CmdIdx].repeats;
      if (!waits || !flows_.at(program.name).reached[i] || !pauses_.At(program, i)) continue;
      if (first == nullptr)
        first = &line;
      else
        ++further;
    }
    if (first == nullptr) return;
    const std::string others =
        further == 0 ? "" : ", as in " + std::to_string(further) + " more of this file";
    out_.Add(program, *first, first->parsed.KeywordColumn, RuleId::BusyWait,
             "G_ST may be 0 in this wait" + others +
                 ": the controller asks at full speed and takes the processor from all other tasks; set G_ST "
                 "to some milliseconds before it");
  }

  void CheckEmptyBlock(const Program& program) {
    if (!program.isCalled) return;
    const char* effect = program.lines.empty()
                             ? "the controller repeats the line that called it, without a pause"
                             : "the task never returns from it";
    out_.Add(program.path, 1, 1, RuleId::EmptyBlock,
             "the block has no command: " + std::string(effect) + "; write at least END");
  }

  void CheckEnd(const Program& program) {
    if (!flows_.at(program.name).ReachesEnd()) return;
    if (program.lines.empty()) {
      return out_.Add(
          program.path, 1, 1, RuleId::OpenEnd,
          "the program is empty: the controller repeats the line executed before; write at least EXIT");
    }
    const Line& line = program.lines.back();
    const SYNXIDX command = line.parsed.CmdIdx;
    if (GoesOnOf(line) == rack::GoesOn::Nowhere) return;
    const std::string meant =
        program.isMain ? "; END or EXIT was probably meant" : "; END was probably meant";
    const rack::Again again = rack::RowOf(command).again;
    if (again == rack::Again::Writes || again == rack::Again::Moves) {
      return out_.Add(program, line, line.parsed.KeywordColumn, RuleId::EndlessAction,
                      "the file ends here: the controller executes this " + std::string(SYNXCMD[command]) +
                          " again and again" + meant);
    }
    const bool endsInCall = program.isMain && !BlocksOf(ofTask_, line).empty();
    const char* effect = endsInCall ? "the END of the block is executed once more, in this program"
                                    : "the controller stays in this line for ever";
    out_.Add(program, line, 0, RuleId::OpenEnd, "the file ends here: " + std::string(effect) + meant);
  }

  // A line that takes no time worth mentioning when the pause between commands is 0.
  bool IsBusy(const Program& program, size_t index) const {
    const Line& line = program.lines[index];
    if (!pauses_.At(program, index)) return false;
    const rack::CommandRow& command = rack::RowOf(line.parsed.CmdIdx);
    // The END of a block takes a second.
    if (command.goesOn == rack::GoesOn::Block) return MayCallNothing(ofTask_, line);
    switch (command.waitsFor) {
      case rack::WaitsFor::Pause:
      case rack::WaitsFor::PauseBetween:
        return line.parsed.SlotIdx.Value <= 0;
      case rack::WaitsFor::CylinderEnd:  // set-up and reset wait for their end
        return line.parsed.Param != "-1" && line.parsed.Param != "-2";
      case rack::WaitsFor::Input:
      case rack::WaitsFor::MotorEnd:
      case rack::WaitsFor::Count:
      case rack::WaitsFor::CylinderPosition:
      case rack::WaitsFor::EndPause:
        return false;
      case rack::WaitsFor::Nothing:
      case rack::WaitsFor::Label:
        return true;
    }
    return true;
  }

  bool IsBusyPath(const Program& program, size_t from, size_t to) const {
    std::set<size_t> seen;
    std::vector<size_t> open = {from};
    while (!open.empty()) {
      const size_t index = open.back();
      open.pop_back();
      if (index == program.lines.size() || !IsBusy(program, index) || !seen.insert(index).second) continue;
      if (index == to) return true;
      const std::set<size_t>& next = flows_.at(program.name).next[index];
      open.insert(open.end(), next.begin(), next.end());
    }
    return false;
  }

  void CheckLoops(const Program& program) {
    const Flow& flow = flows_.at(program.name);
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      if (GoesOnOf(line) != rack::GoesOn::Label || !flow.reached[i] ||
          !FindLabel(program, line.parsed.SlotIdx.Value))
        continue;
      if (!IsBusyPath(program, *flow.next[i].begin(), i)) continue;
      out_.Add(program, line, line.parsed.KeywordColumn, RuleId::BusyLoop,
               "this loop neither pauses nor waits while G_ST is 0: the task takes the processor from all "
               "others; add a "
               "DLY");
    }
  }

  const Task& ofTask_;
  Report& out_;
  std::map<std::string, Flow> flows_;
  PauseState pauses_;
};

}  // namespace

void CheckFlow(const Task& task, Report* report) {
  FlowRules(task, report).Check();
}

}  // namespace check
