// One run of a scenario: the machine in a copy of its directory, in virtual time.
#pragma once

#include <string>

#include "scenario/report.h"

namespace rack::scenario {

struct RunPlaces {
  std::string controller;  // absolute path
  std::string library;     // absolute path
  std::string waveforms;   // directory that gets the recording of a failed scenario
  bool keepsAll = false;   // and of one that has passed
};

// Runs a scenario until all is decided, its limit is reached, or the controller has ended. An error of the run stands
// in the result. `stopped`, where not 0, is the signal that told
// this process to stop.
struct RunReport {
  ScenarioResult result;
  int stopped = 0;
};
RunReport RunScenario(const Scenario& scenario, const RunPlaces& places);

}  // namespace rack::scenario
