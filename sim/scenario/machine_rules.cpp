#include "scenario/machine_rules.h"

#include <algorithm>
#include <memory>
#include <optional>

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

std::string PlaceOf(const std::string& path, const PlacedText& text) {
  return path + ":" + std::to_string(text.line) + ":" + std::to_string(text.column) + ": ";
}

// What goes on: also a counter without a number, each time it counts.
HappeningChoice JudgeGoesOn(const std::string& text, const Snapshot& machine) {
  const std::vector<std::string> words = Split(text);
  const auto isIt = [&](const CounterView& counter) { return text == "counter " + counter.name; };
  const bool isAnyCount = std::any_of(machine.counters.begin(), machine.counters.end(), isIt) ||
                          (words.size() == 2 && words[0] == "counter");
  HappeningChoice choice = ParseHappening(isAnyCount ? text + " 1..4294967295" : text, machine, {});
  choice.happening.text = text;
  return choice;
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
    if (!choice.error.empty()) errors.push_back(PlaceOf(path, happening) + choice.error);
  }
  return rule;
}

}  // namespace

ExploreChoice ChooseExplore(const Exploration& text, const Snapshot& machine,
                            std::vector<PlacedText>& wrong) {
  ExploreChoice choice{text, {}, {}};
  if (text.goesOn) {
    const HappeningChoice goesOn = JudgeGoesOn(text.goesOn->text, machine);
    choice.goesOn = goesOn.happening;
    if (!goesOn.error.empty()) wrong.push_back({goesOn.error, text.goesOn->line, text.goesOn->column});
  }
  if (!text.wayBack) return choice;
  for (const WayBackKey& step : *text.wayBack) {
    const std::string& name = step.name.text;
    const std::optional<Key> key = FindKey(name);
    if (key) {
      choice.wayBack.push_back(*key);
      continue;
    }
    const std::string error = "there is no key " + InQuotes(name) + Suggestion(name, KeyNames());
    wrong.push_back({error, step.name.line, step.name.column});
  }
  return choice;
}

bool ReadRackWithRules(const std::string& path, RackWithRules& rack, std::vector<std::string>& errors,
                       std::vector<TimeChange>* changes) {
  if (!ReadRackFile(path, rack.setup, errors, &rack.notes, changes)) return false;
  const std::size_t before = errors.size();
  const auto state = std::make_unique<RackState>();
  PowerOn(*state, rack.setup, 0);
  const Snapshot machine = SnapshotOf(state->image, state->live);
  for (const RuleText& text : rack.notes.rules) rack.rules.push_back(RuleOf(text, machine, path, errors));
  std::vector<PlacedText> wrong;
  rack.explore = ChooseExplore(rack.notes.explore, machine, wrong);
  for (const PlacedText& each : wrong) errors.push_back(PlaceOf(path, each) + each.text);
  return errors.size() == before;
}

}  // namespace rack::scenario
