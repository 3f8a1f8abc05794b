// Judges a scenario's expectations over what happens, in order of time.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "scenario/demand.h"
#include "scenario/history.h"

namespace rack::scenario {

struct Outcome {
  Verdict verdict = Verdict::Open;
  Nanos time = 0;                  // when it was decided
  std::string message;             // of a failure
  std::vector<std::string> tasks;  // of a failure: where each task stands
  std::vector<std::string> story;  // of a failure: what happened last, of the tasks concerned
};

class Judge {
 public:
  Judge(const Scenario& scenario, const Snapshot& machine, const FileNames& files, LineTexts texts = nullptr);

  // What happens, in order of time.
  void See(const JournalRecord& record);
  void SeeLine(Nanos time, int who, const std::string& line);
  void SeeEvent(std::size_t event, Nanos time);
  // Nothing more comes before that time.
  void Reach(Nanos time);

  // When the run ends because nothing is open but what is judged at the end, and every event has come; nothing: it is
  // not known yet. What happens later is not seen.
  std::optional<Nanos> EndTime() const { return end_; }
  bool IsOver(Nanos time) const { return time > end_.value_or(scenario_.limit); }
  bool IsDone(std::size_t event) const { return done_[event]; }
  // The next time, not before that one, at which an open expectation must have been met; nothing: none is known yet.
  std::optional<Nanos> NextDeadline(Nanos from) const;
  // What has not happened yet that a deadline of an open expectation counts from.
  std::vector<int> AwaitedMoments() const;
  // Where the tasks stand at that time, as the machine itself shows it: told of what is decided just then. Of what is
  // decided at other times only the lines are known.
  void SeeTasks(Nanos time, std::vector<std::string> tasks);
  // The run ends: what is still open is judged. `why` tells what ended it, for the messages of failures; it is
  // not whole when the controller has ended by itself.
  void End(Nanos time, const std::string& why, bool whole);

  // When a moment is or was; nothing: it has not come yet.
  std::optional<Nanos> TimeOf(const Moment& moment) const;
  const std::vector<Outcome>& Outcomes() const { return outcomes_; }

 private:
  void Update();
  bool IsDecided() const;
  void NoteEnd();
  void FindMissing();
  std::string WaitsFor(const Moment& moment) const;
  Trial TrialOf(const Expectation& expectation) const;
  std::optional<Nanos> DeadlineOf(std::size_t index) const;
  void Decide(std::size_t index, Nanos time, const Ruling& ruling);
  std::vector<std::string> Story(const Expectation& expectation) const;
  const Watcher* WatcherOf(int happening) const {
    return happening < 0 ? nullptr : &watchers_[static_cast<std::size_t>(happening)];
  }

  const Scenario& scenario_;
  History history_;
  std::vector<Watcher> watchers_;                // by happening
  std::vector<std::vector<Nanos>> occurrences_;  // by happening
  std::vector<Outcome> outcomes_;                // by expectation
  std::vector<Cycle> cycles_;                    // by expectation
  std::vector<bool> done_;                       // by event
  std::string missing_;                          // the first event that has not come, as Trial has it
  Nanos now_ = 0;
  std::optional<Nanos> end_;
  Nanos tasksAt_ = -1;  // when these stood so
  std::vector<std::string> tasks_;
};

}  // namespace rack::scenario
