// The rounds of production: what a task executes again and again.
#pragma once

#include <set>
#include <vector>

#include "check/program.h"

namespace check {

struct RoundStep {
  const Line* line;
  const Program* program;
  bool isConditional;  // in a block that IF may leave out
};

struct Round {
  // In the order of execution, a block's behind its call. Of a block only the lines that lead back to the caller,
  // once for all calls of a kind: what comes to an EXIT leaves the round.
  std::vector<RoundStep> steps;
  std::vector<const Line*> before;  // of the same program, executed once ahead of it
  bool isByLabel;                   // GO leads back to its beginning, not END
};

// The round of FLOW.PLC, and those that its blocks come to and never leave.
std::vector<Round> RoundsOf(const Task& task);

// The blocks whose caller is never gone on with, whatever the machine does: they end in a loop of their own, or with EXIT.
std::set<const Program*> EndlessBlocks(const Task& task);

}  // namespace check
