// What became of scenarios: TAP 13 for `prove` and CI systems, JUnit XML.
#pragma once

#include <string>
#include <vector>

#include "scenario/judge.h"

namespace rack::scenario {

struct ScenarioResult {
  const Scenario* scenario = nullptr;
  std::vector<Outcome> outcomes;  // by expectation
  Nanos end = 0;                  // how far the machine ran
  std::string waveform;           // file of the recording, empty: none was left
};

// The head, for so many expectations, and the lines of one scenario whose first expectation has this number.
std::string TapHead(std::size_t expectations);
std::string TapOf(const ScenarioResult& result, std::size_t first);

std::string JunitOf(const std::vector<ScenarioResult>& results);

}  // namespace rack::scenario
