#include "check/rack_shape.h"

#include <memory>

namespace check {

std::optional<RackShape> ReadRackShape(const std::string& path, std::string* error) {
  const auto read = std::make_shared<rack::scenario::RackWithRules>();
  const rack::RackSetup* const setup = &read->setup;
  std::vector<std::string> errors;
  if (!rack::scenario::ReadRackWithRules(path, *read, errors)) {
    for (const std::string& line : errors) *error += line + "\n";
    return std::nullopt;
  }
  RackShape shape;
  shape.path = path;
  shape.file = read;
  shape.tasks = setup->image.cards[0].cpu.taskCount;
  for (std::uint32_t entry = 0; entry < setup->image.entryCount; ++entry) {
    const rack::CardKind kind = setup->image.cards[setup->image.entrySlot[entry]].kind;
    shape.entries.push_back(&rack::CommandsOf(kind));
  }
  return shape;
}

}  // namespace check
