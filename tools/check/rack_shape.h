// What the checker must know of a rack: the rows of the card table and the number of tasks.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "machine/card_commands.h"
#include "scenario/machine_rules.h"

namespace check {

struct RackShape {
  std::vector<const rack::CardCommands*> entries;
  int tasks = 0;  // 0: not known
  std::string path;
  std::shared_ptr<const rack::scenario::RackWithRules> file;  // all that it says
};

// Nothing when the rack file is wrong; error says why.
std::optional<RackShape> ReadRackShape(const std::string& path, std::string* error);

}  // namespace check
