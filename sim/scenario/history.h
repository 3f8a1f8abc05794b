// What happened last, for people: events of the machine and lines of the console in one time column.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "machine/snapshot.h"
#include "machine/trace_text.h"
#include "rack/journal.h"
#include "scenario/happening.h"

namespace rack::scenario {

// The text of a program line, by the file's name; empty: it is not known.
using LineTexts = std::function<std::string(const std::string& file, std::uint32_t line)>;

class History {
 public:
  History(Snapshot machine, FileNames files, LineTexts texts)
      : machine_(std::move(machine)), files_(std::move(files)), texts_(std::move(texts)) {}

  void See(const JournalRecord& record);
  void SeeLine(Nanos time, int who, const std::string& line);
  void SeeEvent(Nanos time, const std::string& text);

  // The last entries that concern the happenings: the machine's own, and those of the tasks that used the
  // cards they are about.
  std::vector<std::string> Story(const std::vector<const Happening*>& happenings) const;
  // Where each task stands: "task 1 plc1/FLOW.PLC:8 LDG: 3, 0, for 1.9 s".
  std::vector<std::string> Standing(Nanos now) const;

 private:
  // The line that a task has read last.
  struct LineRead {
    std::uint32_t file = 0;  // 0: none yet
    std::uint32_t line = 0;
    Nanos time = 0;
  };
  struct Entry {
    Nanos time;
    int who;            // task as in the journal, kUnknownTask: the machine
    std::string place;  // the task's program line, or who else it was
    std::string text;
    bool printed;  // on the console
    int times;     // the same task has printed this line so many times on end,
    Nanos last;    // up to this time; of others the same as `time`
  };

  static std::string Line(const Entry& entry);
  void Add(const Entry& entry);
  std::string PlaceOf(int who) const;
  std::vector<bool> Concerned(const std::vector<const Happening*>& happenings) const;

  Snapshot machine_;
  FileNames files_;
  LineTexts texts_;
  std::array<LineRead, kTaskRecords> read_{};
  std::deque<Entry> entries_;
  std::array<std::array<bool, kTaskRecords>, kSlots> uses_{};  // by slot and task: it has addressed that card
};

}  // namespace rack::scenario
