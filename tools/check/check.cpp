#include "check/check.h"

#include <algorithm>
#include <system_error>

#include "check/program.h"
#include "check/topics.h"

namespace check {

namespace fs = std::filesystem;

namespace {

constexpr const char* kRackName = "rack.toml";

void CheckPrograms(const ProgramTree& tree, Report* report) {
  for (const Task& task : tree.tasks) {
    for (const auto& [name, program] : task.programs) {
      CheckLines(program, report);
      CheckCardCommands(tree, program, report);
      CheckCounts(tree, program, report);
    }
    CheckFlow(task, report);
    CheckBlocks(task, report);
    CheckMotion(tree, task, report);
  }
}

// False when there is a rack file that cannot be read.
bool FindRack(const fs::path& directory, const std::string& rackFile, std::optional<RackShape>* rack,
              std::string* error) {
  const fs::path path = rackFile.empty() ? directory / kRackName : fs::path(rackFile);
  std::error_code ignored;
  if (rackFile.empty() && !fs::exists(path, ignored)) return true;
  *rack = ReadRackShape(path.string(), error);
  return rack->has_value();
}

bool IsMachine(const fs::path& directory) {
  const std::vector<std::string> names = FileNames(directory);
  return std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return TaskNumber(name) >= 0 || name == kRackName || name == "Velmo.conf";
  });
}

std::optional<std::vector<Finding>> CheckDirectory(const fs::path& directory, const std::string& rackFile,
                                                   std::string* error) {
  if (!IsMachine(directory)) {
    *error =
        directory.string() + ": no machine's directory: there is no plc1, rack.toml or Velmo.conf in it\n";
    return std::nullopt;
  }
  std::optional<RackShape> rack;
  if (!FindRack(directory, rackFile, &rack, error)) return std::nullopt;
  const ProgramTree tree = LoadTree(directory, rack);
  Report report;
  CheckPrograms(tree, &report);
  CheckTasks(tree, &report);
  CheckSharedOutputs(tree, &report);
  CheckConf(tree, &report);
  return report.Sorted();
}

std::optional<std::vector<Finding>> CheckFile(const fs::path& file, const std::string& rackFile,
                                              std::string* error) {
  const fs::path directory = file.has_parent_path() ? file.parent_path() : fs::path(".");
  const bool isTask = TaskNumber(fs::absolute(directory).lexically_normal().filename().string()) >= 0;
  std::optional<RackShape> rack;
  if (!FindRack(isTask ? directory / ".." : directory, rackFile, &rack, error)) return std::nullopt;
  const ProgramTree tree = LoadTaskOnly(directory, file.filename().string(), rack);
  Report report;
  CheckPrograms(tree, &report);
  std::vector<Finding> findings = report.Sorted();
  const std::string shown = (directory / file.filename()).lexically_normal().string();
  findings.erase(std::remove_if(findings.begin(), findings.end(),
                                [&](const Finding& finding) { return finding.file != shown; }),
                 findings.end());
  return findings;
}

}  // namespace

std::optional<std::vector<Finding>> CheckPath(const fs::path& path, const std::string& rackFile,
                                              std::string* error) {
  std::error_code ignored;
  if (fs::is_directory(path, ignored)) return CheckDirectory(path, rackFile, error);
  if (fs::is_regular_file(path, ignored)) return CheckFile(path, rackFile, error);
  *error = path.string() + ": no such file or directory\n";
  return std::nullopt;
}

}  // namespace check
