// What the checker must know of a rack: the rows of the card table and the number of tasks.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "machine/card_commands.h"
#include "rackfile/rackfile.h"

namespace check {

struct RackShape {
  std::vector<const rack::CardCommands*> entries;
  int tasks = 0;  // 0: not known
};

// Nothing when the rack file is wrong; a line for each error says why. The notes hold what could be read.
std::optional<RackShape> ReadRackShape(const std::string& path, std::vector<std::string>* errors,
                                       rack::RackNotes* notes);

}  // namespace check
