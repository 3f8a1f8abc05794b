// What the checker must know of a rack: the rows of the card table, the CPU card's switches, the signals.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "machine/card_commands.h"

namespace check {

struct RackShape {
  std::vector<const rack::CardCommands*> entries;
  int tasks = 0;  // the switch of the CPU card
  bool hasDevice = true;
  int functionPort = 0;  // of the function keys; 0: there is none
};

// Nothing when the rack file is wrong; error says why.
std::optional<RackShape> ReadRackShape(const std::string& path, std::string* error);

}  // namespace check
