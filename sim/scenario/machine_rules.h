// The rules of a machine, [[rule]] of its rack file: what must hold at every moment; and how it is
// explored, [explore] of the rack file or of a scenario.
#pragma once

#include <string>
#include <vector>

#include "machine/key_names.h"
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

// An [explore] as it is meant on a machine.
struct ExploreChoice {
  Exploration text;
  Happening goesOn;          // where the text has one; "counter NAME" is each time it counts
  std::vector<Key> wayBack;  // the keys of the text's list, in their order
};

// Judges the happening and the keys of an [explore]. What is wrong with them stands in `wrong`, each with its place.
ExploreChoice ChooseExplore(const Exploration& text, const Snapshot& machine, std::vector<PlacedText>& wrong);

// What a rack file says, its rules included.
struct RackWithRules {
  RackSetup setup{};
  RackNotes notes;
  std::vector<MachineRule> rules;
  ExploreChoice explore;
};

// Reads a rack file and judges the happenings of its rules and of [explore]. False when something is wrong:
// `errors` then holds one line for each finding, and the changes what is wrong with them, as ReadRackFile has it.
bool ReadRackWithRules(const std::string& path, RackWithRules& rack, std::vector<std::string>& errors,
                       std::vector<TimeChange>* changes = nullptr);

}  // namespace rack::scenario
