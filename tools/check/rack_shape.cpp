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
  shape.Tasks = setup->Cards[0].Cpu.TaskCount;
  for (std::uint32_t entry = 0; entry < setup->Image.EntryCount; ++entry) {
    const rack::CardKind kind = setup->Cards[setup->Image.EntrySlot[entry]].Kind;
    shape.Entries.push_back(&CardTypeOf(kind));
  }
  return shape;
}

}  // namespace check
