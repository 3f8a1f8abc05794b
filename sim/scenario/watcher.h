// Watches one happening: whether it holds, how often it has come, what there is in its place.
#pragma once

#include <string>

#include "scenario/happening_row.h"

namespace rack::scenario {

class Watcher {
 public:
  // The machine as it stands at power-on.
  Watcher(const Happening& happening, const Snapshot& machine, FileNames files);

  void See(const JournalRecord& record);
  // A line on the console.
  void SeeLine(Nanos time, int who, const std::string& line);
  // One of the scenario's events has been done.
  void SeeEvent(Nanos time, const std::string& name);

  // Whether it is so now; false for what happens and is over.
  bool Holds() const { return row_.holds != nullptr && row_.holds(watched_); }
  // How often it has happened since power-on, and when it happened last.
  int Count() const { return watched_.count; }
  Nanos Last() const { return watched_.last; }
  // What there is instead, or why it is so.
  std::string Instead() const { return row_.says(watched_); }

  const Happening& What() const { return watched_.what; }

 private:
  void Happened(Nanos time);

  const HappeningRow& row_;
  Watched watched_;
};

// A time on the run's clock: "1.250 s".
std::string ClockText(Nanos time);

}  // namespace rack::scenario
