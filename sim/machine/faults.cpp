#include "machine/faults.h"

#include <algorithm>
#include <iterator>

#include "machine/signals.h"
#include "toml/words.h"

namespace rack {

namespace {

struct Row {
  const char* word;
  FaultKind kind;
  int usualValue;  // of a number that is not given
  const char* usage;
  const char* effect;
};

// One for each kind, in their order.
constexpr Row kRows[] = {
    {"pulled", FaultKind::CardPulled, 0, "pulled ENTRY", "the card is out: reads give 0xFF, writes are lost"},
    {"stuck", FaultKind::InputStuck, 0, "stuck SIGNAL on|off",
     "the input shows this level whatever the machine does"},
    {"alarm", FaultKind::CylinderAlarm, 0, "alarm ENTRY.CHANNEL [COUNT]",
     "the cylinder goes into alarm and again after that many resets"},
    {"blocked", FaultKind::MotorBlocked, 0, "blocked ENTRY.CHANNEL", "pulses come, the motor stands still"},
    {"loses", FaultKind::MotorLosesSteps, 10, "loses ENTRY.CHANNEL [N]", "every Nth step moves nothing"},
    {"silent", FaultKind::CardSilent, 0, "silent ENTRY", "the card does not acknowledge commands"},
    {"bus", FaultKind::BusReadsFail, 0, "bus", "every read of the device fails"},
    {"jams", FaultKind::CylinderJams, 0, "jams ENTRY.CHANNEL",
     "the cylinder stands where it is, without an alarm"},
};

static_assert(AreRowsOf(kRows, &Row::kind, kFaultKinds, 1), "a row for each kind of fault, in their order");

const Row* FindRow(FaultKind kind) {
  const int number = static_cast<int>(kind);
  return number < 1 || number > kFaultKinds ? nullptr : &kRows[number - 1];
}

const Row* FindRow(const std::string& word) {
  for (const Row& row : kRows) {
    if (word == row.word) return &row;
  }
  return nullptr;
}

SignalChoice ChooseTarget(const Snapshot& snapshot, FaultTarget target, const std::string& text) {
  switch (target) {
    case FaultTarget::Card:
    case FaultTarget::CylinderCard:
      return ChooseCard(snapshot, text);
    case FaultTarget::Input:
      return ChooseSignal(snapshot, SignalKind::Input, text);
    case FaultTarget::Motor:
      return ChooseChannel(snapshot, ChannelSort::Motor, text);
    case FaultTarget::Cylinder:
      return ChooseChannel(snapshot, ChannelSort::Cylinder, text);
    case FaultTarget::Rack:
    case FaultTarget::None:
      break;
  }
  SignalChoice choice;
  choice.found = true;
  return choice;
}

std::optional<int> ParseValue(FaultValue value, const std::string& text) {
  if (value == FaultValue::Level) {
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

std::string TargetText(const Snapshot& snapshot, FaultTarget target, const FaultRecord& fault) {
  const bool whole = target == FaultTarget::Card || target == FaultTarget::CylinderCard;
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry) {
    const CardView& card = snapshot.cards[entry];
    if (card.slot != fault.slot) continue;
    const int number = static_cast<int>(entry);
    if (whole) return " " + std::to_string(number) + " (" + KindName(card.kind) + ")";
    return " " + SignalText(snapshot, target == FaultTarget::Input ? SignalKind::Input : SignalKind::None,
                            number, fault.channel);
  }
  return " slot " + std::to_string(fault.slot);
}

std::string ValueText(FaultValue kind, int value) {
  switch (kind) {
    case FaultValue::Level:
      return value != 0 ? " on" : " off";
    case FaultValue::Count:
    case FaultValue::Every:
      return " " + std::to_string(value);
    case FaultValue::None:
      break;
  }
  return "";
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
  const FaultNeeds needs = NeedsOf(row->kind);
  const std::size_t targets = needs.target == FaultTarget::Rack ? 0 : 1;
  const bool begins = kind == RequestKind::BeginFault;
  const std::size_t most = 1 + targets + (needs.value != FaultValue::None ? 1U : 0U);
  const std::size_t least = 1 + targets + (begins && needs.value == FaultValue::Level ? 1U : 0U);
  if (words.size() < least || words.size() > most) return Refuse("wrong number of words" + UsageOf(*row));
  if (targets == 1) {
    const SignalChoice target = ChooseTarget(snapshot, needs.target, words[1]);
    if (!target.found) return Refuse(target.error);
    choice.request.slot =
        static_cast<std::uint8_t>(snapshot.cards[static_cast<std::size_t>(target.entry)].slot);
    choice.request.channel = static_cast<std::uint8_t>(target.channel);
  }
  if (words.size() == 1 + targets) return choice;
  const std::optional<int> value = ParseValue(needs.value, words.back());
  if (!value) return Refuse("\"" + words.back() + "\" is no value" + UsageOf(*row));
  choice.request.value = *value;
  return choice;
}

std::string FaultText(const Snapshot& snapshot, const FaultRecord& fault, Nanos now) {
  const Row* row = FindRow(fault.kind);
  if (row == nullptr) return "unknown fault";
  const FaultNeeds needs = NeedsOf(row->kind);
  std::string text = row->word;
  if (needs.target != FaultTarget::Rack) text += TargetText(snapshot, needs.target, fault);
  text += ValueText(needs.value, fault.value);
  if (fault.end != 0) text += ", " + Seconds(fault.end - now) + " left";
  return text;
}

const char* WordOf(FaultKind kind) {
  const Row* row = FindRow(kind);
  return row == nullptr ? "unknown" : row->word;
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
