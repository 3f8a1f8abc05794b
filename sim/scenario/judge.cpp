#include "scenario/judge.h"

#include <algorithm>
#include <utility>

#include "toml/words.h"

namespace rack::scenario {

Judge::Judge(const Scenario& scenario, const Snapshot& machine, const FileNames& files, LineTexts texts)
    : scenario_(scenario),
      history_(machine, files, std::move(texts)),
      occurrences_(scenario.happenings.size()),
      outcomes_(scenario.expectations.size()),
      cycles_(scenario.expectations.size()),
      done_(scenario.events.size()) {
  watchers_.reserve(scenario.happenings.size());
  for (const Happening& happening : scenario.happenings) watchers_.emplace_back(happening, machine, files);
  FindMissing();
  Update();
}

void Judge::See(const JournalRecord& record) {
  if (!IsAccess(record.kind)) Reach(record.time);
  if (IsOver(record.time)) return;
  history_.See(record);
  if (IsAccess(record.kind)) return;
  for (Watcher& watcher : watchers_) watcher.See(record);
  Update();
}

void Judge::SeeLine(Nanos time, int who, const std::string& line) {
  Reach(time);
  if (IsOver(time)) return;
  history_.SeeLine(time, who, line);
  for (Watcher& watcher : watchers_) watcher.SeeLine(time, who, line);
  Update();
}

void Judge::SeeEvent(std::size_t number, Nanos time) {
  const Event& event = scenario_.events[number];
  Reach(time);
  done_[number] = true;
  FindMissing();
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
    const Trial trial = TrialOf(expectation);
    Decide(i, now_, RowOf(expectation.demand).weigh(trial));
    const bool again = trial.first != nullptr && trial.what->Count() > cycles_[i].times;
    if (again) cycles_[i] = {trial.what->Count(), trial.first->Count(), trial.what->Last()};
  }
  NoteEnd();
}

void Judge::NoteEnd() {
  if (end_ || !IsDecided()) return;
  Nanos last = 0;
  for (const Outcome& outcome : outcomes_) last = std::max(last, outcome.time);
  end_ = std::min(scenario_.limit, last + scenario_.endWait);
}

// What a moment hangs on, as a person says it.
std::string Judge::WaitsFor(const Moment& moment) const {
  if (moment.after < 0) return "its time has not come";
  const Watcher& after = *WatcherOf(moment.after);
  const std::string number = moment.nth > 1 ? " number " + std::to_string(moment.nth) : "";
  if (TimeOf(moment)) return "its time after " + after.What().text + number + " has not come";
  return after.What().text + number + " has not come";
}

void Judge::FindMissing() {
  missing_.clear();
  const auto missing = static_cast<std::size_t>(std::find(done_.begin(), done_.end(), false) - done_.begin());
  if (missing == done_.size()) return;
  const Event& event = scenario_.events[missing];
  const std::string name = event.name.empty() ? "" : " " + InQuotes(event.name);
  missing_ = "the event" + name + " of line " + std::to_string(event.line) + " was never reached (" +
             event.text + "): " + WaitsFor(event.when);
}

std::optional<Nanos> Judge::TimeOf(const Moment& moment) const {
  if (moment.after < 0) return moment.delay;
  const std::vector<Nanos>& times = occurrences_[static_cast<std::size_t>(moment.after)];
  const auto nth = static_cast<std::size_t>(moment.nth);
  if (times.size() < nth) return std::nullopt;
  return times[nth - 1] + moment.delay;
}

Trial Judge::TrialOf(const Expectation& expectation) const {
  const auto index = static_cast<std::size_t>(&expectation - scenario_.expectations.data());
  return {expectation,
          WatcherOf(expectation.what),
          WatcherOf(expectation.first),
          WatcherOf(expectation.from.after),
          TimeOf(expectation.from),
          now_,
          cycles_[index],
          missing_};
}

std::optional<Nanos> Judge::DeadlineOf(std::size_t index) const {
  const Expectation& expectation = scenario_.expectations[index];
  const DemandRow& row = RowOf(expectation.demand);
  if (outcomes_[index].verdict != Verdict::Open || row.deadline == nullptr) return std::nullopt;
  return row.deadline(TrialOf(expectation));
}

std::optional<Nanos> Judge::NextDeadline(Nanos from) const {
  std::optional<Nanos> next;
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const std::optional<Nanos> deadline = DeadlineOf(i);
    if (deadline && *deadline >= from) next = std::min(next.value_or(*deadline), *deadline);
  }
  return next;
}

std::vector<int> Judge::AwaitedMoments() const {
  std::vector<int> moments;
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const Expectation& expectation = scenario_.expectations[i];
    const bool open = outcomes_[i].verdict == Verdict::Open && expectation.limit >= 0;
    if (open && !TimeOf(expectation.from)) moments.push_back(expectation.from.after);
  }
  return moments;
}

void Judge::SeeTasks(Nanos time, std::vector<std::string> tasks) {
  tasksAt_ = time;
  tasks_ = std::move(tasks);
}

// What happens at the deadline itself is still in time: the deadline is past when time goes on.
void Judge::Reach(Nanos time) {
  time = std::min(time, scenario_.limit);
  if (time <= now_) return;
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const Expectation& expectation = scenario_.expectations[i];
    const std::optional<Nanos> deadline = DeadlineOf(i);
    if (deadline && *deadline < time) {
      Decide(i, *deadline, RowOf(expectation.demand).expire(TrialOf(expectation)));
    }
  }
  // What comes to be decided at a deadline may end the run before that time.
  NoteEnd();
  if (IsOver(time)) return;
  now_ = time;
  // A Never that begins now may be broken by what lasts.
  Update();
}

bool Judge::IsDecided() const {
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const Expectation& expectation = scenario_.expectations[i];
    const bool open = outcomes_[i].verdict == Verdict::Open;
    if (open && RowOf(expectation.demand).keepsRunning(TrialOf(expectation))) return false;
  }
  return true;
}

void Judge::End(Nanos time, const std::string& why, bool whole) {
  Reach(time);
  FindMissing();
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
  outcome.tasks = time == tasksAt_ ? tasks_ : history_.Standing(time);
  outcome.story = Story(scenario_.expectations[index]);
}

std::vector<std::string> Judge::Story(const Expectation& expectation) const {
  std::vector<const Happening*> about;
  for (const int happening : {expectation.what, expectation.first, expectation.from.after}) {
    if (happening >= 0) about.push_back(&WatcherOf(happening)->What());
  }
  return history_.Story(about);
}

}  // namespace rack::scenario
