// Every demand, and how it is judged.
#include "scenario/demand.h"

namespace rack::scenario {

namespace {

constexpr bool kAfter = true;
constexpr bool kAlone = false;
constexpr bool kLasting = true;
constexpr bool kAny = false;

Ruling Open() {
  return {};
}

Ruling Passed() {
  return {Verdict::Passed, ""};
}

Ruling Failed(const std::string& message) {
  return {Verdict::Failed, message};
}

Ruling NotCome(const std::string& why, const Watcher& what) {
  return Failed(why + ": " + what.What().text + " has not come");
}

// The moment that an expectation counts from has not come, or not often enough.
Ruling MomentNotCome(const std::string& why, const Trial& trial) {
  const int nth = trial.expectation.from.nth;
  if (nth == 1) return NotCome(why, *trial.after);
  return Failed(why + ": " + trial.after->What().text + " number " + std::to_string(nth) +
                " has not come, only " + std::to_string(trial.after->Count()));
}

// Whether it is so, or has happened since a time.
bool IsSince(const Watcher& what, Nanos from) {
  return what.Holds() || (what.Count() > 0 && what.Last() >= from);
}

std::optional<Nanos> AtLimit(const Trial& trial) {
  return trial.expectation.limit;
}

std::optional<Nanos> LimitAfterMoment(const Trial& trial) {
  if (!trial.from || trial.expectation.limit < 0) return std::nullopt;
  return *trial.from + trial.expectation.limit;
}

// What can only be ruled at its deadline or at the end.
Ruling NotYet(const Trial& /*trial*/) {
  return Open();
}

Ruling Miss(const Trial& trial) {
  return Failed(trial.what->Instead());
}

Ruling EndOpen(const Trial& trial, const std::string& why, bool /*whole*/) {
  if (!trial.from) return MomentNotCome(why, trial);
  return Failed(why + ": " + trial.what->Instead());
}

bool RunGoesOn(const Trial& /*trial*/) {
  return true;
}

bool RunMayEnd(const Trial& /*trial*/) {
  return false;
}

Ruling WeighBy(const Trial& trial) {
  return IsSince(*trial.what, 0) ? Passed() : Open();
}

Ruling ExpireAt(const Trial& trial) {
  return trial.what->Holds() ? Passed() : Miss(trial);
}

// The end may be that very moment.
Ruling EndAt(const Trial& trial, const std::string& why, bool whole) {
  if (whole && trial.expectation.limit == trial.now && trial.what->Holds()) return Passed();
  return EndOpen(trial, why, whole);
}

Ruling WeighWithin(const Trial& trial) {
  return trial.from && IsSince(*trial.what, *trial.from) ? Passed() : Open();
}

bool IsBegun(const Trial& trial) {
  return trial.from && *trial.from <= trial.now;
}

Ruling WeighNever(const Trial& trial) {
  return IsBegun(trial) && IsSince(*trial.what, *trial.from) ? Miss(trial) : Open();
}

Ruling ExpireNever(const Trial& trial) {
  return trial.what->Holds() ? Miss(trial) : Passed();
}

// What it counts from must have come: otherwise nothing was watched.
Ruling EndNever(const Trial& trial, const std::string& why, bool whole) {
  if (!trial.from) return EndOpen(trial, why, whole);
  return whole ? Passed() : Failed(why);
}

// What is so already when it is asked for has come.
Ruling WeighOrder(const Trial& trial) {
  if (trial.what->Count() == trial.cycle.times) return Open();
  if (trial.first->Holds() || trial.first->Count() > trial.cycle.first) return Open();
  const bool again = trial.cycle.times > 0;
  return Failed(trial.what->What().text + (again ? " has come again, and " : " has come, and ") +
                trial.first->What().text + " has not" +
                (again ? " since " + ClockText(trial.cycle.since) : "") + ": " + trial.first->Instead());
}

// It holds each time, to the end.
Ruling EndOrder(const Trial& trial, const std::string& why, bool whole) {
  if (trial.what->Count() == 0) return NotCome(why, *trial.what);
  return whole ? Passed() : Failed(why);
}

Ruling EndEnd(const Trial& trial, const std::string& why, bool whole) {
  return whole && trial.what->Holds() ? Passed() : EndOpen(trial, why, whole);
}

Ruling WeighEvents(const Trial& trial) {
  return trial.missing.empty() ? Passed() : Open();
}

Ruling EndEvents(const Trial& trial, const std::string& why, bool /*whole*/) {
  return Failed(why + ": " + trial.missing);
}

// clang-format off
constexpr DemandRow kRows[] = {
  {Demand::By, Sentence::That, "that", {"by"}, "by", kAlone, kAny,
   AtLimit, WeighBy, Miss, EndOpen, RunGoesOn},
  {Demand::At, Sentence::That, "that", {"at"}, "at", kAlone, kLasting,
   AtLimit, NotYet, ExpireAt, EndAt, RunGoesOn},
  {Demand::Within, Sentence::That, "that", {"after", "nth", "within"}, "within", kAfter, kAny,
   LimitAfterMoment, WeighWithin, Miss, EndOpen, RunGoesOn},
  {Demand::Never, Sentence::Never, "never", {"from", "by", "after", "nth", "within"}, "", kAlone, kAny,
   LimitAfterMoment, WeighNever, ExpireNever, EndNever, RunGoesOn},
  {Demand::Order, Sentence::Then, "then", {"first"}, "", kAlone, kAny,
   nullptr, WeighOrder, nullptr, EndOrder, RunGoesOn},
  {Demand::End, Sentence::Hold, "", {}, "", kAlone, kLasting,
   nullptr, NotYet, nullptr, EndEnd, RunMayEnd},
  {Demand::Events, Sentence::Events, "", {}, "", kAlone, kAny,
   nullptr, WeighEvents, nullptr, EndEvents, RunGoesOn},
};
// clang-format on
static_assert(AreRowsOf(kRows, &DemandRow::demand, kDemands), "a row for each demand, in order");

constexpr bool DeadlinesRule() {
  for (const DemandRow& row : kRows) {
    if ((row.deadline == nullptr) != (row.expire == nullptr)) return false;
  }
  return true;
}
static_assert(DeadlinesRule(), "what has a deadline says what it then rules");

}  // namespace

const DemandRow& RowOf(Demand demand) {
  return kRows[static_cast<std::size_t>(demand)];
}

}  // namespace rack::scenario
