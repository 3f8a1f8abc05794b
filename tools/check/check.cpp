#include "check/check.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <system_error>

#include "check/graph.h"
#include "check/program.h"
#include "check/topics.h"
#include "toml/words.h"

namespace check {

namespace fs = std::filesystem;

namespace {

constexpr const char* kRackName = "rack.toml";

void CheckPrograms(const ProgramTree& tree, Report* report) {
  for (const Task& task : tree.tasks) {
    for (const auto& [name, program] : task.programs) {
      CheckLines(program, report);
      CheckCardCommands(tree, program, report);
      CheckMoves(tree, program, report);
      CheckCounts(tree, program, report);
    }
    CheckFlow(task, report);
    CheckBlocks(task, report);
  }
  CheckMotion(tree, report);
  CheckSignals(tree, report);
}

// A rack file as far as it could be read.
struct RackReading {
  std::string path;  // empty: there is none
  std::optional<RackShape> shape;
  std::vector<RuleId> ignored;
  std::vector<Finding> findings;  // about the file itself
};

// "path:line:column: message"; nothing for what has no place in the file.
std::optional<Finding> FindingOf(const std::string& path, const std::string& error) {
  std::istringstream rest(error.substr(std::min(error.size(), path.size() + 1)));
  int line = 0;
  int column = 0;
  char colon = '\0';
  std::string message;
  if (!(rest >> line >> colon >> column) || !std::getline(rest >> colon >> std::ws, message))
    return std::nullopt;
  return Finding{path, line, column, RuleId::RackFile, message};
}

// False when the file cannot be opened. A wrong one is a finding, and the cards then count as unknown.
bool ReadRack(const std::string& path, RackReading* reading, std::string* error) {
  std::vector<std::string> errors;
  rack::RackNotes notes;
  reading->path = fs::path(path).lexically_normal().string();
  reading->shape = ReadRackShape(path, &errors, &notes);
  for (const std::string& line : errors) {
    std::optional<Finding> finding = FindingOf(path, line);
    if (!finding) {
      *error = line + "\n";
      return false;
    }
    finding->file = reading->path;
    reading->findings.push_back(*finding);
  }
  for (const rack::PlacedText& ignored : notes.ignored) {
    const Rule* rule = FindRule(ignored.text);
    if (rule != nullptr) {
      reading->ignored.push_back(rule->id);
      continue;
    }
    reading->findings.push_back({reading->path, static_cast<int>(ignored.line),
                                 static_cast<int>(ignored.column), RuleId::RackFile,
                                 "there is no rule \"" + ignored.text + "\" to ignore" +
                                     DidYouMean(rack::Nearest(ignored.text, RuleNames()))});
  }
  return true;
}

bool FindRack(const fs::path& directory, const std::string& rackFile, RackReading* reading,
              std::string* error) {
  const fs::path path = rackFile.empty() ? directory / kRackName : fs::path(rackFile);
  std::error_code ignored;
  if (rackFile.empty() && !fs::exists(path, ignored)) return true;
  return ReadRack(path.string(), reading, error);
}

bool IsMachine(const fs::path& directory) {
  const std::vector<std::string> names = FileNames(directory);
  return std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return TaskNumber(name) >= 0 || name == kRackName || name == "Velmo.conf";
  });
}

std::string NoMachine(const fs::path& path) {
  return path.string() + ": no machine's directory: there is no plc1, rack.toml or Velmo.conf in it\n";
}

// What a path stands for, and what has been found there.
struct Subject {
  RackReading rack;
  std::vector<Finding> findings;
  std::vector<std::string> notes;  // what was not looked at in full
};

bool CheckMachine(const fs::path& directory, const std::string& rackFile, Subject* subject,
                  std::string* error) {
  if (!FindRack(directory, rackFile, &subject->rack, error)) return false;
  const ProgramTree tree = LoadTree(directory, subject->rack.shape);
  Report report;
  CheckPrograms(tree, &report);
  CheckTasks(tree, &report);
  CheckSharedOutputs(tree, &report);
  CheckOutputsLeftOn(tree, &report);
  CheckAxes(tree, &report);
  CheckTogether(tree, &report, &subject->notes);
  CheckConf(tree, &report);
  subject->findings = report.Sorted();
  return true;
}

template <class Belongs>
void KeepOnly(std::vector<Finding>* findings, Belongs belongs) {
  findings->erase(std::remove_if(findings->begin(), findings->end(),
                                 [&](const Finding& finding) { return !belongs(finding.file); }),
                  findings->end());
}

std::string NameOfDirectory(const fs::path& directory) {
  const fs::path whole = fs::absolute(directory).lexically_normal();
  return (whole.has_filename() ? whole : whole.parent_path()).filename().string();
}

// The whole machine is looked at, for what this task has in common with others.
bool CheckTask(const fs::path& directory, const std::string& rackFile, Subject* subject, std::string* error) {
  const fs::path machine = (directory / "..").lexically_normal();
  if (!CheckMachine(machine, rackFile, subject, error)) return false;
  const std::string shown = (machine / NameOfDirectory(directory)).lexically_normal().string();
  KeepOnly(&subject->findings, [&](const std::string& file) {
    return file == shown || file.compare(0, shown.size() + 1, shown + "/") == 0;
  });
  return true;
}

bool CheckFile(const fs::path& file, const std::string& rackFile, Subject* subject, std::string* error) {
  const fs::path directory = file.has_parent_path() ? file.parent_path() : fs::path(".");
  const bool isTask = TaskNumber(NameOfDirectory(directory)) >= 0;
  if (!FindRack(isTask ? directory / ".." : directory, rackFile, &subject->rack, error)) return false;
  const ProgramTree tree = LoadTaskOnly(directory, file.filename().string(), subject->rack.shape);
  Report report;
  CheckPrograms(tree, &report);
  subject->findings = report.Sorted();
  const std::string shown = (directory / file.filename()).lexically_normal().string();
  KeepOnly(&subject->findings, [&](const std::string& name) { return name == shown; });
  return true;
}

bool CheckSubject(const fs::path& path, const std::string& rackFile, Subject* subject, std::string* error) {
  std::error_code ignored;
  if (path.filename() == "rack.toml" || path.filename() == "Velmo.conf") {
    *error = path.string() + ": no program file; it is checked with the machine's directory\n";
    return false;
  }
  if (fs::is_regular_file(path, ignored)) return CheckFile(path, rackFile, subject, error);
  if (!fs::is_directory(path, ignored)) {
    *error = path.string() + ": no such file or directory\n";
    return false;
  }
  if (IsMachine(path)) return CheckMachine(path, rackFile, subject, error);
  if (TaskNumber(NameOfDirectory(path)) >= 0) return CheckTask(path, rackFile, subject, error);
  *error = NoMachine(path);
  return false;
}

// The same for each name that a file can be called by.
std::string KeyOf(const Finding& finding) {
  std::error_code ignored;
  const fs::path file = fs::weakly_canonical(finding.file, ignored);
  return file.string() + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) + ":" +
         RuleOf(finding.rule).name + ":" + finding.message;
}

bool IsOneOf(RuleId rule, const std::vector<RuleId>& rules) {
  return std::find(rules.begin(), rules.end(), rule) != rules.end();
}

}  // namespace

std::optional<Checked> CheckPaths(const std::vector<std::string>& paths, const std::string& rackFile,
                                  std::string* error) {
  Checked checked;
  std::set<std::string> seen;
  const auto add = [&](const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
      if (paths.size() == 1 || seen.insert(KeyOf(finding)).second) checked.findings.push_back(finding);
    }
  };
  for (const std::string& path : paths) {
    Subject subject;
    if (!CheckSubject(path, rackFile, &subject, error)) return std::nullopt;
    add(subject.rack.findings);
    add(Selected(subject.findings, {false, false, subject.rack.ignored}));
    checked.notes.insert(checked.notes.end(), subject.notes.begin(), subject.notes.end());
    const std::string& rack = subject.rack.path;
    const bool isNew = std::find(checked.racks.begin(), checked.racks.end(), rack) == checked.racks.end();
    if (!rack.empty() && isNew) checked.racks.push_back(rack);
  }
  return checked;
}

std::optional<std::vector<Finding>> CheckPath(const fs::path& path, const std::string& rackFile,
                                              std::string* error, std::vector<std::string>* notes) {
  const std::optional<Checked> checked = CheckPaths({path.string()}, rackFile, error);
  if (!checked) return std::nullopt;
  if (notes != nullptr) *notes = checked->notes;
  return checked->findings;
}

std::vector<Finding> Selected(const std::vector<Finding>& findings, const Selection& selection) {
  const bool warnings = !selection.errorsOnly || selection.warningsAreErrors;
  std::vector<Finding> selected;
  for (const Finding& finding : findings) {
    if (IsOneOf(finding.rule, selection.ignored)) continue;
    if (warnings || RuleOf(finding.rule).level == Severity::Error) selected.push_back(finding);
  }
  return selected;
}

std::optional<std::string> GraphOfPath(const fs::path& directory, const std::string& rackFile,
                                       std::string* error) {
  if (!IsMachine(directory)) {
    *error = NoMachine(directory);
    return std::nullopt;
  }
  RackReading rack;
  if (!FindRack(directory, rackFile, &rack, error)) return std::nullopt;
  for (const Finding& finding : rack.findings) {
    *error += finding.file + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) +
              ": " + finding.message + "\n";
  }
  if (!error->empty()) return std::nullopt;
  return GraphOf(LoadTree(directory, rack.shape));
}

}  // namespace check
