// velmo-rack key
#include <cstdio>

#include "cli/commands.h"
#include "cli/keypad.h"
#include "cli/stop_signals.h"
#include "machine/key_names.h"
#include "machine/machine.h"
#include "machine/supervise.h"
#include "toml/words.h"

namespace rack::cli {

namespace {

constexpr int kLookMillis = 2;
constexpr int kTurnMillis = 20;

// Waits until every task that is awake has seen the key, and tells those that have slept through it.
void TellSleepers(Machine& machine, const Key& key, Nanos taken) {
  const Nanos limit = MonotonicNow() + kTakenLimit;
  const Nanos seen = machine.Now() + kSeenFor;
  while (machine.Now() < seen && machine.Running() && !machine.Standing() && MonotonicNow() < limit) Doze(2);
  for (const std::string& sentence : Sleepers(machine.Take(), taken))
    std::printf("%s: %s\n", key.name, sentence.c_str());
}

// Waits until whoever presses keys at the moment is through.
std::string AwaitTurn(const Machine& machine, std::optional<MachineLock>& turn, const StopSignals& stop) {
  for (;;) {
    turn.emplace(TurnPath(machine.Directory()));
    if (turn->Held() || !turn->Error().empty()) return "";
    if (!machine.Running()) return "the machine in " + machine.Directory() + " does not run";
    if (stop.Within(kTurnMillis)) return "stopped, no key was pressed";
  }
}

// Presses one key and waits until the controller has taken it and the finger is off again.
std::string Press(Machine& machine, const Key& key, int holdMillis, const StopSignals& stop) {
  const Request request = PressOf(key, holdMillis);
  std::uint32_t number = 0;
  std::string error = machine.Ask(request, &number);
  if (!error.empty()) return error;
  const Nanos limit = MonotonicNow() + request.duration + kTakenLimit;
  Nanos takenAt = 0;
  for (;;) {
    const KeyState& keys = machine.Live().keys;
    const bool taken = IsTaken(keys, number);
    if (taken && takenAt == 0) takenAt = machine.Now();
    if (taken && !IsHeld(keys)) {
      TellSleepers(machine, key, takenAt);
      return "";
    }
    if (machine.Standing()) {
      std::printf("%s: waits for time to go on\n", key.name);
      return "";
    }
    if (!machine.Running()) return "the controller ended before it took the key";
    if (MonotonicNow() > limit)
      return taken ? "the key is still held" : "the controller has not taken the key";
    if (!stop.Within(kLookMillis)) continue;
    machine.Send(ReleaseOf(key), number);
    return "stopped, the key is let go";
  }
}

}  // namespace

int PressKeys(const KeyOptions& options) {
  std::vector<Key> keys;
  for (const std::string& name : options.names) {
    const std::optional<Key> key = FindKey(name);
    if (!key) {
      return Complain(kWrongUse, "there is no key \"" + name + "\"" + Suggestion(name, KeyNames()) +
                                     " (keys: " + Join(KeyNames(), " ") + ")");
    }
    keys.push_back(*key);
  }
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  const StopSignals stop;
  std::optional<MachineLock> turn;
  const std::string notOurs = AwaitTurn(machine, turn, stop);
  if (!notOurs.empty()) return Complain(kFailed, notOurs);
  for (const Key& key : keys) {
    const std::string error = Press(machine, key, options.holdMillis, stop);
    if (!error.empty()) return Complain(kFailed, std::string(key.name) + ": " + error);
  }
  return kDone;
}

}  // namespace rack::cli
