#include "check/rack_shape.h"

#include <memory>

namespace check {

std::optional<RackShape> ReadRackShape(const std::string& path, std::vector<std::string>* errors,
                                       rack::RackNotes* notes) {
  const auto setup = std::make_unique<rack::RackSetup>();
  if (!rack::ReadRackFile(path, *setup, *errors, notes)) return std::nullopt;
  RackShape shape;
  shape.tasks = setup->image.cards[0].cpu.taskCount;
  for (std::uint32_t entry = 0; entry < setup->image.entryCount; ++entry) {
    const rack::CardKind kind = setup->image.cards[setup->image.entrySlot[entry]].kind;
    shape.entries.push_back(&rack::CommandsOf(kind));
  }
  return shape;
}

}  // namespace check
