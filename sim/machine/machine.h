// A machine's directory as the subcommands see it: its state file, requests to it, its picture at this
// moment.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "machine/snapshot.h"
#include "rack/journal.h"
#include "rack/state.h"

namespace rack {

// Files of a run, below the machine's directory.
std::string RunDirectory(const std::string& machine);
std::string StatePath(const std::string& machine);
std::string LockPath(const std::string& machine);

// Cards, signals, counters and faults as they stand at the time that the machine has been worked out to; no
// tasks.
Snapshot SnapshotOf(const RackImage& image, RackLive& live);

// Whether the tasks are in step mode, followed by the keys that the controller took: Plus turns it on, Dec
// off, Enter only where no Plus came since the last Dec.
class StepFollower {
 public:
  void See(const JournalRecord& record);
  bool On() const { return step_; }

 private:
  bool step_ = false;
  bool latch_ = false;
};

class Machine {
 public:
  // Opens the machine of a directory; without one, that of the environment variable VELMO_MACHINE or the
  // working directory. The text says why it is none.
  std::string Open(const std::string& directory);

  const std::string& Directory() const { return directory_; }
  RackState& State() const { return *file_.State(); }

  // Whether a controller runs on this rack.
  bool Running() const;
  // Whether the machine was switched off and on again since Open.
  bool Replaced() const { return file_.Replaced(); }
  // Now, on the rack's clock.
  Nanos Now() const;

  // How things stand at this moment.
  Snapshot Take();
  // A steady copy of what the controller's side keeps changing, as of its last bus access.
  const RackLive& Live();

  // Gives a command to the machine's time; its number, for Stands.
  std::uint32_t Give(const TimeCommand& command);

  // Whether its time stands.
  bool Standing() const { return State().time.standing != 0; }

  // Sends a request and waits until the controller's side has applied it. The text says why it was not;
  // number, where given, gets the request's number.
  std::string Ask(const Request& request, std::uint32_t* number = nullptr);

 private:
  std::string directory_;
  StateFile file_;
  std::unique_ptr<RackLive> live_;
  std::optional<JournalReader> keys_;
  StepFollower step_;
};

// Sleeps a while between two looks at a state file.
void Doze(int millis);

}  // namespace rack
