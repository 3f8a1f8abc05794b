#include "scenario/judge.h"

namespace rack::scenario {

Judge::Judge(const Scenario& scenario, const Snapshot& machine, const FileNames& files)
    : scenario_(scenario),
      history_(machine),
      occurrences_(scenario.happenings.size()),
      outcomes_(scenario.expectations.size()) {
  watchers_.reserve(scenario.happenings.size());
  for (const Happening& happening : scenario.happenings) watchers_.emplace_back(happening, machine, files);
  Update();
}

void Judge::See(const JournalRecord& record) {
  if (!IsAccess(record.kind)) Reach(record.time);
  history_.See(record);
  if (IsAccess(record.kind)) return;
  for (Watcher& watcher : watchers_) watcher.See(record);
  Update();
}

void Judge::SeeLine(Nanos time, int who, const std::string& line) {
  Reach(time);
  history_.SeeLine(time, who, line);
  for (Watcher& watcher : watchers_) watcher.SeeLine(time, who, line);
  Update();
}

void Judge::SeeEvent(const Event& event, Nanos time) {
  Reach(time);
  history_.SeeEvent(time, event.text);
  for (Watcher& watcher : watchers_) watcher.SeeEvent(time, event.name);
  Update();
}

void Judge::Update() {
  for (std::size_t i = 0; i < watchers_.size(); ++i) {
    const bool fresh = watchers_[i].Count() > static_cast<int>(occurrences_[i].size());
    if (fresh) occurrences_[i].push_back(watchers_[i].Last());
  }
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    if (outcomes_[i].verdict != Verdict::Open) continue;
    const Expectation& expectation = scenario_.expectations[i];
    Decide(i, now_, RowOf(expectation.demand).weigh(TrialOf(expectation)));
  }
}

std::optional<Nanos> Judge::TimeOf(const Moment& moment) const {
  if (moment.after < 0) return moment.delay;
  const std::vector<Nanos>& times = occurrences_[static_cast<std::size_t>(moment.after)];
  const auto nth = static_cast<std::size_t>(moment.nth);
  if (times.size() < nth) return std::nullopt;
  return times[nth - 1] + moment.delay;
}

Trial Judge::TrialOf(const Expectation& expectation) const {
  const auto watcher = [&](int happening) { return happening < 0 ? nullptr : &WatcherOf(happening); };
  return {expectation,
          WatcherOf(expectation.what),
          watcher(expectation.first),
          watcher(expectation.from.after),
          TimeOf(expectation.from),
          now_};
}

// What happens at the deadline itself is still in time: the deadline is past when time goes on.
void Judge::Reach(Nanos time) {
  if (time <= now_) return;
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const Expectation& expectation = scenario_.expectations[i];
    const DemandRow& row = RowOf(expectation.demand);
    if (outcomes_[i].verdict != Verdict::Open || row.deadline == nullptr) continue;
    const Trial trial = TrialOf(expectation);
    const std::optional<Nanos> deadline = row.deadline(trial);
    if (deadline && *deadline < time) Decide(i, *deadline, row.expire(trial));
  }
  now_ = time;
  // A Never that begins now may be broken by what lasts.
  Update();
}

bool Judge::Decided() const {
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const Expectation& expectation = scenario_.expectations[i];
    const bool open = outcomes_[i].verdict == Verdict::Open;
    if (open && RowOf(expectation.demand).keepsRunning(TrialOf(expectation))) return false;
  }
  return true;
}

void Judge::End(Nanos time, const std::string& why, bool whole) {
  Reach(time);
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    if (outcomes_[i].verdict != Verdict::Open) continue;
    const Expectation& expectation = scenario_.expectations[i];
    Decide(i, now_, RowOf(expectation.demand).end(TrialOf(expectation), why, whole));
  }
}

void Judge::Decide(std::size_t index, Nanos time, const Ruling& ruling) {
  if (ruling.verdict == Verdict::Open) return;
  Outcome& outcome = outcomes_[index];
  outcome.verdict = ruling.verdict;
  outcome.time = time;
  if (ruling.verdict == Verdict::Passed) return;
  outcome.message = "at " + ClockText(time) + ", " + ruling.message;
  outcome.story = Story(scenario_.expectations[index]);
}

std::vector<std::string> Judge::Story(const Expectation& expectation) const {
  std::vector<const Happening*> about;
  for (const int happening : {expectation.what, expectation.first, expectation.from.after}) {
    if (happening >= 0) about.push_back(&WatcherOf(happening).What());
  }
  return history_.Story(about);
}

}  // namespace rack::scenario
