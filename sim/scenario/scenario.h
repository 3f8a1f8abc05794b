// A scenario: what is done to a machine, and what it must do. Read from a TOML file beside the machine.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "rack/state.h"
#include "scenario/happening.h"
#include "scenario/machine_rules.h"

namespace rack::scenario {

// A moment of the run: a time since power-on, or so long after something has happened.
struct Moment {
  int after = -1;  // row of the scenario's happenings, -1: since power-on
  int nth = 1;     // of its occurrences
  Nanos delay = 0;
};

enum class ActionKind { Key, Request, Datagram, Program, Restart };

struct Event {
  int line = 0;
  std::string name;  // may be empty
  std::string text;  // as shown: "key Enter"
  Moment when;
  ActionKind kind = ActionKind::Restart;
  Request request{};
  std::string path;     // program file below the machine's directory
  std::string content;  // of the program file or the datagram
};

// Every demand, each with its row in demand.cpp.
// clang-format off
#define SCENARIO_DEMANDS(demand)                                                                           \
  demand(By)      /* it is so, or happens, at the latest then */                                           \
  demand(At)      /* it is so at that moment */                                                            \
  demand(Within)  /* it is so, or happens, within a time after the moment */                               \
  demand(Never)   /* it is not so and does not happen, from a moment on for a time or to the end */        \
  demand(Order)   /* it happens, and each time only after `first` has happened */                          \
  demand(End)     /* it is so when the run ends */                                                         \
  demand(Events)  /* every event of the scenario has come: nobody has to write it */
// clang-format on

enum class Demand {
#define SCENARIO_DEMAND(demand) demand,
  SCENARIO_DEMANDS(SCENARIO_DEMAND)
#undef SCENARIO_DEMAND
};

constexpr Demand kDemands[] = {
#define SCENARIO_DEMAND(demand) Demand::demand,
    SCENARIO_DEMANDS(SCENARIO_DEMAND)
#undef SCENARIO_DEMAND
};

struct Expectation {
  int line = 0;
  std::string text;  // as a sentence: "clamped on within 300 ms after start"
  Demand demand = Demand::End;
  int what = -1;    // row of the scenario's happenings, -1: of Events
  int first = -1;   // of Order
  Moment from;      // of Within and Never
  Nanos limit = 0;  // By, At: since power-on; Within, Never: after the moment, of Never -1: to the end
};

struct Scenario {
  std::string path;     // as it was given
  std::string name;     // file name without its ending
  std::string machine;  // its directory
  std::string tasks;    // the controller's argument, empty: none
  unsigned seed = 0;
  Nanos limit = 0;    // what is undecided then has failed
  Nanos endWait = 0;  // how long the machine goes on before it is looked at for the last time
  std::vector<Happening> happenings;
  std::vector<Event> events;
  std::vector<Expectation> expectations;
  std::shared_ptr<const RackSetup> setup;
  ExploreChoice explore;  // of the rack file, and this file's words in place of it
};

// Reads a scenario with its machine's rack file. False when something is wrong: `errors` then holds one line
// for each finding, "file:line:column: message".
bool ReadScenario(const std::string& path, Scenario& scenario, std::vector<std::string>& errors);

}  // namespace rack::scenario
