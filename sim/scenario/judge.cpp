#include "scenario/judge.h"

#include <algorithm>

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
    if (outcomes_[i].verdict == Verdict::Open) Weigh(i);
  }
}

std::optional<Nanos> Judge::TimeOf(const Moment& moment) const {
  if (moment.after < 0) return moment.delay;
  const std::vector<Nanos>& times = occurrences_[static_cast<std::size_t>(moment.after)];
  const auto nth = static_cast<std::size_t>(moment.nth);
  if (times.size() < nth) return std::nullopt;
  return times[nth - 1] + moment.delay;
}

std::optional<Nanos> Judge::Deadline(const Expectation& expectation) const {
  switch (expectation.demand) {
    case Demand::By:
    case Demand::At:
      return expectation.limit;
    case Demand::Within:
    case Demand::Never: {
      const std::optional<Nanos> from = TimeOf(expectation.from);
      if (!from || expectation.limit < 0) return std::nullopt;
      return *from + expectation.limit;
    }
    default:
      return std::nullopt;
  }
}

// What happens at the deadline itself is still in time: the deadline is past when time goes on.
void Judge::Reach(Nanos time) {
  if (time <= now_) return;
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    if (outcomes_[i].verdict != Verdict::Open) continue;
    const std::optional<Nanos> deadline = Deadline(scenario_.expectations[i]);
    if (deadline && *deadline < time) Expire(i, *deadline);
  }
  now_ = time;
  // A Never that begins now may be broken by what lasts.
  Update();
}

void Judge::Expire(std::size_t index, Nanos deadline) {
  const Demand demand = scenario_.expectations[index].demand;
  const Watcher& what = WatcherOf(scenario_.expectations[index].what);
  const bool met = demand == Demand::Never ? !what.Holds() : demand == Demand::At && what.Holds();
  if (met) return Pass(index, deadline);
  Fail(index, deadline, what.Instead());
}

void Judge::Weigh(std::size_t index) {
  const Expectation& expectation = scenario_.expectations[index];
  const Watcher& what = WatcherOf(expectation.what);
  switch (expectation.demand) {
    case Demand::By:
      if (what.Holds() || what.Count() > 0) Pass(index, now_);
      break;
    case Demand::Within: {
      const std::optional<Nanos> from = TimeOf(expectation.from);
      if (from && (what.Holds() || (what.Count() > 0 && what.Last() >= *from))) Pass(index, now_);
      break;
    }
    case Demand::Never:
      WeighNever(index, what);
      break;
    case Demand::Order: {
      if (what.Count() == 0) break;
      const Watcher& first = WatcherOf(expectation.first);
      if (first.Count() > 0) {
        Pass(index, now_);
      } else {
        Fail(index, now_, what.What().text + " has come, and " + first.What().text + " has not");
      }
      break;
    }
    default:
      break;
  }
}

void Judge::WeighNever(std::size_t index, const Watcher& what) {
  const std::optional<Nanos> from = TimeOf(scenario_.expectations[index].from);
  if (!from || now_ < *from) return;
  const bool happened = what.Count() > 0 && what.Last() >= *from;
  if (!happened && !what.Holds()) return;
  Fail(index, now_, what.Instead());
}

bool Judge::Decided() const {
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    if (outcomes_[i].verdict != Verdict::Open) continue;
    const Expectation& expectation = scenario_.expectations[i];
    if (expectation.demand == Demand::End) continue;
    const std::optional<Nanos> from = TimeOf(expectation.from);
    const bool watching = expectation.demand == Demand::Never && from && *from <= now_;
    if (!watching || expectation.limit >= 0) return false;
  }
  return true;
}

void Judge::End(Nanos time, const std::string& why, bool whole) {
  Reach(time);
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    if (outcomes_[i].verdict == Verdict::Open) WeighEnd(i, why, whole);
  }
}

void Judge::WeighEnd(std::size_t index, const std::string& why, bool whole) {
  const Expectation& expectation = scenario_.expectations[index];
  const Watcher& what = WatcherOf(expectation.what);
  const std::string when = why + ": ";
  const bool after = expectation.from.after >= 0;
  const bool begun = !after || TimeOf(expectation.from).has_value();
  switch (expectation.demand) {
    case Demand::End:
      if (what.Holds()) return Pass(index, now_);
      return Fail(index, now_, when + what.Instead());
    case Demand::At:
      // The end may be that very moment.
      if (whole && expectation.limit == now_ && what.Holds()) return Pass(index, now_);
      break;
    case Demand::Never:
      // What it counts from must have come: otherwise nothing was watched.
      if (begun && whole) return Pass(index, now_);
      if (begun) return Fail(index, now_, why);
      break;
    case Demand::Order:
      return Fail(index, now_, when + what.What().text + " has not come");
    default:
      break;
  }
  if (!begun)
    return Fail(index, now_, when + WatcherOf(expectation.from.after).What().text + " has not come");
  Fail(index, now_, when + what.Instead());
}

void Judge::Pass(std::size_t index, Nanos time) {
  outcomes_[index].verdict = Verdict::Passed;
  outcomes_[index].time = time;
}

void Judge::Fail(std::size_t index, Nanos time, const std::string& message) {
  const Expectation& expectation = scenario_.expectations[index];
  std::vector<const Happening*> about = {&WatcherOf(expectation.what).What()};
  if (expectation.first >= 0) about.push_back(&WatcherOf(expectation.first).What());
  if (expectation.from.after >= 0) about.push_back(&WatcherOf(expectation.from.after).What());
  outcomes_[index] = {Verdict::Failed, time, "at " + ClockText(time) + ", " + message, history_.Story(about)};
}

}  // namespace rack::scenario
