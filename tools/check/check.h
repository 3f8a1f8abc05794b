// The program checker as a whole.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "check/report.h"

namespace check {

// Checks a machine's directory, a task's directory or one program file (only its own findings are given then).
// rackFile: empty for "rack.toml" in the machine's directory, if there is one; what it ignores is left out. Nothing
// when it could not run; error says why. `notes`, where wanted, is told what was not looked at in full.
std::optional<std::vector<Finding>> CheckPath(const std::filesystem::path& path, const std::string& rackFile,
                                              std::string* error, std::vector<std::string>* notes = nullptr);

// The flow of a machine's directory in the language of Graphviz. Nothing when it could not run.
std::optional<std::string> GraphOfPath(const std::filesystem::path& directory, const std::string& rackFile,
                                       std::string* error);

struct Checked {
  std::vector<Finding> findings;
  std::vector<std::string> racks;  // the rack files that were read
  std::vector<std::string> notes;  // what was not looked at in full
};

// Several of them, each finding once.
std::optional<Checked> CheckPaths(const std::vector<std::string>& paths, const std::string& rackFile,
                                  std::string* error);

// What of the findings is shown.
struct Selection {
  bool errorsOnly = false;
  bool warningsAreErrors = false;
  std::vector<RuleId> ignored;
};
std::vector<Finding> Selected(const std::vector<Finding>& findings, const Selection& selection);

}  // namespace check
