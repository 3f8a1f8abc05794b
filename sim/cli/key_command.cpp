// velmo-rack key
#include <cstdio>

#include "cli/commands.h"
#include "machine/key_names.h"
#include "machine/machine.h"
#include "toml/words.h"

namespace rack::cli {

namespace {

// A tap on the keypad, and a press on a function key, which the controller sees only while it is held: longer
// than two of its polls.
constexpr int kTapMillis = 60;
constexpr int kFunctionMillis = 250;
constexpr Nanos kTakenLimit = 10 * kSecond;

bool Taken(const KeyState& keys, std::uint32_t number) {
  return keys.pressCount != 0 && keys.pressRequest == number && keys.takenRequest == number;
}

bool Held(const KeyState& keys) {
  return keys.code != 0 || keys.functionBits != 0;
}

// Presses one key and waits until the controller has taken it and the finger is off again.
std::string Press(Machine& machine, const Key& key, int holdMillis) {
  Request request{};
  request.kind = key.function ? RequestKind::PressFunctionKeys : RequestKind::PressKey;
  request.value = key.code;
  const int usual = key.function ? kFunctionMillis : kTapMillis;
  request.duration = (holdMillis > 0 ? holdMillis : usual) * kMillisecond;
  std::uint32_t number = 0;
  std::string error = machine.Ask(request, &number);
  if (!error.empty()) return error;
  const Nanos limit = MonotonicNow() + request.duration + kTakenLimit;
  for (;;) {
    const KeyState& keys = machine.Live().keys;
    const bool taken = Taken(keys, number);
    if (taken && !Held(keys)) return "";
    if (machine.Standing()) {
      std::printf("%s: waits for time to go on\n", key.name);
      return "";
    }
    if (!machine.Running()) return "the controller ended before it took the key";
    if (MonotonicNow() > limit)
      return taken ? "the key is still held" : "the controller has not taken the key";
    Doze(2);
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
  for (const Key& key : keys) {
    const std::string error = Press(machine, key, options.holdMillis);
    if (!error.empty()) return Complain(kFailed, std::string(key.name) + ": " + error);
  }
  return kDone;
}

}  // namespace rack::cli
