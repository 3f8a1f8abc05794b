// The rack file: what stands in the rack and what hangs on the cards, in TOML.
#pragma once

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

// Reads a rack file. False when something is wrong: `errors` then holds one line for each finding,
// "file:line:column: message", and the setup is not to be used.
bool ReadRackFile(const std::string& path, RackSetup& setup, std::vector<std::string>& errors);

// The same for a text that is called `name` in messages.
bool ReadRackText(const std::string& text, const std::string& name, RackSetup& setup,
                  std::vector<std::string>& errors);

// "0.5": entry and channel. False for anything else.
bool ParseAddress(const std::string& text, int& entry, int& channel);

}  // namespace rack
