// Journal records as lines for people and for tables.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "machine/snapshot.h"
#include "rack/journal.h"

namespace rack {

// Name of a program file by its number, "" for 0.
using FileNames = std::function<std::string(std::uint32_t)>;

// Who a record's task number means: "key", "plc1" to "plc8", "net", "main", "-".
std::string Who(std::uint8_t task);

// What a record says: "input part_waiting (1.0) on".
std::string EventText(const Snapshot& snapshot, const JournalRecord& record);

// Of a record of a poll that goes on: how many rounds, and when the last access was.
struct PollRounds {
  std::uint32_t rounds;
  std::uint32_t more;  // accesses of a round that has not ended
  Nanos last;
};
PollRounds RoundsOf(const JournalRecord& record);

// Records as text, in the order of the journal: a poll that goes on is told by its last access.
class Tracer {
 public:
  Tracer(const Snapshot& snapshot, FileNames files) : snapshot_(snapshot), files_(std::move(files)) {}

  // To be told of every record, also of those that are not shown.
  void See(const JournalRecord& record);
  // The access that goes on in a record of Repeats, the record itself in others; what is known of it when the access
  // was not seen.
  JournalRecord Subject(const JournalRecord& record) const;

  // "    1.250000  plc1  plc1/FLOW.PLC:4  slot 5 stepper: channel select = 2 (0x02)".
  std::string Line(const JournalRecord& record) const;
  // The columns of Row.
  static const char* Header();
  std::string Row(const JournalRecord& record) const;

 private:
  std::string TextOf(const JournalRecord& record) const;

  const Snapshot& snapshot_;
  FileNames files_;
  std::map<std::uint8_t, JournalRecord> accesses_;  // the last one of each task, but for slot selects
};

}  // namespace rack
