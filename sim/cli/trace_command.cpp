// velmo-rack trace
#include <cstdio>

#include "cli/commands.h"
#include "cli/follow.h"
#include "machine/trace_text.h"

namespace rack::cli {

int Trace(const TraceOptions& options) {
  FollowOptions follow;
  follow.once = options.once;
  std::string error;
  if (!ParseLimit(options.duration, follow, error)) return Complain(kWrongUse, error);
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  const bool oldest = options.fromStart || options.once;
  PatientReader reader(machine.State().journal, options.once ? nullptr : machine.Readers(),
                       oldest ? JournalReader::Start::Oldest : JournalReader::Start::Newest, "trace");
  const Snapshot snapshot = machine.Take();
  TraceFilter filter;
  const std::string wrong = filter.Choose(snapshot, options.words);
  if (!wrong.empty()) return Complain(kWrongUse, wrong);
  Tracer tracer(snapshot, machine.Files());
  if (options.csv) std::puts(Tracer::Header());
  const auto tellLost = [](std::uint64_t lost) {
    std::fprintf(stderr, "velmo-rack: %llu records lost here\n", static_cast<unsigned long long>(lost));
  };
  const std::uint64_t before = oldest ? reader.Number() : 0;
  if (before != 0) tellLost(before);
  FollowSummary summary = Follow(
      machine, reader, follow,
      [&](const JournalRecord& record) {
        tracer.See(record);
        if (!filter.Shows(record, tracer.Subject(record))) return;
        const std::string line = options.csv ? tracer.Row(record) : tracer.Line(record);
        std::puts(line.c_str());
      },
      tellLost);
  summary.lost += before;
  std::fflush(stdout);
  std::fprintf(stderr, "velmo-rack: %s\n", SummaryText(summary).c_str());
  return kDone;
}

}  // namespace rack::cli
