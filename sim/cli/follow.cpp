#include "cli/follow.h"

#include "cli/stop_signals.h"
#include "toml/times.h"

namespace rack::cli {

namespace {

constexpr int kLookMillis = 20;
constexpr Nanos kTellLost = kSecond;  // so often at most

}  // namespace

FollowSummary Follow(Machine& machine, PatientReader& reader, const FollowOptions& options,
                     const std::function<void(const JournalRecord&)>& record,
                     const std::function<void(std::uint64_t)>& lost) {
  FollowSummary summary;
  const StopSignals stop;
  const Nanos limit = MonotonicNow() + options.lasts;
  std::uint64_t missed = 0;
  Nanos told = 0;
  const auto tellLost = [&](bool now) {
    if (missed == 0 || (!now && MonotonicNow() - told < kTellLost)) return;
    lost(missed);
    summary.lost += missed;
    missed = 0;
    told = MonotonicNow();
  };
  for (;;) {
    // Asked before the journal is read to its end: what a run that has ended left behind is still handed on.
    const bool last = options.once || !machine.Running() || machine.Replaced() ||
                      (options.lasts >= 0 && MonotonicNow() >= limit);
    JournalRecord next{};
    while (reader.Next(next, missed) == JournalReader::Result::Record) {
      tellLost(false);
      ++summary.records;
      record(next);
    }
    tellLost(last);
    if (!last && !stop.Within(kLookMillis)) continue;
    tellLost(true);
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
