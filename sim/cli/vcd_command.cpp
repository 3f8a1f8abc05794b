// velmo-rack vcd
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "cli/commands.h"
#include "cli/follow.h"
#include "cli/recording.h"
#include "machine/waveform.h"

namespace rack::cli {

namespace {

// What happened up to now without a gap; all before the last gap counts as lost.
std::vector<JournalRecord> Past(PatientReader& reader, std::uint64_t& lost) {
  std::vector<JournalRecord> records;
  JournalRecord record{};
  std::uint64_t missed = 0;
  while (reader.Next(record, missed) == JournalReader::Result::Record) {
    if (missed != 0) {
      lost += records.size() + missed;
      records.clear();
      missed = 0;
    }
    records.push_back(record);
  }
  lost += missed;
  return records;
}

}  // namespace

int RecordVcd(const VcdOptions& options) {
  FollowOptions follow;
  follow.once = options.once;
  std::string error;
  if (!ParseLimit(options.duration, follow, error)) return Complain(kWrongUse, error);
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  std::ofstream file(options.file);
  if (!file) return Complain(kFailed, options.file + ": " + std::strerror(errno));

  const bool oldest = options.fromStart || options.once;
  PatientReader reader(machine.State().journal, options.once ? nullptr : machine.Readers(),
                       oldest ? JournalReader::Start::Oldest : JournalReader::Start::Newest, "vcd");
  std::uint64_t lost = oldest ? reader.Number() : 0;
  // Taken before the past is read, so that the past reaches beyond it.
  Snapshot snapshot = machine.Recorded();
  const std::vector<JournalRecord> past = oldest ? Past(reader, lost) : std::vector<JournalRecord>();
  const bool whole = oldest && lost == 0;
  if (whole) snapshot = PowerOnSnapshot(machine.State().image, machine.State().live);
  Waveform waveform(file, snapshot, machine.Files());
  if (lost == 0) waveform.Begin();
  if (lost != 0) waveform.BeginBefore(past);
  if (lost != 0) waveform.Lost(lost);
  for (const JournalRecord& record : past) waveform.See(record);
  FollowSummary summary = Follow(
      machine, reader, follow, [&](const JournalRecord& record) { waveform.See(record); },
      [&](std::uint64_t missed) { waveform.Lost(missed); });
  summary.records += past.size();
  summary.lost += lost;
  waveform.End(machine.Take().nowNanos);

  if (!WriteView(waveform, options.file) || !file)
    return Complain(kFailed, options.file + ": could not be written");
  std::fprintf(stderr, "velmo-rack: %s: %s\n", options.file.c_str(), SummaryText(summary).c_str());
  return kDone;
}

}  // namespace rack::cli
