// Directories and files of the tasks, and the outputs that they share.
#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include "check/topics.h"
#include "drvlib.h"
#include "public.h"

namespace check {

namespace fs = std::filesystem;

namespace {

// How many tasks the controller starts.
int TaskCount(const Machine& machine) {
  if (machine.Rack && machine.Rack->Tasks > 0)
    return machine.Rack->Tasks > MAXPLCTASK ? 1 : machine.Rack->Tasks;
  int highest = 1;
  for (const Task& task : machine.Tasks) {
    if (task.Number <= MAXPLCTASK) highest = std::max(highest, task.Number);
  }
  return highest;
}

bool IsRun(const Task& task, int count) {
  return task.Number >= 1 && task.Number <= count;
}

// The name that differs from a missing one in letter case only.
std::string OtherCase(const fs::path& directory, const std::string& name) {
  for (const std::string& other : FileNames(directory)) {
    if (other != name && stricmp(other.c_str(), name.c_str()) == 0) return other;
  }
  return "";
}

void CheckDirectories(const Machine& machine, int count, Report* report) {
  for (int number = 1; number <= count; ++number) {
    const bool isThere = std::any_of(machine.Tasks.begin(), machine.Tasks.end(),
                                     [&](const Task& task) { return task.Number == number; });
    if (isThere) continue;
    const std::string name = "plc" + std::to_string(number);
    report->Add(machine.Directory.string(), 1, 1, RuleId::NoTaskDirectory,
                "task " + std::to_string(number) + " has no directory " + name +
                    ": the task ends at the start" + DidYouMean(OtherCase(machine.Directory, name)));
  }
}

void CheckFile(const Task& task, const char* name, RuleId rule, const char* effect, Report* report) {
  if (task.Find(name) != nullptr) return;
  const std::string other = OtherCase(task.Directory, name);
  const fs::path place = other.empty() ? task.Directory : task.Directory / other;
  report->Add(place.lexically_normal().string(), 1, 1, rule,
              "task " + std::to_string(task.Number) + " has no " + name + ": " + effect + DidYouMean(other));
}

using Output = std::pair<int, int>;  // slot index and channel

// The output that a line really writes; nothing when it writes none.
std::optional<Output> WrittenOutput(const Machine& machine, const Line& line) {
  if (line.Parsed.CmdIdx != SYN_OUT) return std::nullopt;
  const int slot = line.Parsed.SlotIdx.Value;
  const CardType* card = machine.CardOf(slot);
  if (card == nullptr)
    return machine.Rack ? std::nullopt : std::optional(Output(slot, line.Parsed.ChIdx.Value));
  const CardCommand* command = card->Find(SYN_OUT);
  if (command == nullptr) return std::nullopt;
  const int channel = ReachedChannel(*command, line.Parsed.ChIdx.Value);
  return channel < 0 ? std::nullopt : std::optional(Output(slot, channel));
}

struct Writer {
  int Task;
  std::string Place;
};

}  // namespace

void CheckTasks(const Machine& machine, Report* report) {
  const int count = TaskCount(machine);
  CheckDirectories(machine, count, report);
  for (const Task& task : machine.Tasks) {
    if (!IsRun(task, count)) {
      report->Add(task.Directory.lexically_normal().string(), 1, 1, RuleId::IdleDirectory,
                  "no task runs these programs: the controller starts tasks 1 to " + std::to_string(count));
      continue;
    }
    CheckFile(task, kResetProgram, RuleId::NoReset, "the task ends at the start", report);
    CheckFile(task, kFlowProgram, RuleId::NoFlow, "the Enter key leaves the task idle", report);
  }
}

void CheckSharedOutputs(const Machine& machine, Report* report) {
  const int count = TaskCount(machine);
  std::map<Output, Writer> first;
  for (const Task& task : machine.Tasks) {
    if (!IsRun(task, count)) continue;
    std::set<Output> reported;
    for (const auto& [name, program] : task.Programs) {
      if (!program.IsMain && !program.IsCalled) continue;
      for (const Line& line : program.Lines) {
        const std::optional<Output> output = WrittenOutput(machine, line);
        if (!output) continue;
        const Writer writer{task.Number,
                            (task.Directory.filename() / name).string() + ":" + std::to_string(line.Number)};
        const Writer& other = first.emplace(*output, writer).first->second;
        if (other.Task == task.Number || !reported.insert(*output).second) continue;
        report->Add(program, line, line.Parsed.ChIdx.Column, RuleId::SharedOutput,
                    "task " + std::to_string(other.Task) + " writes output " + std::to_string(output->first) +
                        "." + std::to_string(output->second) + " too (" + other.Place +
                        "): the task that wrote last wins");
      }
    }
  }
}

}  // namespace check
