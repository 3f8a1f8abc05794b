// What happened last, for people: events of the machine and lines of the console in one time column.
#pragma once

#include <array>
#include <deque>
#include <string>
#include <vector>

#include "machine/snapshot.h"
#include "rack/journal.h"
#include "scenario/happening.h"

namespace rack::scenario {

class History {
 public:
  explicit History(Snapshot machine) : machine_(std::move(machine)) {}

  void See(const JournalRecord& record);
  void SeeLine(Nanos time, int who, const std::string& line);
  void SeeEvent(Nanos time, const std::string& text);

  // The last entries that concern the happenings: the machine's own, and those of the tasks that used the
  // cards they are about.
  std::vector<std::string> Story(const std::vector<const Happening*>& happenings) const;

 private:
  struct Entry {
    Nanos time;
    int who;  // task as in the journal, kUnknownTask: the machine
    std::string text;
    bool printed;  // on the console
    int times;     // the same task has printed this line so many times on end,
    Nanos last;    // up to this time; of others the same as `time`
  };

  static std::string Line(const Entry& entry);
  void Add(const Entry& entry);
  std::vector<bool> Concerned(const std::vector<const Happening*>& happenings) const;

  Snapshot machine_;
  std::deque<Entry> entries_;
  std::array<std::array<bool, kTaskRecords>, kSlots> uses_{};  // by slot and task: it has addressed that card
};

}  // namespace rack::scenario
