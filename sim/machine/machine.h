// A machine's directory as the subcommands see it: its state file, requests to it, its picture at this
// moment.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "machine/snapshot.h"
#include "machine/trace_text.h"
#include "rack/journal.h"
#include "rack/requests.h"
#include "rack/state.h"

namespace rack {

// Files of a run, below the machine's directory.
std::string RunDirectory(const std::string& machine);
std::string StatePath(const std::string& machine);
std::string LockPath(const std::string& machine);

// Cards, signals, counters and faults as they stand at the time that the machine has been worked out to; no
// tasks.
Snapshot SnapshotOf(const RackImage& image, RackLive& live);

// The same at power-on, before anything happened: the cards of this rack as power finds them.
Snapshot PowerOnSnapshot(const RackImage& image, const RackLive& live);

// What became of a request.
struct RequestAnswer {
  enum class State { Pending, Done, Refused };
  State state = State::Pending;
  std::string text;  // why it was refused
};
RequestAnswer AnswerOf(const RequestRing& requests, std::uint32_t number);

// Open comes first. Then any number of threads may ask at the same time (Send, Answer, Await, Ask, Give, and
// Running, Replaced, Now, Standing), while one looks: Take, Recorded and Live share a copy and are called by one
// thread at a time. A second thread that looks opens a machine of its own.
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
  // Whether its time stands.
  bool Standing() const { return State().time.standing != 0; }

  // How things stand at this moment.
  Snapshot Take();
  // How they stood at the controller's last bus access: up to there the journal tells of everything.
  Snapshot Recorded();
  // A steady copy of what the controller's side keeps changing, as of its last bus access.
  const RackLive& Live();

  // What a reader of the journal that must lose nothing takes a slot in; null where nobody waits for readers.
  ReaderTable* Readers() const {
    return State().time.setup.mode == TimeMode::Virtual ? &State().readers : nullptr;
  }

  // Names a program file by its number. A name stands in the state before the first record with its number does, and
  // never changes.
  FileNames Files() const;

  // Gives a command to the machine's time; its number, for Stands.
  std::uint32_t Give(const TimeCommand& command) const;

  // Sends a request and yields its number, for Answer and Await. The text says why it was not sent.
  std::string Send(const Request& request, std::uint32_t& number) const;
  // What has become of a request by now. Pending until a controller has come to it, also one that is started
  // later; see ResultOf for how long an answer is kept.
  RequestAnswer Answer(std::uint32_t number) const { return AnswerOf(State().requests, number); }
  // Waits until the controller's side has applied a request. The text says why it was not.
  std::string Await(std::uint32_t number) const;
  // Send and Await. The number, where wanted, is set once the request is sent.
  std::string Ask(const Request& request, std::uint32_t* number = nullptr) const;

 private:
  Snapshot View(bool running);

  std::string directory_;
  StateFile file_;
  std::unique_ptr<RackLive> live_;
  std::uint32_t configuredFor_ = 0;  // start of the controller whose Velmo.conf was read
  int configuredPort_ = 0;
};

FileNames FileNamesOf(const RackState& state);

// Sleeps a while between two looks at a state file.
void Doze(int millis);

}  // namespace rack
