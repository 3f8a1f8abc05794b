// Labels, ends of files, calls of blocks and loops.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "check/characters.h"
#include "check/flow.h"
#include "check/rounds.h"
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

using Flows = std::map<std::string, Flow>;  // by program

// Follows G_ST through the programs of a task. The pause outlasts calls and changes of the program.
class PauseFlow {
 public:
  PauseFlow(const Task& task, const Flows& flows) : ofTask_(task), flows_(flows) {
    for (const auto& [name, program] : task.programs) {
      state_.mayBeZero[name].assign(program.lines.size() + 1, false);
      for (size_t i = 0; i < program.lines.size(); ++i) {
        for (const Program* block : BlocksOf(task, program.lines[i]))
          callers_[block].push_back({&program, i});
      }
    }
  }

  PauseState Solve() {
    for (const auto& [name, program] : ofTask_.programs) {
      for (size_t i = 0; i < program.lines.size(); ++i) {
        if (SetsPause(program.lines[i]) && program.lines[i].parsed.SlotIdx.Value == 0) Leave({&program, i});
      }
    }
    while (!open_.empty()) {
      const Place place = open_.back();
      open_.pop_back();
      PassOn(place);
    }
    return state_;
  }

 private:
  struct Place {
    const Program* program;
    size_t index;  // of the line
  };

  // A negative pause leaves it as it is.
  static bool SetsPause(const Line& line) {
    return rack::RowOf(line.parsed.CmdIdx).waitsFor == rack::WaitsFor::PauseBetween &&
           line.parsed.SlotIdx.Value >= 0;
  }

  // The pause may be 0 in front of this line.
  void PassOn(const Place& place) {
    if (place.index == place.program->lines.size()) return;
    const Line& line = place.program->lines[place.index];
    if (SetsPause(line)) return;
    const std::vector<const Program*> blocks = BlocksOf(ofTask_, line);
    for (const Program* block : blocks) Enter(*block, 0);
    if (GoesOnOf(line) == rack::GoesOn::Caller) Return(*place.program);
    // Behind a call the pause is what the block leaves.
    if (blocks.empty() || MayCallNothing(ofTask_, line)) Leave(place);
  }

  void Leave(const Place& place) {
    const Flow& flow = flows_.at(place.program->name);
    if (!flow.reached[place.index]) return;
    for (const size_t next : flow.next[place.index]) Enter(*place.program, next);
  }

  // A block that another has replaced is not come back to.
  void Return(const Program& block) {
    if (!returned_.insert(&block).second) return;
    for (const Place& caller : callers_[&block]) {
      if (caller.program->isMain)
        Leave(caller);
      else
        Return(*caller.program);
    }
  }

  // The Enter key may come at any line of the reset program.
  void Enter(const Program& program, size_t index) {
    std::vector<bool>& zero = state_.mayBeZero[program.name];
    if (zero[index]) return;
    zero[index] = true;
    open_.push_back({&program, index});
    const Program* flow = program.name == kResetProgram ? ofTask_.Find(kFlowProgram) : nullptr;
    if (flow != nullptr) Enter(*flow, 0);
  }

  const Task& ofTask_;
  const Flows& flows_;
  std::map<const Program*, std::vector<Place>> callers_;
  std::vector<Place> open_;
  std::set<const Program*> returned_;
  PauseState state_;
};

// "it has 1, 2, 3"; of many labels those whose numbers are next to the one that is not there.
std::string LabelsOf(const Program& program, int missing) {
  constexpr size_t kShown = 8;
  if (program.labels.empty()) return "the file has no label";
  auto first = program.labels.begin();
  auto last = program.labels.end();
  const bool isWhole = program.labels.size() <= kShown;
  if (!isWhole) {
    first = last = program.labels.lower_bound(missing);
    for (size_t i = 0; i < kShown / 2; ++i) {
      if (first != program.labels.begin()) --first;
      if (last != program.labels.end()) ++last;
    }
  }
  std::string list;
  for (auto label = first; label != last; ++label) {
    list += (list.empty() ? "" : ", ") + std::to_string(label->first);
  }
  return isWhole ? "it has " + list
                 : "of its " + std::to_string(program.labels.size()) + " the nearest are " + list;
}

// The characters of a name that are taken for others.
std::string LookAlikesOf(const std::string& name) {
  std::string list;
  for (size_t at = 0; at < name.size();) {
    const Character character = CharacterAt(name, at);
    const std::optional<LookAlike> looks = LookAlikeOf(character.code);
    if (looks) list += "; it has " + looks->name + ", which is not " + looks->meant;
    at += character.size;
  }
  return list;
}

// The last command of a program, END or EXIT, right behind one that leads elsewhere: it closes the program for
// who reads it. `index` is that of the command.
bool ClosesProgram(const Program& program, size_t index) {
  const rack::GoesOn goesOn = GoesOnOf(program.lines[index]);
  if (goesOn != rack::GoesOn::Caller && goesOn != rack::GoesOn::Nowhere) return false;
  const auto isCommand = [](const Line& line) { return line.IsCommand(); };
  const auto at = program.lines.begin() + static_cast<std::ptrdiff_t>(index);
  if (std::any_of(at + 1, program.lines.end(), isCommand)) return false;
  const auto before = std::find_if(std::make_reverse_iterator(at), program.lines.rend(), isCommand);
  if (before == program.lines.rend()) return false;
  const rack::GoesOn leads = GoesOnOf(*before);
  return leads == rack::GoesOn::Label || leads == rack::GoesOn::Block;
}

class FlowRules {
 public:
  FlowRules(const Task& task, Report* report)
      : ofTask_(task), out_(*report), mainsAbove_(MainsAbove(task)), endless_(EndlessBlocks(task)) {
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
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      if (!line.label) continue;
      const size_t first = *FindLabel(program, *line.label);
      if (first == i) continue;
      out_.Add(program, line, 0, RuleId::DuplicateLabel,
               "label " + std::to_string(*line.label) + " stands in line " +
                   std::to_string(program.lines[first].number) +
                   " too: GO goes there and never here; give it another number");
    }
    for (const Line& line : program.lines) {
      const int wanted = line.parsed.SlotIdx.Value;
      if (GoesOnOf(line) != rack::GoesOn::Label || FindLabel(program, wanted)) continue;
      out_.Add(program, line, line.parsed.SlotIdx.Column, RuleId::MissingLabel,
               "there is no label " + std::to_string(wanted) +
                   " in this file: the controller repeats the line for ever; " + LabelsOf(program, wanted));
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
    if (path.size() >= kMaxName) {
      return out_.Add(program, line, block.column, RuleId::BlockName,
                      "a block's name whose path has 200 characters or more: " + effect + "; shorten it");
    }
    if (ofTask_.Find(block.name) != nullptr) return;
    out_.Add(program, line, block.column, RuleId::MissingBlock,
             "there is no file \"" + block.name + "\": " + effect + LookAlikesOf(block.name) +
                 DidYouMean(NameMeant(block.name)));
  }

  // The file probably meant by a block's name that is none.
  const std::string& NameMeant(const std::string& name) {
    constexpr size_t kCompared = 100;  // names, each of them with all files
    const auto [entry, isNew] = meant_.try_emplace(name);
    if (!isNew || meant_.size() > kCompared) return entry->second;
    if (files_.empty()) files_ = ProgramNames();
    return entry->second = NearMiss(name, files_);
  }

  std::vector<std::string> ProgramNames() const {
    std::vector<std::string> names = FileNames(ofTask_.directory);
    const auto isNoProgram = [&](const std::string& name) {
      std::error_code ignored;
      return !std::filesystem::is_regular_file(ofTask_.directory / name, ignored);
    };
    names.erase(std::remove_if(names.begin(), names.end(), isNoProgram), names.end());
    return names;
  }

  void CheckNesting(const Program& program, const Line& line) {
    const auto mains = mainsAbove_.find(&program);
    for (const Program* block : BlocksOf(ofTask_, line)) {
      out_.Add(program, line, line.parsed.KeywordColumn, RuleId::BlockInBlock,
               "a call inside a block: " + block->name + " replaces " + program.name +
                   ", and its END returns to " +
                   (mains == mainsAbove_.end() ? "the main program" : ListOf(mains->second)));
    }
  }

  // One finding for each run of lines, and one for all lines behind a call that never comes back.
  void CheckReach(const Program& program) {
    const Flow& flow = flows_.at(program.name);
    const auto [reached, last] = ReachedOf(program);
    bool isRunReported = false;
    bool isCallReported = false;
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      const bool isBehindCall = flow.reached[i];
      if (isBehindCall) isRunReported = false;
      if (reached[i] || !line.IsCommand() || ClosesProgram(program, i)) continue;
      bool& isReported = isBehindCall ? isCallReported : isRunReported;
      if (isReported) continue;
      isReported = true;
      out_.Add(program, line, line.parsed.KeywordColumn, RuleId::Unreachable,
               "the controller never comes to this line: " +
                   (isBehindCall ? BlocksOf(ofTask_, *last).front()->name + ", called in line " +
                                       std::to_string(last->number) + ", never comes back"
                                 : "the program ends or goes elsewhere before it"));
    }
  }

  // The lines that a program comes to, and the last one, null when it does not end with a call that never comes back.
  std::pair<std::vector<bool>, const Line*> ReachedOf(const Program& program) const {
    const Flow& flow = flows_.at(program.name);
    if (!program.isMain) return {flow.reached, nullptr};
    std::vector<bool> reached(flow.reached.size(), false);
    for (NextLine at(0); !at.empty() && !reached[*at]; at = flow.next[*at]) {
      reached[*at] = true;
      if (*at == program.lines.size()) break;
      const Line& line = program.lines[*at];
      if (NeverComesBack(line)) return {reached, &line};
    }
    return {reached, nullptr};
  }

  bool NeverComesBack(const Line& line) const {
    const std::vector<const Program*> blocks = BlocksOf(ofTask_, line);
    return !blocks.empty() && !MayCallNothing(ofTask_, line) &&
           std::all_of(blocks.begin(), blocks.end(),
                       [&](const Program* block) { return endless_.count(block) > 0; });
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

  // One finding for the waits of each part of a program in which the pause may be 0.
  void CheckWaits(const Program& program) {
    const std::vector<bool>& reached = flows_.at(program.name).reached;
    const Line* first = nullptr;
    int further = 0;
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      if (!reached[i]) continue;
      if (!pauses_.At(program, i)) {
        ReportWaits(program, first, further);
        first = nullptr;
        further = 0;
        continue;
      }
      if (!rack::kCommandTraits[line.parsed.CmdIdx].repeats) continue;
      if (first == nullptr)
        first = &line;
      else
        ++further;
    }
    ReportWaits(program, first, further);
  }

  // first: null when there is none.
  void ReportWaits(const Program& program, const Line* first, int further) {
    if (first == nullptr) return;
    const std::string others = further == 0 ? "" : ", as in " + std::to_string(further) + " more behind it";
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

  // By line: whether it lies on a loop in which all lines are busy.
  std::vector<bool> BusyLoops(const Program& program) const {
    constexpr size_t kNever = SIZE_MAX;
    const size_t end = program.lines.size();
    const Flow& flow = flows_.at(program.name);
    std::vector<size_t> visited(end, kNever);  // on the way that began in that line
    std::vector<bool> isInLoop(end, false);
    for (size_t start = 0; start < end; ++start) {
      NextLine at(start);
      while (!at.empty() && *at < end && visited[*at] == kNever && IsBusy(program, *at)) {
        visited[*at] = start;
        at = flow.next[*at];
      }
      if (at.empty() || *at == end || visited[*at] != start) continue;
      for (size_t i = *at; !isInLoop[i]; i = *flow.next[i]) isInLoop[i] = true;
    }
    return isInLoop;
  }

  void CheckLoops(const Program& program) {
    const Flow& flow = flows_.at(program.name);
    const std::vector<bool> isInLoop = BusyLoops(program);
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      if (GoesOnOf(line) != rack::GoesOn::Label || !flow.reached[i] || !isInLoop[i] ||
          !FindLabel(program, line.parsed.SlotIdx.Value))
        continue;
      out_.Add(program, line, line.parsed.KeywordColumn, RuleId::BusyLoop,
               "this loop neither pauses nor waits while G_ST is 0: the task takes the processor from all "
               "others; add a "
               "DLY");
    }
  }

  const Task& ofTask_;
  Report& out_;
  Flows flows_;
  PauseState pauses_;
  const std::map<const Program*, std::set<std::string>> mainsAbove_;
  std::set<const Program*> endless_;          // blocks that never come back
  std::vector<std::string> files_;            // of the task's directory, once they are asked for
  std::map<std::string, std::string> meant_;  // by a name that is no file's
};

}  // namespace

void CheckFlow(const Task& task, Report* report) {
  FlowRules(task, report).Check();
}

}  // namespace check
