// All that is to be known of one kind of happening: how it is written, and how it is watched.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "machine/trace_text.h"
#include "rack/journal.h"
#include "scenario/happening.h"

namespace rack::scenario {

class HappeningText;

// The numbers that a kind can come to.
struct NumberLimits {
  std::int64_t lowest = 0;
  std::int64_t highest = 0;
};

// What is known of a happening that is watched.
struct Watched {
  Happening what;
  FileNames files;                          // names a program file by its number
  std::shared_ptr<const Snapshot> machine;  // of what names its cards: as at power-on
  std::string label;                        // what it is about: "clamped (1.1)"
  std::int64_t value = 0;                   // level, position, count, number of pulses
  bool known = true;                        // there is a value
  bool moving = false;                      // of a motor or cylinder
  bool standing = true;                     // of a cylinder: in position
  bool alarm = false;                       // of a cylinder
  Nanos since = 0;                          // when it became what it is
  int count = 0;                            // how often it has happened since power-on,
  Nanos last = 0;                           // and when it happened last
};

// Each happening is seen in one of these. True: it happens; or, of what lasts, whether it holds may have
// changed.
using SeesRecord = bool (*)(Watched&, const JournalRecord&);
using SeesLine = bool (*)(const Watched&, int who, const std::string& line);
using SeesEvent = bool (*)(const Watched&, const std::string& name);

struct HappeningRow {
  HappeningKind kind;
  // How messages show what can happen; empty: the form of another row is shown.
  std::string_view form;
  // Whether a text is of this kind, by a word that it has.
  bool (HappeningText::*fits)(const HappeningRow& row) const;
  std::string_view word;
  // Of motors and cylinders: what stands behind the channel. N is a number or a range.
  std::string_view verb;
  NumberLimits limits;  // of N
  void (HappeningText::*read)(const HappeningRow& row);
  bool onCard;
  // As the machine stands at power-on.
  void (*begin)(Watched& watched, const Snapshot& machine);
  std::variant<SeesRecord, SeesLine, SeesEvent> sees;
  // Whether it is so now; null: it happens and is over.
  bool (*holds)(const Watched& watched);
  // What there is instead, or why it is so: "clamped (1.1) is off since 1.250 s".
  std::string (*says)(const Watched& watched);
  // Kinds of records among which it is; of an event of the scenario none.
  std::array<JournalKind, kTriggersOfOne> kinds;
};

const HappeningRow& RowOf(HappeningKind kind);

}  // namespace rack::scenario
