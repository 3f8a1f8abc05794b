// [explore] of a rack file or a scenario: what may happen when a machine is explored, and when it goes on.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "toml/toml_reader.h"

namespace rack {

// A text of a file that others can judge, and where it stands.
struct PlacedText {
  std::string text;
  std::size_t line = 0;  // counted from 1
  std::size_t column = 0;
};

// What can be done to a machine, each with its word in exploration.cpp.
enum class Disturbance {
  Order,     // of threads
  Times,     // of travels, delays and arrivals
  Bounce,    // of a sensor
  Late,      // a sensor
  Stuck,     // a sensor
  Alarm,     // of a cylinder
  Jams,      // a cylinder
  Blocked,   // a motor
  Loses,     // a motor, steps
  Silent,    // a motor's end is not told
  Pulled,    // a card
  Bus,       // that answers nothing
  Keys,      // of an operator
  Step,      // step mode in the middle
  Restart,   // asked for
  Datagram,  // sent to the controller
  Hand,      // that switches an input
  Count
};
const char* WordOf(Disturbance disturbance);

// A key that is pressed on the way back to production.
struct WayBackKey {
  PlacedText name;
  std::optional<Nanos> pause;  // since the key before, where the list says so
};

struct KnownFind {
  std::string find;
  std::string reason;
};

// Each word that is given. Keys, and what can happen on a machine, are judged where those are known.
struct Exploration {
  std::optional<std::vector<Disturbance>> leaveOut;
  std::optional<PlacedText> goesOn;
  std::optional<Nanos> within;
  std::optional<std::vector<WayBackKey>> wayBack;
  std::optional<std::vector<KnownFind>> known;
};

// This one, with what the other says in place of it, word by word.
Exploration ReplacedBy(const Exploration& exploration, const Exploration& other);

// Reads files that may have an [explore].
class ExploringReader : public TomlReader {
 protected:
  using TomlReader::TomlReader;
  ~ExploringReader() = default;

  static PlacedText Placed(const Value& value, const std::string& text);
  // The [explore] of the root, if there is one.
  void ReadExploration(const Value& root, Exploration& exploration);

 private:
  void ReadLeaveOut(const Value& list, Exploration& exploration);
  void ReadGoesOn(const Value& value, Exploration& exploration);
  void ReadWayBack(const Value& list, Exploration& exploration);
  void ReadKnown(const Value& list, Exploration& exploration);
  bool NeedText(const Value& owner, const std::string& word, std::string& text);
};

}  // namespace rack
