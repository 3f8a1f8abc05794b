// The rules of a machine, [[rule]] of its rack file: what must hold at every moment.
#pragma once

#include <string>
#include <vector>

#include "rackfile/rackfile.h"
#include "scenario/happening.h"

namespace rack::scenario {

struct MachineRule {
  std::string name;
  int line = 0;  // of its name in the rack file
  int column = 0;
  RuleForm form = RuleForm::NeverTogether;
  std::vector<Happening> happenings;  // as in RuleText
  Nanos time = 0;
};

// What a rack file says, its rules included.
struct RackWithRules {
  RackSetup setup{};
  RackNotes notes;
  std::vector<MachineRule> rules;
};

// Reads a rack file and judges the happenings of its rules. False when something is wrong: `errors` then holds
// one line for each finding, as ReadRackFile has them.
bool ReadRackWithRules(const std::string& path, RackWithRules& rack, std::vector<std::string>& errors);

}  // namespace rack::scenario
