// Why a PLC task does not go on.
#pragma once

#include <string>

#include "machine/snapshot.h"

namespace rack {

// One sentence: the command that the task stands at, how long, and what it lacks, or that it lacks nothing.
std::string WhyStanding(const Snapshot& snapshot, const TaskView& task);

}  // namespace rack
