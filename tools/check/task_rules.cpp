// Directories and files of the tasks.
#include <algorithm>
#include <string>
#include <system_error>
#include <vector>

#include "check/topics.h"
#include "drvlib.h"
#include "public.h"

namespace check {

namespace fs = std::filesystem;

namespace {

// How many tasks the controller starts.
int TaskCount(const ProgramTree& tree) {
  if (tree.rack && !tree.rack->hasDevice) return 0;
  if (tree.rack) return tree.rack->tasks > kMaxPlcTask ? 1 : tree.rack->tasks;
  int highest = 1;
  for (const Task& task : tree.tasks) {
    if (task.number <= kMaxPlcTask) highest = std::max(highest, task.number);
  }
  return highest;
}

bool IsRun(const Task& task, int count) {
  return task.number >= 1 && task.number <= count;
}

std::string StartedTasks(const ProgramTree& tree, int count) {
  if (count > 0) return "tasks 1 to " + std::to_string(count);
  return tree.rack->hasDevice ? "none, for task_count is 0"
                              : "none without the bus device (device = \"none\")";
}

// The name that differs from a missing one in letter case only.
std::string OtherCase(const fs::path& directory, const std::string& name) {
  for (const std::string& other : FileNames(directory)) {
    if (other != name && stricmp(other.c_str(), name.c_str()) == 0) return other;
  }
  return "";
}

std::string FileIn(const fs::path& directory, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    std::error_code error;
    if (fs::is_regular_file(directory / name, error)) return (directory / name).lexically_normal().string();
  }
  return "";
}

// A file to look into for what is wrong with a directory: one of its programs, otherwise one of its machine.
std::string FileAbout(const fs::path& directory, const fs::path& machine) {
  for (const std::vector<std::string>& names :
       {std::vector<std::string>{kResetProgram, kFlowProgram}, FileNames(directory)}) {
    std::string file = FileIn(directory, names);
    if (!file.empty()) return file;
  }
  std::string file = FileIn(machine, {"rack.toml", "Velmo.conf"});
  if (!file.empty()) return file;
  for (const std::string& name : FileNames(machine)) {
    std::string program = FileIn(machine / name, {kResetProgram, kFlowProgram});
    if (!program.empty()) return program;
  }
  return "";
}

void CheckDirectories(const ProgramTree& tree, int count, Report* report) {
  for (int number = 1; number <= count; ++number) {
    const bool isThere = std::any_of(tree.tasks.begin(), tree.tasks.end(),
                                     [&](const Task& task) { return task.number == number; });
    if (isThere) continue;
    const std::string name = "plc" + std::to_string(number);
    report->AddAboutDirectory(
        tree.directory.string(), FileAbout(tree.directory, tree.directory), RuleId::NoTaskDirectory,
        "task " + std::to_string(number) + " has no directory " + name + ": the task ends at the start" +
            DidYouMean(OtherCase(tree.directory, name)));
  }
}

void CheckFile(const Task& task, const char* name, RuleId rule, const char* effect, Report* report) {
  if (task.Find(name) != nullptr) return;
  const std::string other = OtherCase(task.directory, name);
  const std::string message =
      "task " + std::to_string(task.number) + " has no " + name + ": " + effect + DidYouMean(other);
  if (!other.empty())
    return report->Add((task.directory / other).lexically_normal().string(), 1, 1, rule, message);
  report->AddAboutDirectory(task.directory.lexically_normal().string(),
                            FileAbout(task.directory, task.directory.parent_path()), rule, message);
}

}  // namespace

bool IsRun(const ProgramTree& tree, const Task& task) {
  return IsRun(task, TaskCount(tree));
}

void CheckTasks(const ProgramTree& tree, Report* report) {
  const int count = TaskCount(tree);
  CheckDirectories(tree, count, report);
  for (const Task& task : tree.tasks) {
    if (!IsRun(task, count)) {
      report->AddAboutDirectory(
          task.directory.lexically_normal().string(), FileAbout(task.directory, tree.directory),
          RuleId::IdleDirectory,
          "no task runs these programs: the controller starts " + StartedTasks(tree, count));
      continue;
    }
    CheckFile(task, kResetProgram, RuleId::NoReset, "the task ends at the start", report);
    CheckFile(task, kFlowProgram, RuleId::NoFlow, "the Enter key leaves the task idle", report);
  }
}

}  // namespace check
