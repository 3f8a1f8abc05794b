#include "scenario/happening_text.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <utility>

#include "machine/key_names.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

struct Speaker {
  const char* word;
  int who;
};
constexpr Speaker kSpeakers[] = {{"console", kAnyone}, {"keypad", 0}, {"plc1", 1},   {"plc2", 2},
                                 {"plc3", 3},          {"plc4", 4},   {"plc5", 5},   {"plc6", 6},
                                 {"plc7", 7},          {"plc8", 8},   {"network", 9}};

// "such as "clamped on", ... or the name of an event".
std::string Forms() {
  std::vector<std::string> forms;
  for (const HappeningKind kind : kHappeningKinds) {
    if (!RowOf(kind).form.empty()) forms.emplace_back(RowOf(kind).form);
  }
  const std::string last = forms.back();
  forms.pop_back();
  return "such as " + Join(forms, ", ") + " or " + last;
}

// The rows that begin with a row's word.
std::vector<const HappeningRow*> VerbsBeside(const HappeningRow& row) {
  std::vector<const HappeningRow*> rows;
  for (const HappeningKind kind : kHappeningKinds) {
    if (RowOf(kind).word == row.word) rows.push_back(&RowOf(kind));
  }
  return rows;
}

std::string MoverUsage(const HappeningRow& row) {
  std::vector<std::string> verbs;
  for (const HappeningRow* each : VerbsBeside(row)) verbs.emplace_back(each->verb);
  return "write \"" + std::string(row.word) + " ENTRY.CHANNEL " + Join(verbs, "|") +
         "\", N a number or a range such as 795..805";
}

bool IsNumber(std::string_view digits, std::int64_t& value) {
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return error == std::errc() && end == digits.data() + digits.size();
}

}  // namespace

HappeningChoice ParseHappening(const std::string& text, const Snapshot& machine,
                               const std::vector<std::string>& events) {
  return HappeningText(text, machine, events).Choose();
}

HappeningText::HappeningText(const std::string& text, const Snapshot& machine,
                             const std::vector<std::string>& events)
    : machine_(machine), events_(events), words_(Split(text)) {
  choice_.happening.text = text;
}

HappeningChoice HappeningText::Choose() {
  const std::string& text = choice_.happening.text;
  if (words_.empty()) {
    Refuse("something that can happen is wanted here, " + Forms());
    return choice_;
  }
  const auto kind = std::find_if(std::rbegin(kHappeningKinds), std::rend(kHappeningKinds),
                                 [&](HappeningKind each) { return (this->*RowOf(each).fits)(RowOf(each)); });
  if (kind == std::rend(kHappeningKinds)) {
    const std::string near = Suggestion(text, events_);
    Refuse(InQuotes(text) + " is nothing that can happen" + (near.empty() ? ": " + Forms() : near));
    return choice_;
  }
  choice_.happening.kind = *kind;
  (this->*RowOf(*kind).read)(RowOf(*kind));
  return choice_;
}

bool HappeningText::IsEvent(const HappeningRow& /*row*/) const {
  return IsOneOf(choice_.happening.text, events_);
}

bool HappeningText::IsWord(const HappeningRow& row) const {
  return words_.size() == 1 && words_[0] == row.word;
}

bool HappeningText::HasFirst(const HappeningRow& row) const {
  return words_[0] == row.word;
}

bool HappeningText::HasSecond(const HappeningRow& row) const {
  return words_.size() >= 3 && words_[1] == row.word;
}

bool HappeningText::HasThird(const HappeningRow& row) const {
  return words_.size() == 3 && words_[2] == row.word;
}

bool HappeningText::EndsInLevel(const HappeningRow& /*row*/) const {
  return words_.back() == "on" || words_.back() == "off";
}

void HappeningText::Refuse(std::string error) {
  choice_.error = std::move(error);
}

// What stands between its first word, empty for none, and its last one: names may hold blanks.
std::string HappeningText::Between(const std::string& first, const std::string& last) const {
  constexpr const char* kBlanks = " \t\r\n";
  const std::string& text = choice_.happening.text;
  const std::size_t begin = text.find_first_not_of(kBlanks, text.find_first_not_of(kBlanks) + first.size());
  const std::size_t end = text.find_last_not_of(kBlanks, text.rfind(last) - 1);
  return text.substr(begin, end - begin + 1);
}

// "800" or "795..805".
bool HappeningText::ReadRange(const std::string& text) {
  Happening& happening = choice_.happening;
  const std::size_t dots = text.find("..");
  if (dots == std::string::npos) {
    if (!IsNumber(text, happening.low)) return false;
    happening.high = happening.low;
    return true;
  }
  const std::string_view whole = text;
  return IsNumber(whole.substr(0, dots), happening.low) && IsNumber(whole.substr(dots + 2), happening.high) &&
         happening.low <= happening.high;
}

// What is wholly outside can never come.
void HappeningText::CheckNumber(const HappeningRow& row) {
  const auto& [lowest, highest] = row.limits;
  const bool numbered = lowest != highest;
  if (!numbered || (choice_.happening.high >= lowest && choice_.happening.low <= highest)) return;
  Refuse(InQuotes(choice_.happening.text) + " can never be: " + words_[0] + " " + words_[1] + " goes from " +
         std::to_string(lowest) + " to " + std::to_string(highest));
}

void HappeningText::TakePlace(const SignalChoice& channel) {
  if (!channel.found) return Refuse(channel.error);
  choice_.happening.entry = channel.entry;
  choice_.happening.channel = channel.channel;
  choice_.happening.slot = machine_.cards[static_cast<std::size_t>(channel.entry)].slot;
}

void HappeningText::ReadMotor(const HappeningRow& row) {
  ReadMover(row, ChannelSort::Motor);
}

void HappeningText::ReadCylinder(const HappeningRow& row) {
  ReadMover(row, ChannelSort::Cylinder);
}

void HappeningText::ReadMover(const HappeningRow& row, ChannelSort sort) {
  for (const HappeningRow* each : VerbsBeside(row)) {
    if (!HasVerb(*each)) continue;
    choice_.happening.kind = each->kind;
    CheckNumber(*each);
    TakePlace(ChooseChannel(machine_, sort, words_[1]));
    return CheckWay();
  }
  Refuse(MoverUsage(row));
}

// Behind the channel, with its number where it has one.
bool HappeningText::HasVerb(const HappeningRow& row) {
  const std::vector<std::string> verb = Split(row.verb);
  if (words_.size() != 2 + verb.size()) return false;
  for (std::size_t i = 0; i < verb.size(); ++i) {
    const std::string& word = words_[2 + i];
    if (verb[i] == "N" ? !ReadRange(word) : verb[i] != word) return false;
  }
  return true;
}

// A motor comes to no place beyond its hard stops, and hits none where it has none.
void HappeningText::CheckWay() {
  const Happening& what = choice_.happening;
  const bool at = what.kind == HappeningKind::MotorAt;
  if (!choice_.error.empty() || (!at && what.kind != HappeningKind::MotorHitsStop)) return;
  const CardView& card = machine_.cards[static_cast<std::size_t>(what.entry)];
  const MotorView& motor = card.motors[static_cast<std::size_t>(what.channel)];
  const std::string who = "motor " + words_[1];
  if (!at && !motor.hardStopLow && !motor.hardStopHigh) {
    return Refuse(InQuotes(what.text) + " can never happen: no [[axis]] of the rack file gives " + who +
                  " a \"stop_low\" or \"stop_high\"");
  }
  if (at && motor.hardStopLow && what.high < *motor.hardStopLow) {
    return Refuse(InQuotes(what.text) + " can never be: the way of " + who + " ends at " +
                  std::to_string(*motor.hardStopLow));
  }
  if (at && motor.hardStopHigh && what.low > *motor.hardStopHigh) {
    return Refuse(InQuotes(what.text) + " can never be: the way of " + who + " ends at " +
                  std::to_string(*motor.hardStopHigh));
  }
}

void HappeningText::ReadCounter(const HappeningRow& row) {
  if (words_.size() < 3 || !ReadRange(words_.back())) {
    return Refuse("write \"counter NAME N\", N a number or a range such as 4..6");
  }
  const std::string name = Between(words_[0], words_.back());
  std::vector<std::string> names;
  for (const CounterView& counter : machine_.counters) {
    names.push_back(counter.name);
    if (counter.name != name) continue;
    choice_.happening.channel = counter.link;
    return CheckNumber(row);
  }
  Refuse("no counter is called " + InQuotes(name) + Suggestion(name, names));
}

void HappeningText::ReadKey(const HappeningRow& /*row*/) {
  const std::optional<Key> key = words_.size() == 2 ? FindKey(words_[1]) : std::nullopt;
  if (!key || key->function) {
    return Refuse(
        "write \"key NAME\" with a key that the controller takes: 0 to 9, Enter, Dec, Plus, Num, Star, "
        "Slash, Point");
  }
  choice_.happening.low = choice_.happening.high = key->code;
}

void HappeningText::ReadLine(const HappeningRow& /*row*/) {
  const std::string place = words_.size() == 2 ? words_[1] : "";
  const std::size_t colon = place.rfind(':');
  const int line = colon == std::string::npos ? 0 : WholeNumber(place.substr(colon + 1)).value_or(0);
  const bool path =
      place.rfind("plc", 0) == 0 && place.size() > 5 && place[3] >= '1' && place[3] <= '8' && place[4] == '/';
  if (line < 1 || !path) return Refuse("write \"line plcN/FILE:LINE\", such as \"line plc1/FLOW.PLC:4\"");
  choice_.happening.who = place[3] - '0';
  choice_.happening.words = place.substr(0, colon);
  choice_.happening.low = choice_.happening.high = line;
}

void HappeningText::ReadPrints(const HappeningRow& row) {
  const auto* const speaker = std::find_if(std::begin(kSpeakers), std::end(kSpeakers),
                                           [&](const Speaker& each) { return words_[0] == each.word; });
  if (speaker == std::end(kSpeakers)) {
    return Refuse("nobody is called " + InQuotes(words_[0]) +
                  ": plc1 to plc8, keypad, network, or console for anyone can print");
  }
  const std::string verb = std::string(row.word) + " ";
  const std::string& text = choice_.happening.text;
  choice_.happening.who = speaker->who;
  choice_.happening.words = text.substr(text.find(verb) + verb.size());
}

void HappeningText::ReadProtests(const HappeningRow& /*row*/) {
  Happening& happening = choice_.happening;
  happening.low = 0;
  happening.high = kSlots - 1;
  if (words_[0] == "a" && words_[1] == "card") return;
  if (words_[0] != "card")
    return Refuse("write \"a card protests\", or \"card ENTRY protests\" for one of them");
  TakePlace(ChooseCard(machine_, words_[1]));
  happening.low = happening.high = happening.slot;
}

void HappeningText::ReadEvent(const HappeningRow& /*row*/) {
  choice_.happening.words = choice_.happening.text;
}

// Its word says all.
void HappeningText::ReadNothing(const HappeningRow& /*row*/) {}

void HappeningText::ReadLevel(const HappeningRow& /*row*/) {
  Happening& happening = choice_.happening;
  happening.low = happening.high = words_.back() == "on" ? 1 : 0;
  if (words_.size() < 2) {
    return Refuse(
        "write \"SIGNAL on\" or \"SIGNAL off\"; with an address \"input 1.1 on\" or \"output 1.1 on\"");
  }
  const std::string name = Between("", words_.back());
  std::vector<std::string> names;
  for (const NamedSignal& signal : machine_.signals) {
    names.push_back(signal.name);
    if (signal.name != name) continue;
    happening.signal = signal.kind;
    return TakePlace(ChooseSignal(machine_, signal.kind, name));
  }
  if (words_.size() > 2 && (words_[0] == "input" || words_[0] == "output")) {
    happening.signal = words_[0] == "input" ? SignalKind::Input : SignalKind::Output;
    return TakePlace(ChooseSignal(machine_, happening.signal, Between(words_[0], words_.back())));
  }
  if (words_.size() == 2 && name.find('.') != std::string::npos) {
    return Refuse(InQuotes(name) + " may be an input or an output: write " +
                  InQuotes("input " + happening.text) + " or " + InQuotes("output " + happening.text));
  }
  Refuse("no signal is called " + InQuotes(name) + Suggestion(name, names));
}

}  // namespace rack::scenario
