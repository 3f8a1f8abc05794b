// The program checker as a whole.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "check/report.h"

namespace check {

// Checks a machine's directory, or one program file (only its own findings are given then). rackFile: empty
// for "rack.toml" in the machine's directory, if there is one. Nothing when it could not run; error says why.
// `notes`, where wanted, is told what was not looked at in full.
std::optional<std::vector<Finding>> CheckPath(const std::filesystem::path& path, const std::string& rackFile,
                                              std::string* error, std::vector<std::string>* notes = nullptr);

// The flow of a machine's directory in the language of Graphviz. Nothing when it could not run.
std::optional<std::string> GraphOfPath(const std::filesystem::path& directory, const std::string& rackFile,
                                       std::string* error);

}  // namespace check
