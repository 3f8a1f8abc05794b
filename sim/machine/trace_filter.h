// Which records of the journal a trace shows.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "machine/snapshot.h"
#include "rack/journal.h"

namespace rack {

// As the command line has it; empty: all are shown.
struct TraceWords {
  std::string task;                  // 1 to 8, key, net or main
  std::vector<std::string> signals;  // names, or entry.channel of an input or output
  std::vector<std::string> entries;
  std::vector<std::string> kinds;
  std::string from;  // times since power-on
  std::string to;
};

class TraceFilter {
 public:
  // What is wrong with the words; empty: nothing. Bytes to the console are left out unless their kind is asked for.
  std::string Choose(const Snapshot& machine, const TraceWords& words);

  // The subject is the record itself, or the access that goes on in it.
  bool Shows(const JournalRecord& record, const JournalRecord& subject) const;

 private:
  struct Signal {
    bool input;
    bool output;
    int slot;
    int channel;
  };

  std::string ChooseSignal(const Snapshot& machine, const std::string& word);
  bool IsOfSignals(const JournalRecord& record) const;

  std::optional<std::string> task_;
  std::vector<Signal> signals_;
  std::set<int> slots_;
  std::set<JournalKind> kinds_;
  Nanos from_ = 0;
  Nanos to_ = INT64_MAX;
};

}  // namespace rack
