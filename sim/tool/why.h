// Why a PLC task does not go on.
#pragma once

#include <string>

#include "tool/snapshot.h"

namespace rack::tool {

// One sentence: the command that the task stands at, how long, and what it lacks, or that it lacks nothing.
std::string WhyStanding(const Snapshot& snapshot, const TaskView& task);

}  // namespace rack::tool
