// The rack file: what stands in the rack and what hangs on the cards, in TOML.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "rack/state.h"

namespace rack {

// A word of the rack file, for messages and displays. Table "" is the top of the file; [[x]] tables go by
// their name.
struct RackWord {
  const char* table;
  const char* word;
  const char* meaning;
};
const std::vector<RackWord>& RackWords();

// What a rack file says to the tools, beside the rack itself.
struct RackNotes {
  // A rule of the program checker that is to say nothing about this machine. The checker knows which there are.
  struct IgnoredRule {
    std::string name;
    std::size_t line;  // of the rack file, counted from 1
    std::size_t column;
  };
  std::vector<IgnoredRule> ignored;
};

// Reads a rack file, with what it says to the tools where that is wanted. False when something is wrong: `errors` then holds one line for each finding,
// "file:line:column: message", and the setup is not to be used.
bool ReadRackFile(const std::string& path, RackSetup& setup, std::vector<std::string>& errors,
                  RackNotes* notes = nullptr);

// The same for a text that is called `name` in messages.
bool ReadRackText(const std::string& text, const std::string& name, RackSetup& setup,
                  std::vector<std::string>& errors, RackNotes* notes = nullptr);

// "0.5": entry and channel. False for anything else.
bool ParseAddress(const std::string& text, int& entry, int& channel);

}  // namespace rack
