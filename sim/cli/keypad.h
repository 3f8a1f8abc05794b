// Keys of the machine: how they are pressed, who has seen them, and pressing them from a terminal's keyboard.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "machine/key_names.h"
#include "machine/machine.h"
#include "machine/supervise.h"

namespace rack::cli {

// The request that presses a key for so many milliseconds; 0: as long as a person does.
Request PressOf(const Key& key, int holdMillis);
Request ReleaseOf(const Key& key);
// Whether the controller has taken the key that this request pressed.
bool IsTaken(const KeyState& keys, std::uint32_t number);
bool IsHeld(const KeyState& keys);

// How long a key that was taken stays for the tasks to see: from one poll of the keypad to the next.
constexpr Nanos kSeenFor = 110 * kMillisecond;
// A sentence for each task that fell asleep before a key was taken at that time, and still sleeps.
std::vector<std::string> Sleepers(const Snapshot& snapshot, Nanos taken);

// Whoever presses keys holds the lock on this file from the first press until the last key is let go: each press would take
// the other's key away.
std::string TurnPath(const std::string& machine);
constexpr Nanos kTakenLimit = 10 * kSecond;  // real time in which the controller should have taken a key

// Presses what is typed, in turn with the other commands that press keys. A terminal tells of a key that is held down by
// typing it again and again: the first repetition holds the machine's key, the ones that follow renew it. It is let go when
// they stay away, and when the keypad ends.
class Keypad {
 public:
  explicit Keypad(Machine& machine) : machine_(machine) {}
  ~Keypad() { LetGo(); }
  Keypad(const Keypad&) = delete;
  Keypad& operator=(const Keypad&) = delete;

  // A character; one that is no key does nothing.
  void Type(int character);
  // Presses the key whose turn has come. To be called again and again.
  void Advance();
  // Which keys there are, and what became of the last one.
  std::string Line(const Snapshot& snapshot);

 private:
  struct Typed {
    Key key;
    int holdMillis;  // 0: as long as a person does
  };

  bool Repeats(const Key& key, Nanos now) const;
  bool TakeTurn();
  void Press(const Typed& typed);
  bool IsThrough();
  void NoteTaken(Nanos now);
  void LetGo();
  std::string Outcome(const Snapshot& snapshot);

  Machine& machine_;
  std::deque<Typed> waiting_;        // for their turn
  std::optional<MachineLock> turn_;  // while a key is pressed
  std::optional<Key> typed_;         // last
  std::optional<Key> pressed_;       // last
  std::uint32_t number_ = 0;         // of the request that pressed it
  std::string error_;                // why it was not sent
  Nanos typedAt_ = 0;                // real time
  Nanos limit_ = 0;                  // real time at which its turn ends, taken or not
  Nanos takenAt_ = 0;                // the machine's time, 0: not yet
  std::string told_;                 // who slept through it, once that is known
};

}  // namespace rack::cli
