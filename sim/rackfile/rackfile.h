// The rack file: what stands in the rack and what hangs on the cards, in TOML.
#pragma once

#include <string>
#include <vector>

#include "rack/state.h"
#include "rackfile/exploration.h"

namespace rack {

// A word of the rack file, for messages and displays. Table "" is the top of the file; [[x]] tables go by
// their name.
struct RackWord {
  const char* table;
  const char* word;
  const char* meaning;
};
const std::vector<RackWord>& RackWords();

enum class RuleForm {
  NeverTogether,  // never_together, for
  Always,         // while, always
  Comes           // after, comes, within
};

// A [[rule]] as it is written. What can happen on a machine is judged where happenings are read.
struct RuleText {
  PlacedText name;
  RuleForm form = RuleForm::NeverTogether;
  std::vector<PlacedText> happenings;  // in the order of the words above
  Nanos time = 0;                      // `for` or `within`
};

// What a rack file says to the tools beside the rack.
struct RackNotes {
  // Rules of the program checker that are to say nothing about this machine. The checker knows which there are.
  std::vector<PlacedText> ignored;
  std::vector<RuleText> rules;
  Exploration explore;
  PlacedText functionPort;  // as in the file; line 0: it says nothing of one
};

// A time that a scenario sets in place of the rack file's.
struct TimeChange {
  std::string row;  // a card by its name, else its slot; a valve by its sensor, an arrival by its input
  std::string word;
  Nanos time = 0;
  int uses = 0;       // rows that it fits
  std::string error;  // what the rack file has against it
};

// Reads a rack file. False when something is wrong: `errors` then holds one line for each finding,
// "file:line:column: message", and the setup is not to be used. What is wrong with a change stands in it, and
// the file's own time is taken.
bool ReadRackFile(const std::string& path, RackSetup& setup, std::vector<std::string>& errors,
                  RackNotes* notes = nullptr, std::vector<TimeChange>* changes = nullptr);

// The same for a text that is called `name` in messages.
bool ReadRackText(const std::string& text, const std::string& name, RackSetup& setup,
                  std::vector<std::string>& errors, RackNotes* notes = nullptr);

// "0.5": entry and channel. False for anything else.
bool ParseAddress(const std::string& text, int& entry, int& channel);

}  // namespace rack
