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
std::optional<std::vector<Finding>> CheckPath(const std::filesystem::path& path, const std::string& rackFile,
                                              std::string* error);

}  // namespace check
