// Keys of the machine: how they are pressed, who has seen them, and pressing them from a terminal's keyboard.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "machine/key_names.h"
#include "machine/machine.h"

namespace rack::cli {

// The request that presses a key for so many milliseconds; 0: as long as a person does.
Request PressOf(const Key& key, int holdMillis);
Request ReleaseOf(const Key& key);
// Whether the controller has taken the key that this request pressed.
bool IsTaken(const KeyState& keys, std::uint32_t number);

// How long a key that was taken stays for the tasks to see: from one poll of the keypad to the next.
constexpr Nanos kSeenFor = 110 * kMillisecond;
// A sentence for each task that fell asleep before a key was taken at that time, and still sleeps.
std::vector<std::string> Sleepers(const Snapshot& snapshot, Nanos taken);

// Presses what is typed. A terminal tells of a key that is held down by typing it again and again: the first
// repetition holds the machine's key, the ones that follow renew it. It is let go when they stay away, and when the
// keypad ends.
class Keypad {
 public:
  explicit Keypad(Machine& machine) : machine_(machine) {}
  ~Keypad() { LetGo(); }
  Keypad(const Keypad&) = delete;
  Keypad& operator=(const Keypad&) = delete;

  // A character; one that is no key does nothing.
  void Type(int character);
  // Which keys there are, and what became of the last one.
  std::string Line(const Snapshot& snapshot);

 private:
  void LetGo();
  std::string Outcome(const Snapshot& snapshot);

  Machine& machine_;
  std::optional<Key> last_;
  std::uint32_t number_ = 0;  // of the request that pressed it
  std::string error_;         // why it was not sent
  Nanos typedAt_ = 0;         // real time
  Nanos takenAt_ = 0;         // the machine's time, 0: not yet
  std::string told_;          // who slept through it, once that is known
};

}  // namespace rack::cli
