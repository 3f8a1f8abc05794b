// Why a PLC task does not go on.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "machine/snapshot.h"

namespace rack {

enum class Stand {
  GoesOn,
  Waits,  // for the machine, a pause or a lock
  Held,   // by the step gate
  Idle    // nothing but a key lets it go on
};

struct Explanation {
  Stand stand = Stand::GoesOn;
  std::string text;
};

// One sentence: the command that the task stands at, how long, and what it lacks, or that it lacks nothing.
std::string WhyStanding(const Snapshot& snapshot, const TaskView& task);

// The same with what becomes of the task.
Explanation Explain(const Snapshot& snapshot, const TaskView& task);

// The same, with the task and its place ahead: "task 1 plc1/FLOW.PLC:8 ...".
std::string TaskSentence(const TaskView& task, const Explanation& explanation);

// A pause in which a task sees no key.
struct Sleep {
  std::int64_t leftNanos = 0;
  std::int64_t sinceNanos = 0;  // how long it has slept
  std::string where;            // "DLY"
};
std::optional<Sleep> SleepOf(const TaskView& task);

}  // namespace rack
