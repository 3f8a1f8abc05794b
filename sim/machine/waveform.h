// The journal as a waveform: one wire per signal, key, motor, cylinder and program line.
#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "machine/snapshot.h"
#include "machine/trace_text.h"
#include "machine/vcd_writer.h"
#include "rack/journal.h"

namespace rack {

class Waveform {
 public:
  // Declares the wires of a machine; their values are those of the snapshot.
  Waveform(std::ostream& out, const Snapshot& snapshot, FileNames files);

  // Writes the head of a recording that starts at the snapshot.
  void Begin();
  // Writes the head of one that starts before these records, all that were made up to the snapshot or later
  // and not one missing: a value that they do not tell of has been as it is in the snapshot, of a level the
  // first change tells what it was, any other value is unknown until it is told.
  void BeginBefore(const std::vector<JournalRecord>& past);
  void See(const JournalRecord& record);
  // So many records are missing before the next one.
  void Lost(std::uint64_t records);
  void End(Nanos end);

  std::string View(const std::string& dump) const { return writer_.View(dump); }

 private:
  // What a wire shows: kind of record, slot or task, channel.
  using Source = std::tuple<JournalKind, int, int>;
  // A fault: kind, slot, channel.
  using FaultName = std::tuple<int, int, int>;
  static constexpr Source kFaults{JournalKind::FaultBegins, 0, 0};  // how many are active
  // How many of one kind are.
  static constexpr Source FaultsOf(int kind) { return {JournalKind::FaultBegins, kind, 0}; }

  void AddWire(const Source& source, const std::string& scope, const std::string& name, int width,
               std::int64_t value);
  void AddCard(const Snapshot& snapshot, int entry);
  void AddKeypad(const CardView& cpu);
  void AddChannels(const Snapshot& snapshot, int entry, const std::string& scope);
  // Calls tell(source, value) for every wire that a record gives a value, but for the faults.
  template <class Tell>
  static void ForEachValue(const JournalRecord& record, Tell tell);
  void Set(const Source& source, std::int64_t value, Nanos time);
  static FaultName FaultOf(const JournalRecord& record);
  void SetFault(const JournalRecord& record, bool active);
  std::int64_t CountFaults(int kind) const;

  VcdWriter writer_;
  std::map<Source, int> wires_;
  std::vector<std::optional<std::int64_t>> values_;  // at the start, by wire
  std::set<FaultName> faults_;                       // active
  std::map<int, int> programs_;                      // wire with the program file, by task
  FileNames files_;
  Nanos start_;
};

}  // namespace rack
