// What can happen on a machine, as people write it in a scenario: "clamped on", "motor 2.0 at 800".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "machine/snapshot.h"
#include "rack/triggers.h"

namespace rack::scenario {

// Every kind, each with its row in happening_rows.cpp. Where a text fits several, the last of them is meant.
// clang-format off
#define SCENARIO_HAPPENINGS(kind)                                                         \
  kind(Level)          /* "clamped on", "input 1.1 off", "output 0.8 on" */               \
  kind(MotorMoves)     /* "motor 2.0 moves": as long as it does */                        \
  kind(MotorStarts)    /* "motor 2.0 starts": a move begins */                            \
  kind(MotorStands)    /* "motor 2.0 stands" */                                           \
  kind(MotorAt)        /* "motor 2.0 at 800": stands there */                             \
  kind(MotorCount)     /* "motor 2.0 counts 800": its encoder counter, standing */        \
  kind(MotorHitsStop)  /* "motor 2.0 hits its stop": a move begins to lose steps there */ \
  kind(MotorPulses)    /* "motor 2.0 pulses 800": a move of so many pulses has ended */   \
  kind(CylinderAt)     /* "cylinder 3.0 at 5": stands there */                            \
  kind(CylinderAlarm)  /* "cylinder 3.0 alarm" */                                         \
  kind(Counter)        /* "counter parts 5" */                                            \
  kind(KeyTaken)       /* "key Enter": the controller has taken it */                     \
  kind(Line)           /* "line plc1/FLOW.PLC:4": a task reads it to execute it */        \
  kind(Prints)         /* "plc1 prints Failed", "console prints Failed" */                \
  kind(Restart)        /* "restart" */                                                    \
  kind(Protests)       /* "a card protests", "card 3 protests" */                         \
  kind(Event)          /* the name of one of the scenario's own events */
// clang-format on

enum class HappeningKind {
#define SCENARIO_KIND(kind) kind,
  SCENARIO_HAPPENINGS(SCENARIO_KIND)
#undef SCENARIO_KIND
};

constexpr HappeningKind kHappeningKinds[] = {
#define SCENARIO_KIND(kind) HappeningKind::kind,
    SCENARIO_HAPPENINGS(SCENARIO_KIND)
#undef SCENARIO_KIND
};

// Who prints: a task number as in the journal, or anyone.
constexpr int kAnyone = -1;

struct Happening {
  HappeningKind kind = HappeningKind::Event;
  std::string text;  // as it was written
  SignalKind signal = SignalKind::Input;
  int entry = 0;
  int slot = 0;
  int channel = 0;       // or the number of a counter's link
  std::int64_t low = 0;  // level, position, count: all from low to high are meant
  std::int64_t high = 0;
  int who = kAnyone;
  std::string words;  // what is printed, the program file, or an event's name
};

// A happening, or why the text is none.
struct HappeningChoice {
  Happening happening;
  std::string error;  // empty: the happening is good
};
HappeningChoice ParseHappening(const std::string& text, const Snapshot& machine,
                               const std::vector<std::string>& events);

// Whether it is a state that lasts, so that one can ask whether it holds at a moment.
bool IsState(HappeningKind kind);
// Whether it happens on a card, so that the tasks that use the card have to do with it.
bool IsOnCard(HappeningKind kind);
// Lets time stand wherever it may happen: so many rows at most.
constexpr std::uint32_t kTriggersOfOne = 3;
void AddTriggers(const Happening& what, TriggerTable& triggers);

}  // namespace rack::scenario
