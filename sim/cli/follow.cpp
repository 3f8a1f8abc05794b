#include "cli/follow.h"

#include "cli/stop_signals.h"
#include "machine/losses.h"
#include "toml/times.h"

namespace rack::cli {

namespace {

constexpr int kLookMillis = 20;

}  // namespace

FollowSummary Follow(Machine& machine, PatientReader& reader, const FollowOptions& options,
                     const std::function<void(const JournalRecord&)>& record,
                     const std::function<void(std::uint64_t)>& lost) {
  FollowSummary summary;
  const StopSignals stop;
  const Nanos limit = MonotonicNow() + options.lasts;
  Losses losses;
  const auto tellLost = [&](bool all) {
    const std::uint64_t records = losses.Take(all, MonotonicNow());
    if (records != 0) lost(records);
  };
  for (;;) {
    // Asked before the journal is read to its end: what a run that has ended left behind is still handed on.
    const bool last = options.once || !machine.Running() || machine.Replaced() ||
                      (options.lasts >= 0 && MonotonicNow() >= limit);
    JournalRecord next{};
    while (reader.Next(next, losses.Missed()) == JournalReader::Result::Record) {
      tellLost(false);
      ++summary.records;
      record(next);
    }
    tellLost(last);
    if (!last && !stop.Within(kLookMillis)) continue;
    tellLost(true);
    summary.lost = losses.Told();
    return summary;
  }
}

std::string SummaryText(const FollowSummary& summary) {
  const std::string records = std::to_string(summary.records) + " records";
  return summary.lost == 0 ? "complete, " + records : records + ", " + std::to_string(summary.lost) + " lost";
}

bool ParseLimit(const std::string& text, FollowOptions& options, std::string& error) {
  if (text.empty()) return true;
  const std::optional<Nanos> time = CommandTime(text);
  if (!time) {
    error = "\"" + text + "\" is no time: such as 500ms, 2s or 1min";
    return false;
  }
  options.lasts = *time;
  return true;
}

}  // namespace rack::cli
