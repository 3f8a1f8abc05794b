// Outputs that tasks share, and outputs that stay on.
#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "check/flow.h"
#include "check/outputs.h"
#include "check/rounds.h"
#include "check/topics.h"
#include "commands/command_rows.h"

namespace check {

namespace {

struct Writer {
  int task;
  std::string place;
};

bool WaitsForMachine(const Line& line) {
  return rack::kCommandTraits[line.parsed.CmdIdx].repeats;
}

bool TakesTime(const Line& line) {
  return WaitsForMachine(line) || rack::RowOf(line.parsed.CmdIdx).waitsFor == rack::WaitsFor::Pause;
}

// The lines that a main program leads to, its own first.
std::vector<RoundStep> LinesFrom(const Task& task, const char* name) {
  const Program* main = task.Find(name);
  if (main == nullptr) return {};
  std::vector<RoundStep> lines;
  std::vector<const Program*> programs = {main};
  std::set<const Program*> seen = {main};
  for (size_t i = 0; i < programs.size(); ++i) {
    const Program& program = *programs[i];
    const Flow flow = FlowOf(task, program);
    for (size_t at = 0; at < program.lines.size(); ++at) {
      if (!flow.reached[at]) continue;
      lines.push_back({&program.lines[at], &program, false});
      for (const Program* block : BlocksOf(task, program.lines[at])) {
        if (seen.insert(block).second) programs.push_back(block);
      }
    }
  }
  return lines;
}

class OutputRules {
 public:
  OutputRules(const ProgramTree& tree, Report* report) : tree_(tree), out_(*report) {
    for (const Task& task : tree.tasks) {
      if (!IsRun(tree, task)) continue;
      for (const auto& [name, program] : task.programs) {
        for (const Line& line : program.lines) {
          if (const auto output = WrittenOutput(tree, line)) writers_[*output].insert(task.number);
        }
      }
      for (const RoundStep& step : LinesFrom(task, kResetProgram)) KeepReset(*step.line);
    }
  }

  void Check() {
    if (!resetActs_) return;
    for (const Task& task : tree_.tasks) {
      if (!IsRun(tree_, task)) continue;
      std::set<Output> reported;
      for (const Round& round : RoundsOf(task)) CheckRound(round, &reported);
      CheckReset(task);
    }
  }

 private:
  void KeepReset(const Line& line) {
    const rack::Again again = rack::RowOf(line.parsed.CmdIdx).again;
    resetActs_ |= again == rack::Again::Writes || again == rack::Again::Moves;
    if (const auto output = WrittenOutput(tree_, line)) reset_.insert(*output);
  }

  void CheckReset(const Task& task) {
    std::set<Output> reported;
    for (const RoundStep& step : LinesFrom(task, kFlowProgram)) {
      const std::optional<Output> output = WrittenOutput(tree_, *step.line);
      if (!output || !SwitchesOn(*step.line) || reset_.count(*output) > 0) continue;
      if (!reported.insert(*output).second) continue;
      out_.Add(
          *step.program, *step.line, step.line->parsed.ChIdx.Column, RuleId::OutputNotReset,
          OutputText(tree_, *output) +
              " is switched on in production, and no reset program writes it: the minus key leaves it on; "
              "switch it off in " +
              kResetProgram);
    }
  }

  void CheckRound(const Round& round, std::set<Output>* reported) {
    std::set<Output> off;
    for (const RoundStep& step : round.steps) {
      const std::optional<Output> output = WrittenOutput(tree_, *step.line);
      if (output && !SwitchesOn(*step.line)) off.insert(*output);
    }
    const std::vector<bool> isWork = WorkIn(round);
    for (size_t i = 0; i < round.steps.size(); ++i) {
      const RoundStep& step = round.steps[i];
      const std::optional<Output> output = WrittenOutput(tree_, *step.line);
      if (!output || !SwitchesOn(*step.line) || !isWork[i] || off.count(*output) > 0) continue;
      if (writers_[*output].size() > 1) continue;  // another task may take it back
      if (!reported->insert(*output).second) continue;
      out_.Add(
          *step.program, *step.line, step.line->parsed.ChIdx.Column, RuleId::OutputLeftOn,
          OutputText(tree_, *output) +
              " is switched on in each round of production and never off in it: from the second round on "
              "this line changes nothing; switch it off where its work is done");
    }
  }

  // By step: whether what is switched on there belongs to the work of the round. What is on as long as the program
  // runs, a lamp, stands at its beginning, or ahead of it where there is such a place; a block that IF calls may
  // switch on a message that stays until the reset.
  std::vector<bool> WorkIn(const Round& round) const {
    const bool hasPlaceAhead =
        round.isByLabel && std::any_of(round.before.begin(), round.before.end(),
                                       [&](const Line* line) { return bool(WrittenOutput(tree_, *line)); });
    const std::vector<bool> isHeldInBlock = TimeBehind(round, true);
    const std::vector<bool> isHeldInRound = TimeBehind(round, false);
    const std::vector<bool> isBeforePause = BeforePause(round);
    std::vector<bool> isWork(round.steps.size(), false);
    bool hasWaited = false;
    for (size_t i = 0; i < round.steps.size(); ++i) {
      const RoundStep& step = round.steps[i];
      hasWaited |= !step.isConditional && WaitsForMachine(*step.line);
      const bool isPulse = round.isByLabel && isBeforePause[i];
      isWork[i] =
          step.isConditional ? isHeldInBlock[i] : hasWaited || isPulse || (hasPlaceAhead && isHeldInRound[i]);
    }
    return isWork;
  }

  // By step: whether something takes time behind it, in the same program or in the rest of the round.
  static std::vector<bool> TimeBehind(const Round& round, bool inProgram) {
    std::vector<bool> behind(round.steps.size(), false);
    for (size_t i = round.steps.size() - 1; i > 0; --i) {
      const bool counts = !inProgram || round.steps[i - 1].program == round.steps[i].program;
      behind[i - 1] = counts && (behind[i] || TakesTime(*round.steps[i].line));
    }
    return behind;
  }

  // By step: whether the next command is a pause.
  static std::vector<bool> BeforePause(const Round& round) {
    std::vector<bool> isBefore(round.steps.size(), false);
    for (size_t i = round.steps.size() - 1; i > 0; --i) {
      const Line& behind = *round.steps[i].line;
      isBefore[i - 1] = behind.IsCommand()
                            ? rack::RowOf(behind.parsed.CmdIdx).waitsFor == rack::WaitsFor::Pause
                            : isBefore[i];
    }
    return isBefore;
  }

  const ProgramTree& tree_;
  Report& out_;
  std::map<Output, std::set<int>> writers_;  // tasks
  std::set<Output> reset_;                   // written by the reset programs
  bool resetActs_ = false;                   // a reset program does something to the machine
};

}  // namespace

void CheckSharedOutputs(const ProgramTree& tree, Report* report) {
  std::map<Output, Writer> first;
  for (const Task& task : tree.tasks) {
    if (!IsRun(tree, task)) continue;
    std::set<Output> reported;
    for (const auto& [name, program] : task.programs) {
      if (!program.isMain && !program.isCalled) continue;
      for (const Line& line : program.lines) {
        const std::optional<Output> output = WrittenOutput(tree, line);
        if (!output) continue;
        const Writer writer{task.number,
                            (task.directory.filename() / name).string() + ":" + std::to_string(line.number)};
        const Writer& other = first.emplace(*output, writer).first->second;
        if (other.task == task.number || !reported.insert(*output).second) continue;
        report->Add(program, line, line.parsed.ChIdx.Column, RuleId::SharedOutput,
                    "task " + std::to_string(other.task) + " writes output " + std::to_string(output->first) +
                        "." + std::to_string(output->second) + " too (" + other.place +
                        "): the task that wrote last wins");
      }
    }
  }
}

void CheckOutputsLeftOn(const ProgramTree& tree, Report* report) {
  OutputRules(tree, report).Check();
}

}  // namespace check
