// Outputs as the lines of programs write them.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "check/program.h"

namespace check {

using Output = std::pair<int, int>;  // slot index and channel

// The output that a line really writes; nothing when it writes none.
std::optional<Output> WrittenOutput(const ProgramTree& tree, const Line& line);
// Whether a line that writes an output switches it on.
bool SwitchesOn(const Line& line);
// "output 1.16 (ejector)".
std::string OutputText(const ProgramTree& tree, const Output& output);

}  // namespace check
