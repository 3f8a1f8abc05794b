// What the checker must know of a rack: the rows of the card table, the CPU card's switches, the signals.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "machine/card_commands.h"
#include "scenario/machine_rules.h"

namespace check {

// An input that tells where an axis is, or stops it.
struct AxisInput {
  int slot;
  int channel;  // kAnyChannel: a stop input that each motor of the card can use
  bool isCylinder;
  int inputSlot;
  int inputChannel;
  bool isArrival;  // of a part, which tells only that the axis was there
};
constexpr int kAnyChannel = -1;

struct RackShape {
  std::vector<const rack::CardCommands*> entries;
  std::vector<AxisInput> axisInputs;
  int tasks = 0;  // the switch of the CPU card
  bool hasDevice = true;
  int functionPort = 0;  // of the function keys; 0: there is none
  std::string path;
  std::shared_ptr<const rack::scenario::RackWithRules> file;  // all that it says
};

// Nothing when the rack file is wrong; a line for each error says why. The notes hold what could be read.
std::optional<RackShape> ReadRackShape(const std::string& path, std::vector<std::string>* errors,
                                       rack::RackNotes* notes);

}  // namespace check
