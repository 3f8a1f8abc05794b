#include "rackfile/rackfile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <utility>

#include "toml/toml_error.h"
#include "toml/words.h"

namespace rack {
namespace {

using Value = toml::value;
using Table = toml::table;

constexpr std::int64_t kMaxSteps = 1'000'000'000;
constexpr double kMaxSeconds = 1e6;

std::string Join(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

std::vector<std::string> PlugInWords() {
  std::vector<std::string> words;
  for (const CardRow& row : kCardRows) {
    if (IsPlugIn(row.kind)) words.emplace_back(row.word);
  }
  return words;
}

// One reading of one file. Every finding goes into the list and the reading goes on.
class Reader {
 public:
  Reader(std::string name, RackSetup& setup, std::vector<std::string>& errors)
      : name_(std::move(name)), setup_(setup), errors_(errors) {}

  void Read(const Value& root);

 private:
  struct Finding {
    std::size_t line;
    std::size_t column;
    std::string message;
  };

  void ReadAll(const Value& root);
  void Fail(const Value& value, const std::string& message);
  void Report();
  void CheckWords(const Table& table, const std::vector<std::string>& scopes);
  void CheckKnown(const Table& table, const std::vector<std::string>& known);
  const Value* Need(const Value& owner, const char* word);

  std::int64_t Number(const Value& owner, const char* word, std::int64_t low, std::int64_t high,
                      std::int64_t absent);
  Nanos Time(const Value& owner, const char* word, Nanos absent);
  bool Flag(const Value& owner, const char* word);
  bool Text(const Value& value, std::string& text);

  void ReadRack(const Value& rack);
  void ReadSlots(const Value& slots);
  void ReadSlot(const Value& value, int slot);
  void ReadSettings(const Value& value, const CardRow& row, CardState& card);
  void ReadNames(const Value& names, bool output);
  bool Address(const Value& value, int& entry, int& channel);
  bool Signal(const Value& value, bool output, SignalRef& signal);
  bool Mover(const Value& value, bool motor, std::uint8_t& entry, std::uint8_t& channel);
  bool When(const Value& owner, PlantLink& link);

  template <class Function>
  void Each(const Value& root, const char* word, const std::vector<std::string>& scopes, Function read);
  void ReadAxis(const Value& axis);
  void AxisSwitch(const Value& axis, const char* input, std::int64_t from, std::int64_t to);
  void ReadCylinder(const Value& cylinder);
  void ReadValve(const Value& valve);
  void ReadArrival(const Value& arrival);
  void ReadStop(const Value& stop);
  void ReadCounter(const Value& counter);
  void AddLink(const Value& owner, const PlantLink& link, const std::string& name);

  std::string name_;
  RackSetup& setup_;
  std::vector<std::string>& errors_;
  std::vector<Finding> findings_;
  int signals_ = 0;
};

const Value* Get(const Value& owner, const char* word) {
  const Table& table = owner.as_table();
  const auto found = table.find(word);
  return found == table.end() ? nullptr : &found->second;
}

void Reader::Fail(const Value& value, const std::string& message) {
  const toml::source_location place = value.location();
  findings_.push_back({place.line(), place.column(), message});
}

// Tables are read in no particular order; people read from top to bottom.
void Reader::Report() {
  std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
  for (const Finding& finding : findings_) {
    errors_.push_back(name_ + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) +
                      ": " + finding.message);
  }
}

void Reader::CheckWords(const Table& table, const std::vector<std::string>& scopes) {
  std::vector<std::string> known;
  for (const RackWord& word : RackWords()) {
    if (std::find(scopes.begin(), scopes.end(), word.table) != scopes.end()) known.emplace_back(word.word);
  }
  CheckKnown(table, known);
}

void Reader::CheckKnown(const Table& table, const std::vector<std::string>& known) {
  for (const auto& [word, value] : table) {
    if (std::find(known.begin(), known.end(), word) != known.end()) continue;
    const std::string near = Nearest(word, known);
    const std::string hint = near.empty() ? "known here: " + Join(known) : "did you mean \"" + near + "\"?";
    std::string message = "unknown word \"";
    message.append(word).append("\"; ").append(hint);
    Fail(value, message);
  }
}

const Value* Reader::Need(const Value& owner, const char* word) {
  const Value* value = Get(owner, word);
  if (value == nullptr) Fail(owner, "\"" + std::string(word) + "\" is missing here");
  return value;
}

std::int64_t Reader::Number(const Value& owner, const char* word, std::int64_t low, std::int64_t high,
                            std::int64_t absent) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return absent;
  if (value->is_integer() && value->as_integer() >= low && value->as_integer() <= high) {
    return value->as_integer();
  }
  Fail(*value, "\"" + std::string(word) + "\" wants a whole number from " + std::to_string(low) + " to " +
                   std::to_string(high));
  return absent;
}

// A time is a text with a unit, "300 ms" or "1.5 s".
Nanos Reader::Time(const Value& owner, const char* word, Nanos absent) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return absent;
  if (value->is_string()) {
    std::istringstream text(value->as_string().str);
    double number = -1;
    std::string unit;
    std::string rest;
    text >> number >> unit;
    const double seconds = unit == "ms" ? number / 1000 : number;
    if ((unit == "ms" || unit == "s") && !(text >> rest) && seconds >= 0 && seconds <= kMaxSeconds) {
      return std::llround(seconds * 1e6) * kMicrosecond;
    }
  }
  Fail(*value, "\"" + std::string(word) + "\" wants a time such as \"300 ms\" or \"1.5 s\"");
  return absent;
}

bool Reader::Flag(const Value& owner, const char* word) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return false;
  if (value->is_boolean()) return value->as_boolean();
  Fail(*value, "\"" + std::string(word) + "\" wants true or false");
  return false;
}

bool Reader::Text(const Value& value, std::string& text) {
  if (!value.is_string()) {
    Fail(value, "a text in quotes is wanted here");
    return false;
  }
  text = value.as_string().str;
  return true;
}

void Reader::ReadRack(const Value& rack) {
  CheckWords(rack.as_table(), {"rack"});
  CpuCardState& cpu = setup_.cards[0].cpu;
  cpu.taskCount = static_cast<std::uint8_t>(Number(rack, "task_count", 0, 255, cpu.taskCount));
  cpu.settings = static_cast<std::uint8_t>(Number(rack, "settings", 0, 255, 0));
  cpu.functionPort = static_cast<std::uint8_t>(Number(rack, "function_port", 0, 255, 0));
  if (cpu.functionPort != 0 && cpu.functionPort < 9) {
    Fail(*Get(rack, "function_port"),
         "the ports below 9 are taken: \"function_port\" wants 9 to 255, or 0 for none");
  }
  TimeSetup& time = setup_.time;
  time.accessNanos =
      static_cast<std::uint32_t>(Number(rack, "bus_access_ns", 10, 1'000'000, time.accessNanos));
  time.consoleBaud = static_cast<std::uint32_t>(Number(rack, "console_baud", 0, 10'000'000, 0));
  if (time.consoleBaud != 0 && time.consoleBaud < 300) {
    Fail(*Get(rack, "console_baud"),
         "\"console_baud\" wants 300 to 10000000, or 0 for a console without cost");
  }
  const Value* device = Get(rack, "device");
  std::string name;
  if (device == nullptr || !Text(*device, name)) return;
  const std::vector<std::string> names = {"none", "em_isa", "em335x_isa"};
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    Fail(*device, "unknown device \"" + name + "\"; known: em_isa, em335x_isa, none");
    return;
  }
  setup_.image.device = static_cast<DeviceName>(found - names.begin());
}

void Reader::ReadSlots(const Value& slots) {
  for (const auto& [word, value] : slots.as_table()) {
    int slot = 0;
    const bool digits =
        !word.empty() && word.size() <= 2 && word.find_first_not_of("0123456789") == std::string::npos;
    if (digits) slot = std::stoi(word);
    if (slot < 1 || slot >= kSlots) {
      Fail(value, "no slot \"" + word + "\": plug-in slots are 1 to 12");
      continue;
    }
    ReadSlot(value, slot);
  }
}

void Reader::ReadSlot(const Value& value, int slot) {
  const Value* card = &value;
  if (value.is_table()) card = Need(value, "card");
  std::string name;
  if (card == nullptr || !Text(*card, name)) return;
  const CardRow* const row = std::find_if(
      std::begin(kCardRows), std::end(kCardRows),
      [&](const CardRow& candidate) { return IsPlugIn(candidate.kind) && name == candidate.word; });
  if (row == std::end(kCardRows)) {
    const std::vector<std::string> words = PlugInWords();
    const std::string near = Nearest(name, words);
    Fail(*card, "unknown card \"" + name + "\"; " +
                    (near.empty() ? "known: " + Join(words) : "did you mean \"" + near + "\"?"));
    return;
  }
  InsertCard(setup_, slot, row->kind);
  if (value.is_table()) ReadSettings(value, *row, setup_.cards[slot]);
}

void Reader::ReadSettings(const Value& value, const CardRow& row, CardState& card) {
  constexpr std::int64_t kNone = -1;
  std::vector<std::string> known = {"card"};
  for (const CardSetting& setting : row.settings()) known.emplace_back(setting.word);
  CheckKnown(value.as_table(), known);
  for (const CardSetting& setting : row.settings()) {
    const std::int64_t given = setting.unit == SettingUnit::Time
                                   ? Time(value, setting.word, kNone)
                                   : Number(value, setting.word, setting.lowest, setting.highest, kNone);
    if (given != kNone) ApplySetting(card, setting, given);
  }
}

bool Reader::Address(const Value& value, int& entry, int& channel) {
  std::string text;
  if (!Text(value, text)) return false;
  if (!ParseAddress(text, entry, channel)) {
    Fail(value, "\"" + text + "\" is no address: entry and channel are wanted, such as \"0.5\"");
    return false;
  }
  if (SlotOfEntry(setup_.image, entry) >= 0) return true;
  Fail(value, "no entry " + std::to_string(entry) + ": this rack has the entries 0 to " +
                  std::to_string(setup_.image.entryCount - 1));
  return false;
}

void Reader::ReadNames(const Value& names, bool output) {
  for (const auto& [word, value] : names.as_table()) {
    SignalRef signal{};
    int entry = 0;
    int channel = 0;
    if (ParseAddress(word, entry, channel)) {
      Fail(value, "\"" + word + "\" is an address and cannot be a name");
      continue;
    }
    if (word.empty() || word.size() >= kSignalNameSize) {
      Fail(value, "a name has 1 to " + std::to_string(kSignalNameSize - 1) + " characters");
      continue;
    }
    if (FindSignal(setup_.image, word.c_str()) != nullptr) {
      Fail(value, "the name \"" + word + "\" is given twice");
      continue;
    }
    if (!Signal(value, output, signal)) continue;
    if (NameOf(setup_.image, output, signal.entry, signal.channel) != nullptr) {
      Fail(value, "this channel has the name \"" +
                      std::string(NameOf(setup_.image, output, signal.entry, signal.channel)->name) +
                      "\" already");
      continue;
    }
    if (signals_ >= kMaxSignals) {
      Fail(value, "more than " + std::to_string(kMaxSignals) + " names");
      return;
    }
    SignalName& row = setup_.image.signals[signals_++];
    row = {static_cast<std::uint8_t>(output ? 1 : 0), signal.entry, signal.channel, 0, {}};
    std::memcpy(row.name, word.data(), word.size());
  }
}

// A signal by its name or its address.
bool Reader::Signal(const Value& value, bool output, SignalRef& signal) {
  std::string text;
  if (!Text(value, text)) return false;
  const char* sort = output ? "output" : "input";
  const SignalName* named = FindSignal(setup_.image, text.c_str());
  int entry = 0;
  int channel = 0;
  if (named != nullptr) {
    if ((named->output != 0) != output) {
      Fail(value, "\"" + text + "\" is no " + sort);
      return false;
    }
    entry = named->entry;
    channel = named->channel;
  } else {
    if (text.find('.') == std::string::npos) {
      std::vector<std::string> names;
      for (const SignalName& row : setup_.image.signals) {
        if (row.name[0] == '\0') break;
        if ((row.output != 0) == output) names.emplace_back(row.name);
      }
      const std::string near = Nearest(text, names);
      Fail(value, "no " + std::string(sort) + " is called \"" + text + "\"" +
                      (near.empty() ? "" : "; did you mean \"" + near + "\"?"));
      return false;
    }
    if (!Address(value, entry, channel)) return false;
  }
  const CardState& card = setup_.cards[SlotOfEntry(setup_.image, entry)];
  const int count = output ? OutputCount(card) : InputCount(card);
  if (channel >= count) {
    const std::string has = count == 0 ? "no " + std::string(sort) + "s"
                                       : std::string(sort) + "s 0 to " + std::to_string(count - 1);
    Fail(value, "the " + std::string(KindName(card.kind)) + " card in entry " + std::to_string(entry) +
                    " has " + has);
    return false;
  }
  signal = {static_cast<std::uint8_t>(entry), output ? SignalKind::Output : SignalKind::Input,
            static_cast<std::uint8_t>(channel), 0};
  return true;
}

bool Reader::Mover(const Value& value, bool motor, std::uint8_t& entry, std::uint8_t& channel) {
  int row = 0;
  int number = 0;
  if (!Address(value, row, number)) return false;
  const CardState& card = setup_.cards[SlotOfEntry(setup_.image, row)];
  const int count = motor ? MotorCount(card) : CylinderCount(card);
  if (number >= count) {
    const std::string sort = motor ? "motors" : "cylinders";
    Fail(value, "the " + std::string(KindName(card.kind)) + " card in entry " + std::to_string(row) +
                    " has " + (count == 0 ? "no " + sort : sort + " 0 to " + std::to_string(count - 1)));
    return false;
  }
  entry = static_cast<std::uint8_t>(row);
  channel = static_cast<std::uint8_t>(number);
  return true;
}

bool Reader::When(const Value& owner, PlantLink& link) {
  int given = 0;
  bool right = true;
  if (const Value* input = Get(owner, "when_input")) {
    ++given;
    right = Signal(*input, false, link.source);
  }
  if (const Value* output = Get(owner, "when_output")) {
    ++given;
    right = Signal(*output, true, link.source);
  }
  if (const Value* motor = Get(owner, "when_motor")) {
    ++given;
    link.when = Condition::MotorWithin;
    link.from = Number(owner, "from", -kMaxSteps, kMaxSteps, -kMaxSteps);
    link.to = Number(owner, "to", -kMaxSteps, kMaxSteps, kMaxSteps);
    right = Mover(*motor, true, link.entry, link.channel);
  }
  if (const Value* cylinder = Get(owner, "when_cylinder")) {
    ++given;
    link.when = Condition::CylinderStands;
    link.from = Number(owner, "at", 0, 15, 0);
    right = Mover(*cylinder, false, link.entry, link.channel);
  }
  if (const Value* alarm = Get(owner, "when_alarm")) {
    ++given;
    link.when = Condition::CylinderAlarm;
    right = Mover(*alarm, false, link.entry, link.channel);
  }
  link.inverted = Flag(owner, "inverted") ? 1 : 0;
  if (given == 1) return right;
  Fail(owner,
       "exactly one of when_input, when_output, when_motor, when_cylinder and when_alarm is wanted here");
  return false;
}

void Reader::AddLink(const Value& owner, const PlantLink& link, const std::string& name) {
  if (setup_.plant.linkCount >= kMaxLinks) {
    Fail(owner, "more than " + std::to_string(kMaxLinks) + " things hang on the cards");
    return;
  }
  char(&label)[kSignalNameSize] = setup_.image.linkNames[setup_.plant.linkCount];
  std::memcpy(label, name.data(), std::min(name.size(), sizeof label - 1));
  setup_.plant.links[setup_.plant.linkCount++] = link;
}

template <class Function>
void Reader::Each(const Value& root, const char* word, const std::vector<std::string>& scopes,
                  Function read) {
  const Value* list = Get(root, word);
  if (list == nullptr) return;
  const bool tables = list->is_array() && std::all_of(list->as_array().begin(), list->as_array().end(),
                                                      [](const Value& row) { return row.is_table(); });
  if (!tables) {
    Fail(*list, "\"" + std::string(word) + "\" is written as [[" + word + "]]");
    return;
  }
  for (const Value& row : list->as_array()) {
    CheckWords(row.as_table(), scopes);
    (this->*read)(row);
  }
}

void Reader::AxisSwitch(const Value& axis, const char* input, std::int64_t from, std::int64_t to) {
  const Value* name = Get(axis, input);
  const Value* motor = Get(axis, "motor");
  if (name == nullptr || motor == nullptr) return;
  PlantLink link{};
  link.when = Condition::MotorWithin;
  link.from = from;
  link.to = to;
  if (!Mover(*motor, true, link.entry, link.channel) || !Signal(*name, false, link.target)) return;
  AddLink(axis, link, "");
}

void Reader::ReadAxis(const Value& axis) {
  if (Need(axis, "motor") == nullptr) return;
  const std::int64_t home = Number(axis, "home_at", -kMaxSteps, kMaxSteps, 0);
  AxisSwitch(axis, "home", home, home);
  for (const char* limit : {"low", "high"}) {
    const std::string at = std::string(limit) + "_at";
    if (Get(axis, limit) != nullptr) Need(axis, at.c_str());
  }
  AxisSwitch(axis, "low", INT64_MIN, Number(axis, "low_at", -kMaxSteps, kMaxSteps, 0));
  AxisSwitch(axis, "high", Number(axis, "high_at", -kMaxSteps, kMaxSteps, 0), INT64_MAX);
}

void Reader::ReadCylinder(const Value& cylinder) {
  const Value* which = Need(cylinder, "cylinder");
  PlantLink link{};
  if (which == nullptr || !Mover(*which, false, link.entry, link.channel)) return;
  const Value* alarm = Get(cylinder, "alarm");
  link.when = Condition::CylinderAlarm;
  if (alarm != nullptr && Signal(*alarm, false, link.target)) AddLink(cylinder, link, "");

  const Value* switches = Get(cylinder, "switches");
  if (switches == nullptr) return;
  if (!switches->is_table()) {
    Fail(*switches, "\"switches\" is a table such as { 0 = \"arm_back\", 5 = \"arm_out\" }");
    return;
  }
  link.when = Condition::CylinderStands;
  const std::map<std::string, Value> ordered(switches->as_table().begin(), switches->as_table().end());
  for (const auto& [word, input] : ordered) {
    const bool digits =
        !word.empty() && word.size() <= 2 && word.find_first_not_of("0123456789") == std::string::npos;
    link.from = digits ? std::stoi(word) : -1;
    if (link.from < 0 || link.from > 15) {
      Fail(input, "no position \"" + word + "\": a cylinder has the positions 0 to 15");
      continue;
    }
    if (Signal(input, false, link.target)) AddLink(cylinder, link, "");
  }
}

void Reader::ReadValve(const Value& valve) {
  const Value* output = Need(valve, "output");
  const Value* sensor = Need(valve, "sensor");
  PlantLink link{};
  if (output == nullptr || sensor == nullptr) return;
  if (!Signal(*output, true, link.source) || !Signal(*sensor, false, link.target)) return;
  link.onDelay = Time(valve, "on_delay", 0);
  link.offDelay = Time(valve, "off_delay", 0);
  AddLink(valve, link, "");
}

void Reader::ReadArrival(const Value& arrival) {
  const Value* input = Need(arrival, "input");
  PlantLink link{};
  link.then = Effect::Arrive;
  if (input == nullptr || !Signal(*input, false, link.target) || !When(arrival, link)) return;
  link.onDelay = Time(arrival, "delay", 0);
  link.offDelay = Time(arrival, "leaves_after", 0);
  link.startsOn = Flag(arrival, "there_at_start") ? 1 : 0;
  const Value* removal = Get(arrival, "removed_by");
  if (removal != nullptr && !Signal(*removal, true, link.removal)) return;
  AddLink(arrival, link, "");
}

void Reader::ReadStop(const Value& stop) {
  const Value* motor = Need(stop, "motor");
  PlantLink link{};
  link.then = Effect::Stop;
  if (motor == nullptr || !Mover(*motor, true, link.stopEntry, link.stopChannel) || !When(stop, link)) return;
  AddLink(stop, link, "");
}

void Reader::ReadCounter(const Value& counter) {
  const Value* name = Need(counter, "name");
  std::string text;
  PlantLink link{};
  link.then = Effect::Count;
  if (name == nullptr || !Text(*name, text) || !When(counter, link)) return;
  link.goal = static_cast<std::uint32_t>(Number(counter, "goal", 0, INT32_MAX, 0));
  if (text.empty() || text.size() >= kSignalNameSize) {
    Fail(*name, "a name has 1 to " + std::to_string(kSignalNameSize - 1) + " characters");
    return;
  }
  AddLink(counter, link, text);
}

void Reader::Read(const Value& root) {
  ReadAll(root);
  Report();
}

void Reader::ReadAll(const Value& root) {
  CheckWords(root.as_table(), {""});
  const auto table = [&](const char* word) -> const Value* {
    const Value* value = Get(root, word);
    if (value == nullptr || value->is_table()) return value;
    Fail(*value, "\"" + std::string(word) + "\" is written as [" + word + "]");
    return nullptr;
  };
  const Value* rack = table("rack");
  if (rack != nullptr) ReadRack(*rack);
  if (const Value* slots = table("slots")) ReadSlots(*slots);
  AssignEntries(setup_);
  if (const Value* inputs = table("inputs")) ReadNames(*inputs, false);
  if (const Value* outputs = table("outputs")) ReadNames(*outputs, true);
  Each(root, "axis", {"axis"}, &Reader::ReadAxis);
  Each(root, "cylinder", {"cylinder"}, &Reader::ReadCylinder);
  Each(root, "valve", {"valve"}, &Reader::ReadValve);
  Each(root, "arrival", {"arrival", "when"}, &Reader::ReadArrival);
  Each(root, "stop", {"stop", "when"}, &Reader::ReadStop);
  Each(root, "counter", {"counter", "when"}, &Reader::ReadCounter);
  const Value* on = rack == nullptr ? nullptr : Get(*rack, "on_at_start");
  if (on == nullptr) return;
  if (!on->is_array()) {
    Fail(*on, "\"on_at_start\" wants a list such as [\"guard_closed\", \"0.3\"]");
    return;
  }
  for (const Value& input : on->as_array()) {
    SignalRef signal{};
    if (!Signal(input, false, signal)) continue;
    std::uint16_t& bits = setup_.inputsOn[signal.entry];
    bits = static_cast<std::uint16_t>(bits | 1U << signal.channel);
  }
}

}  // namespace

bool ParseAddress(const std::string& text, int& entry, int& channel) {
  const std::size_t dot = text.find('.');
  if (dot == std::string::npos || dot == 0 || dot > 2) return false;
  const std::string behind = text.substr(dot + 1);
  if (behind.empty() || behind.size() > 2) return false;
  if ((text.substr(0, dot) + behind).find_first_not_of("0123456789") != std::string::npos) return false;
  entry = std::stoi(text.substr(0, dot));
  channel = std::stoi(behind);
  return true;
}

std::string SyntaxError(const std::string& name, const toml::exception& error) {
  std::string message = error.what();
  message = message.substr(0, message.find('\n'));
  // The reader's own function name stands in front.
  const std::size_t colon = message.find(": ");
  if (colon != std::string::npos) message.erase(0, colon + 2);
  return name + ":" + std::to_string(error.location().line()) + ":" +
         std::to_string(error.location().column()) + ": " + message;
}

bool ReadRackText(const std::string& text, const std::string& name, RackSetup& setup,
                  std::vector<std::string>& errors) {
  MakeEmptySetup(setup);
  const std::size_t before = errors.size();
  try {
    std::istringstream stream(text);
    Reader(name, setup, errors).Read(toml::parse(stream, name));
  } catch (const toml::exception& error) {
    errors.push_back(SyntaxError(name, error));
  } catch (const std::exception& error) {
    errors.push_back(name + ": " + error.what());
  }
  return errors.size() == before;
}

bool ReadRackFile(const std::string& path, RackSetup& setup, std::vector<std::string>& errors) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    errors.push_back(path + ": " + std::strerror(errno));
    return false;
  }
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return ReadRackText(text, path, setup, errors);
}

}  // namespace rack
