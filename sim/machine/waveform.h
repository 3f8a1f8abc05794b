// The journal as a waveform: one wire per signal, key, motor, cylinder and program line.
#pragma once

#include <map>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "machine/snapshot.h"
#include "machine/vcd_writer.h"
#include "rack/journal.h"

namespace rack {

class Waveform {
 public:
  // Declares the wires of a machine; their values are those of the snapshot.
  Waveform(std::ostream& out, const Snapshot& snapshot);

  // Writes the head. With records of the past, the values are those from before the first of them.
  void Begin(const std::vector<JournalRecord>& past, Nanos start);
  void See(const JournalRecord& record);
  // So many records are missing before the next one.
  void Lost(std::uint64_t records);
  void End(Nanos end);

  std::string View(const std::string& dump) const { return writer_.View(dump); }

 private:
  // What a wire shows: kind of record, slot or task, channel.
  using Source = std::tuple<JournalKind, int, int>;

  void AddWire(const Source& source, const std::string& scope, const std::string& name, int width,
               std::int64_t value);
  void AddCard(const Snapshot& snapshot, int entry);
  void AddKeypad(const CardView& cpu);
  void AddChannels(const Snapshot& snapshot, int entry, const std::string& scope);
  void Set(const Source& source, std::int64_t value, Nanos time);

  VcdWriter writer_;
  std::map<Source, int> wires_;
  std::vector<std::int64_t> values_;  // at the start, by wire
  std::int64_t faults_ = 0;
};

}  // namespace rack
