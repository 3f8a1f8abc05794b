// All that is to be known of one kind of demand: how it is written, and how it is judged.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "scenario/scenario.h"
#include "scenario/watcher.h"

namespace rack::scenario {

enum class Verdict { Open, Passed, Failed };

struct Ruling {
  Verdict verdict = Verdict::Open;
  std::string message;  // of a failure
};

// Of an expectation that is about each time that something happens: what had been seen the last time.
struct Cycle {
  int times = 0;  // that it has happened
  int first = 0;  // that `first` had happened then
  Nanos since = 0;
};

// An expectation with what is known when it is judged.
struct Trial {
  const Expectation& expectation;
  const Watcher* what;
  const Watcher* first;
  const Watcher* after;       // of the moment that it counts from; null: power-on
  std::optional<Nanos> from;  // when that moment was; nothing: it has not come yet
  Nanos now;
  const Cycle& cycle;
  const std::string& missing;  // the first of the scenario's events that has not come, and why; empty: none
};

// The sentences that state a demand, and how they are read.
enum class Sentence {
  That,   // `that`, with a word for the demand
  Never,  // `never`
  Then,   // `first` and `then`
  Hold,   // in `hold` of [end]
  Events  // stated by the events themselves
};

struct DemandRow {
  Demand demand;
  Sentence sentence;
  // The word of [[expect]] that the sentence begins with, and the words that go with it.
  std::string_view word;
  std::string_view with[5];
  // Of Sentence::That: the one of those that states the demand.
  std::string_view when;
  bool after;    // the time is one after something that happens
  bool lasting;  // wants something that lasts

  // When it is decided at the latest; nothing: that is not known yet. Null: there is no such time.
  std::optional<Nanos> (*deadline)(const Trial& trial);
  // What is ruled whenever something happens, when the deadline is past, and when the run ends. `why` tells
  // what ended it; it is not whole when the controller has ended by itself.
  Ruling (*weigh)(const Trial& trial);
  Ruling (*expire)(const Trial& trial);
  Ruling (*end)(const Trial& trial, const std::string& why, bool whole);
  // Whether the run goes on for it while it is open.
  bool (*keepsRunning)(const Trial& trial);
};

const DemandRow& RowOf(Demand demand);

}  // namespace rack::scenario
