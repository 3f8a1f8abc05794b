#include "scenario/machine_rules.h"

#include <memory>

#include "machine/machine.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

// Whether a form wants states, which can hold at the same time, and not what happens and is over.
bool WantsStates(RuleForm form) {
  switch (form) {
    case RuleForm::NeverTogether:
    case RuleForm::Always:
      return true;
    case RuleForm::Comes:
      return false;
  }
  return false;
}

// The happening of a text, or why it is none.
HappeningChoice Judge(const std::string& text, RuleForm form, const Snapshot& machine) {
  HappeningChoice choice = ParseHappening(text, machine, {});
  if (choice.error.empty() && WantsStates(form) && !IsState(choice.happening.kind))
    choice.error = InQuotes(text) + " happens and is over; a state that lasts is wanted here";
  return choice;
}

MachineRule RuleOf(const RuleText& text, const Snapshot& machine, const std::string& path,
                   std::vector<std::string>& errors) {
  MachineRule rule;
  rule.name = text.name.text;
  rule.line = static_cast<int>(text.name.line);
  rule.column = static_cast<int>(text.name.column);
  rule.form = text.form;
  rule.time = text.time;
  for (const PlacedText& happening : text.happenings) {
    const HappeningChoice choice = Judge(happening.text, text.form, machine);
    rule.happenings.push_back(choice.happening);
    if (choice.error.empty()) continue;
    errors.push_back(path + ":" + std::to_string(happening.line) + ":" + std::to_string(happening.column) +
                     ": " + choice.error);
  }
  return rule;
}

}  // namespace

bool ReadRackWithRules(const std::string& path, RackWithRules& rack, std::vector<std::string>& errors) {
  if (!ReadRackFile(path, rack.setup, errors, &rack.notes)) return false;
  const std::size_t before = errors.size();
  const auto state = std::make_unique<RackState>();
  PowerOn(*state, rack.setup, 0);
  const Snapshot machine = SnapshotOf(state->image, state->live);
  for (const RuleText& text : rack.notes.rules) rack.rules.push_back(RuleOf(text, machine, path, errors));
  return errors.size() == before;
}

}  // namespace rack::scenario
