#include "machine/faults.h"

#include <algorithm>

#include "machine/signals.h"
#include "toml/words.h"

namespace rack {

namespace {

enum class Target { None, Card, Input, Motor, Cylinder };
enum class Value { None, Level, Number };

struct Row {
  const char* word;
  FaultKind kind;
  Target target;
  Value value;
  int usualValue;  // of a number that is not given
  const char* usage;
  const char* effect;
};

constexpr Row kRows[] = {
    {"pulled", FaultKind::CardPulled, Target::Card, Value::None, 0, "pulled ENTRY",
     "the card is out: reads give 0xFF, writes are lost"},
    {"stuck", FaultKind::InputStuck, Target::Input, Value::Level, 0, "stuck SIGNAL on|off",
     "the input shows this level whatever the machine does"},
    {"alarm", FaultKind::CylinderAlarm, Target::Cylinder, Value::Number, 0, "alarm ENTRY.CHANNEL [COUNT]",
     "the cylinder goes into alarm and again after that many resets"},
    {"blocked", FaultKind::MotorBlocked, Target::Motor, Value::None, 0, "blocked ENTRY.CHANNEL",
     "pulses come, the motor stands still"},
    {"loses", FaultKind::MotorLosesSteps, Target::Motor, Value::Number, 10, "loses ENTRY.CHANNEL [N]",
     "every Nth step moves nothing"},
    {"silent", FaultKind::CardSilent, Target::Card, Value::None, 0, "silent ENTRY",
     "the card does not acknowledge commands"},
    {"bus", FaultKind::BusReadsFail, Target::None, Value::None, 0, "bus", "every read of the device fails"},
};

const Row* FindRow(FaultKind kind) {
  for (const Row& row : kRows) {
    if (row.kind == kind) return &row;
  }
  return nullptr;
}

const Row* FindRow(const std::string& word) {
  for (const Row& row : kRows) {
    if (word == row.word) return &row;
  }
  return nullptr;
}

SignalChoice ChooseTarget(const Snapshot& snapshot, Target target, const std::string& text) {
  switch (target) {
    case Target::Card:
      return ChooseCard(snapshot, text);
    case Target::Input:
      return ChooseSignal(snapshot, SignalKind::Input, text);
    case Target::Motor:
      return ChooseChannel(snapshot, ChannelSort::Motor, text);
    case Target::Cylinder:
      return ChooseChannel(snapshot, ChannelSort::Cylinder, text);
    case Target::None:
      break;
  }
  SignalChoice choice;
  choice.found = true;
  return choice;
}

std::optional<int> ParseValue(Value value, const std::string& text) {
  if (value == Value::Level) {
    if (text == "on") return 1;
    if (text == "off") return 0;
    return std::nullopt;
  }
  const std::optional<int> number = WholeNumber(text);
  return number && *number >= 0 ? number : std::nullopt;
}

FaultChoice Refuse(std::string error) {
  FaultChoice choice;
  choice.error = std::move(error);
  return choice;
}

std::string UsageOf(const Row& row) {
  return std::string("; usage: fault ") + row.usage;
}

std::string TargetText(const Snapshot& snapshot, Target target, const FaultRecord& fault) {
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry) {
    const CardView& card = snapshot.cards[entry];
    if (card.slot != fault.slot) continue;
    const int number = static_cast<int>(entry);
    if (target == Target::Card) return " " + std::to_string(number) + " (" + KindName(card.kind) + ")";
    return " " + SignalText(snapshot, target == Target::Input ? SignalKind::Input : SignalKind::None, number,
                            fault.channel);
  }
  return " slot " + std::to_string(fault.slot);
}

}  // namespace

FaultChoice ChooseFault(const Snapshot& snapshot, const std::vector<std::string>& words, RequestKind kind) {
  std::vector<std::string> known;
  for (const Row& row : kRows) known.emplace_back(row.word);
  const Row* row = FindRow(words[0]);
  if (row == nullptr) {
    return Refuse("there is no fault \"" + words[0] + "\"" + Suggestion(words[0], known) +
                  " (faults: " + Join(known, ", ") + ")");
  }
  FaultChoice choice;
  choice.request.kind = kind;
  choice.request.fault = row->kind;
  choice.request.value = row->usualValue;
  const std::size_t targets = row->target == Target::None ? 0 : 1;
  const bool valued = row->value != Value::None && kind == RequestKind::BeginFault;
  const std::size_t most = 1 + targets + (row->value != Value::None ? 1U : 0U);
  const std::size_t least = 1 + targets + (valued && row->value == Value::Level ? 1U : 0U);
  if (words.size() < least || words.size() > most) return Refuse("wrong number of words" + UsageOf(*row));
  if (targets == 1) {
    const SignalChoice target = ChooseTarget(snapshot, row->target, words[1]);
    if (!target.found) return Refuse(target.error);
    choice.request.slot =
        static_cast<std::uint8_t>(snapshot.cards[static_cast<std::size_t>(target.entry)].slot);
    choice.request.channel = static_cast<std::uint8_t>(target.channel);
  }
  if (words.size() == 1 + targets) return choice;
  const std::optional<int> value = ParseValue(row->value, words.back());
  if (!value) return Refuse("\"" + words.back() + "\" is no value" + UsageOf(*row));
  choice.request.value = *value;
  return choice;
}

std::string FaultText(const Snapshot& snapshot, const FaultRecord& fault, Nanos now) {
  const Row* row = FindRow(fault.kind);
  if (row == nullptr) return "unknown fault";
  std::string text = row->word;
  if (row->target != Target::None) text += TargetText(snapshot, row->target, fault);
  if (row->value == Value::Level) text += fault.value != 0 ? " on" : " off";
  if (row->value == Value::Number) text += " " + std::to_string(fault.value);
  if (fault.end != 0) text += ", " + Seconds(fault.end - now) + " left";
  return text;
}

std::string FaultHelp() {
  constexpr std::size_t kColumn = 30;
  std::string help;
  for (const Row& row : kRows) {
    std::string usage = std::string("  ") + row.usage;
    usage.resize(std::max(kColumn, usage.size() + 1), ' ');
    help += usage + row.effect + "\n";
  }
  return help;
}

}  // namespace rack
