// Watches one happening: whether it holds, how often it has come, what there is in its place.
#pragma once

#include <string>

#include "machine/trace_text.h"
#include "rack/journal.h"
#include "scenario/happening.h"

namespace rack::scenario {

class Watcher {
 public:
  // The machine as it stands at power-on. `files` names a program file by its number.
  Watcher(const Happening& happening, const Snapshot& machine, FileNames files);

  void See(const JournalRecord& record);
  // A line on the console.
  void SeeLine(Nanos time, int who, const std::string& line);
  // One of the scenario's events has been done.
  void SeeEvent(Nanos time, const std::string& name);

  // Whether it is so now; false for what happens and is over.
  bool Holds() const;
  // How often it has happened since power-on, and when it happened last.
  int Count() const { return count_; }
  Nanos Last() const { return last_; }
  // What there is instead, or why it is so: "clamped (1.1) is off since 1.250 s".
  std::string Instead() const;

  const Happening& What() const { return happening_; }

 private:
  void Take(Nanos time, std::int64_t value);
  void Happened(Nanos time);
  bool InRange(std::int64_t value) const { return value >= happening_.low && value <= happening_.high; }
  bool Mine(const JournalRecord& record) const {
    return record.slot == happening_.slot && record.port == happening_.channel;
  }
  void SeeMotor(const JournalRecord& record);

  Happening happening_;
  FileNames files_;
  std::string label_;       // what it is about: "clamped (1.1)"
  std::int64_t value_ = 0;  // level, position, count, number of pulses
  bool moving_ = false;     // of a motor
  bool standing_ = true;    // of a cylinder: in position
  bool alarm_ = false;      // of a cylinder
  bool known_ = true;       // there is a value
  Nanos since_ = 0;         // when the value became what it is
  int count_ = 0;
  Nanos last_ = 0;
};

// A time on the run's clock: "1.250 s".
std::string ClockText(Nanos time);

}  // namespace rack::scenario
