#include "check/rack_shape.h"

#include <memory>

#include "rackfile/rackfile.h"

namespace check {

std::optional<RackShape> ReadRackShape(const std::string& path, std::string* error) {
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  if (!rack::ReadRackFile(path, *setup, errors)) {
    for (const std::string& line : errors) *error += line + "\n";
    return std::nullopt;
  }
  RackShape shape;
  const rack::CpuCardState& cpu = setup->image.cards[0].cpu;
  shape.tasks = cpu.taskCount;
  shape.functionPort = cpu.functionPort;
  shape.hasDevice = setup->image.device != rack::DeviceName::None;
  for (std::uint32_t entry = 0; entry < setup->image.entryCount; ++entry) {
    const rack::CardKind kind = setup->image.cards[setup->image.entrySlot[entry]].kind;
    shape.entries.push_back(&rack::CommandsOf(kind));
  }
  return shape;
}

}  // namespace check
