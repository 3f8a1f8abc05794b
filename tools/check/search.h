// The search over the states that the tasks of a machine can come to together.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "check/search_model.h"

namespace check {

// A wait: which of the model's tasks, and its step.
using Wait = std::pair<int, int>;

// A line that was executed on the way to a state; task kEnterKey: the Enter key was pressed.
using Done = std::pair<int, int>;
constexpr int kEnterKey = -1;

// Waits that nothing ends but the minus key.
struct Lock {
  std::vector<Wait> waits;
  bool isAlone;  // no other task could end it, whatever it did
  std::vector<Done> way;
};

struct Together {
  size_t forbidden;  // of the model's
  std::vector<Done> way;
};

struct SearchResult {
  std::vector<Lock> locks;
  std::vector<Together> together;
  bool isStarted = false;  // Enter was pressed: production was looked at
  bool isComplete = true;  // false: stopped at the bound
};

// Yields what is found whether moves and the operator are quick or slow.
SearchResult SearchStates(const SearchModel& model);

}  // namespace check
