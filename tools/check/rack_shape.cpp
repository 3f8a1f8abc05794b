#include "check/rack_shape.h"

#include <filesystem>
#include <memory>

namespace check {

namespace {

bool IsInput(const rack::SignalRef& signal) {
  return signal.kind == rack::SignalKind::Input;
}

void AddStop(const rack::PlantLink& link, RackShape* shape) {
  if (link.when != rack::Condition::Signal || !IsInput(link.source)) return;
  // A card that takes no stop input from the program has one for each motor.
  const bool isOwn = shape->entries[link.stopEntry]->LeavesUnused(MOT_ExtStopCH);
  shape->axisInputs.push_back({link.stopEntry, isOwn ? link.stopChannel : kAnyChannel, false,
                               link.source.entry, link.source.channel, false});
}

void AddSwitch(const rack::PlantLink& link, RackShape* shape) {
  const bool isMotor = link.when == rack::Condition::MotorWithin;
  if ((!isMotor && link.when != rack::Condition::CylinderStands) || !IsInput(link.target)) return;
  shape->axisInputs.push_back({link.entry, link.channel, !isMotor, link.target.entry, link.target.channel,
                               link.then == rack::Effect::Arrive});
}

void AddAxisInputs(const rack::PlantState& plant, RackShape* shape) {
  for (std::uint32_t i = 0; i < plant.linkCount; ++i) {
    const rack::PlantLink& link = plant.links[i];
    switch (link.then) {
      case rack::Effect::Stop:
        AddStop(link, shape);
        break;
      case rack::Effect::Follow:
      case rack::Effect::Arrive:
        AddSwitch(link, shape);
        break;
      case rack::Effect::Count:
        break;
    }
  }
}

}  // namespace

std::optional<RackShape> ReadRackShape(const std::string& path, std::vector<std::string>* errors,
                                       rack::RackNotes* notes) {
  const auto read = std::make_shared<rack::scenario::RackWithRules>();
  const bool isRight = rack::scenario::ReadRackWithRules(path, *read, *errors);
  *notes = read->notes;
  if (!isRight) return std::nullopt;
  const rack::RackSetup* const setup = &read->setup;
  RackShape shape;
  shape.path = std::filesystem::path(path).lexically_normal().string();
  shape.file = read;
  const rack::CpuCardState& cpu = setup->image.cards[0].cpu;
  shape.tasks = cpu.taskCount;
  shape.functionPort = cpu.functionPort;
  shape.hasDevice = setup->image.device != rack::DeviceName::None;
  for (std::uint32_t entry = 0; entry < setup->image.entryCount; ++entry) {
    const rack::CardKind kind = setup->image.cards[setup->image.entrySlot[entry]].kind;
    shape.entries.push_back(&rack::CommandsOf(kind));
  }
  AddAxisInputs(setup->plant, &shape);
  return shape;
}

}  // namespace check
