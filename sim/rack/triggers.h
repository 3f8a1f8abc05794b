// What a tool wants the machine to stand at: kinds of the journal's records, narrowed down by who and where.
//
// Part of a command to time. A record that fits lets time stand at the end of the call that has brought it, before
// anything else happens. A tool that wants less than a row can say looks at the record itself and lets time go on.
#pragma once

#include <cstdint>

#include "rack/journal.h"

namespace rack {

constexpr std::uint8_t kAnyPlace = 0xFF;

struct Trigger {
  JournalKind kind;  // None: every kind but bus accesses
  std::uint8_t task;
  std::uint8_t slot;  // these three may be kAnyPlace
  std::uint8_t port;
  std::uint32_t firstLine;  // of ProgramLine, both included; 0: any
  std::uint32_t lastLine;

  bool Fits(const JournalRecord& record) const;
  bool operator==(const Trigger& other) const;
};
static_assert(sizeof(Trigger) == 12);

constexpr std::uint32_t kMaxTriggers = 31;

struct TriggerTable {
  std::uint32_t count;
  Trigger rows[kMaxTriggers];

  bool Fits(const JournalRecord& record) const;
  // A table that is full stands at every kind instead.
  void Add(const Trigger& trigger);
};
static_assert(sizeof(TriggerTable) == 4 + kMaxTriggers * sizeof(Trigger));

// What became of a machine that is watched.
struct MachineDue {
  bool fits;   // a record has fitted
  Nanos next;  // when something happens next by itself
};

}  // namespace rack
