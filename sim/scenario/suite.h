// Many scenarios, each in a process of its own: whatever becomes of one, the others run.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "scenario/run.h"

namespace rack::scenario {

struct SuiteOptions {
  RunPlaces places;
  int jobs = 0;  // scenarios at the same time, 0: one for each processor
};

// What became of a suite.
struct SuiteEnd {
  bool failed = false;             // some expectation is not met
  int stopped = 0;                 // the signal that told this process to stop, 0: none
  std::vector<std::string> junit;  // by scenario, as SuiteOf has them
};

// Runs scenarios; `print` gets the TAP lines of each, in their order.
SuiteEnd RunSuite(const std::vector<Scenario>& scenarios, const SuiteOptions& options,
                  const std::function<void(const std::string&)>& print);

}  // namespace rack::scenario
