// A machine's flow as a graph: blocks, jumps, waits, and which task gives what another one waits for.
#pragma once

#include <string>

#include "check/program.h"

namespace check {

// In the language of Graphviz.
std::string GraphOf(const ProgramTree& tree);

}  // namespace check
