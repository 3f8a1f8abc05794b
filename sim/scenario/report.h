// What became of scenarios: TAP 13 for `prove` and CI systems, JUnit XML.
#pragma once

#include <string>
#include <vector>

#include "scenario/judge.h"

namespace rack::scenario {

struct ScenarioResult {
  const Scenario* scenario = nullptr;
  std::vector<Outcome> outcomes;   // by expectation
  Nanos end = 0;                   // how far the machine ran
  std::string waveform;            // file of the recording, empty: none was left
  std::string error;               // why the run is worth nothing; then every outcome has failed with it
  std::vector<std::string> notes;  // what else is to be said of the run
};

bool HasFailed(const ScenarioResult& result);
// The result of a run that could not be made, or not to its end.
ScenarioResult ErrorOf(const Scenario& scenario, const std::string& error, Nanos end);

// The head, for so many expectations, and the lines of one scenario whose first expectation has this number.
std::string TapHead(std::size_t expectations);
std::string TapOf(const ScenarioResult& result, std::size_t first);

// JUnit XML: the part of one scenario, and the file of all their parts.
std::string SuiteOf(const ScenarioResult& result);
std::string JunitOf(const std::vector<std::string>& suites);

}  // namespace rack::scenario
