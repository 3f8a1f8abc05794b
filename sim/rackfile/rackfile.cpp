#include "rackfile/rackfile.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include "toml/times.h"
#include "toml/toml_reader.h"
#include "toml/words.h"

namespace rack {
namespace {

using Value = toml::value;
using Table = toml::table;

constexpr std::int64_t kMaxSteps = 1'000'000'000;
// A cylinder's way of fifteen positions, in thousandths, times the time for one still fits into Nanos.
constexpr Nanos kLongestTime = 600'000 * kSecond;

std::vector<std::string> PlugInWords() {
  std::vector<std::string> words;
  for (const CardRow& row : kCardRows) {
    if (IsPlugIn(row.kind)) words.emplace_back(row.word);
  }
  return words;
}

// The words of a rule, by the one that tells its form.
struct RuleWords {
  const char* word;
  RuleForm form;
  std::vector<std::string> happenings;
  const char* time;
  bool needsTime;
};

const std::vector<RuleWords>& RuleForms() {
  static const std::vector<RuleWords> forms = {
      {"never_together", RuleForm::NeverTogether, {"never_together"}, "for", false},
      {"while", RuleForm::Always, {"while", "always"}, nullptr, false},
      {"after", RuleForm::Comes, {"after", "comes"}, "within", true},
  };
  return forms;
}

class Reader : public ExploringReader {
 public:
  Reader(std::string name, RackSetup& setup, std::vector<std::string>& errors, RackNotes& notes,
         std::vector<TimeChange>& changes)
      : ExploringReader(std::move(name), errors), setup_(setup), notes_(notes), changes_(changes) {}

 private:
  void ReadRoot(const Value& root) override;
  void CheckWords(const Table& table, const Words& scopes);
  Nanos Time(const Value& owner, const char* word, Nanos absent);
  Nanos ChangedTime(const char* word, Nanos time);
  void CheckChange(TimeChange& change) const;

  void ReadRack(const Value& rack);
  void ReadSlots(const Value& slots);
  void ReadSlot(const Value& value, int slot);
  std::string CardName(const Value& value, int slot);
  void ReadSettings(const Value& value, const CardRow& row, CardState& card);
  std::int64_t Setting(const Value& value, const CardSetting& setting, std::int64_t absent);
  void ReadNames(const Value& names, bool output);
  bool Address(const Value& value, int& entry, int& channel);
  bool Signal(const Value& value, bool output, SignalRef& signal);
  bool Mover(const Value& value, bool motor, std::uint8_t& entry, std::uint8_t& channel);
  bool When(const Value& owner, PlantLink& link);

  void ReadAxis(const Value& axis);
  void ReadHardStops(const Value& axis);
  void CheckRange(const Value& owner, const PlantLink& link);
  void CheckSwitch(const Value& axis, const char* word, const PulseChannelState& way);
  void AxisSwitch(const Value& axis, const char* input, std::int64_t from, std::int64_t to);
  void ReadCylinder(const Value& cylinder);
  void ReadValve(const Value& valve);
  void ReadArrival(const Value& arrival);
  void ReadStop(const Value& stop);
  void ReadCounter(const Value& counter);
  void ReadThings(const Value& root);
  void ReadOnAtStart(const Value& on);
  void ReadCheck(const Value& check);
  void ReadRule(const Value& rule);
  void ReadRuleName(const Value& rule, PlacedText& name);
  void ReadHappenings(const Value& rule, const RuleWords& words, RuleText& text);
  void AddLink(const Value& owner, const PlantLink& link, const std::string& name);

  RackSetup& setup_;
  RackNotes& notes_;
  std::vector<TimeChange>& changes_;
  // What changes call the row that is read, empty: nothing; and the times of the rows so far.
  std::string row_;
  std::map<std::string, Words> times_;
  int signals_ = 0;
};

// Entry, channel, slot or position: one or two digits. -1 for anything else.
int SmallNumber(std::string_view text) {
  const bool isBare = text.size() <= 2 && text.find('-') == std::string_view::npos;
  return isBare ? WholeNumber(text).value_or(-1) : -1;
}

// Empty when a time is short enough.
std::string TooLong(const std::string& word, Nanos time) {
  return time <= kLongestTime ? "" : InQuotes(word) + " is longer than " + TimeText(kLongestTime);
}

// The words of these tables of the rack file.
void Reader::CheckWords(const Table& table, const Words& scopes) {
  Words known;
  for (const RackWord& word : RackWords()) {
    if (IsOneOf(word.table, scopes)) known.emplace_back(word.word);
  }
  TomlReader::CheckWords(table, known);
}

Nanos Reader::Time(const Value& owner, const char* word, Nanos absent) {
  const Nanos time = TomlReader::Time(owner, word, absent);
  const std::string wrong = TooLong(word, time);
  if (wrong.empty()) return ChangedTime(word, time);
  Fail(*Get(owner, word), wrong);
  return absent;
}

// A time of the row that is read, or what a change puts in its place.
Nanos Reader::ChangedTime(const char* word, Nanos time) {
  if (row_.empty()) return time;
  Words& times = times_[row_];
  if (!IsOneOf(word, times)) times.emplace_back(word);
  const auto change = std::find_if(changes_.begin(), changes_.end(), [&](const TimeChange& candidate) {
    return candidate.row == row_ && candidate.word == word;
  });
  if (change == changes_.end()) return time;
  ++change->uses;
  change->error = TooLong(row_ + "." + word, change->time);
  return change->error.empty() ? change->time : time;
}

// A change that fits no row, or more than one.
void Reader::CheckChange(TimeChange& change) const {
  if (change.uses == 1) return;
  if (change.uses > 1) {
    change.error = std::to_string(change.uses) + " rows of the rack file are called " + InQuotes(change.row) +
                   " and have " + InQuotes(change.word);
    return;
  }
  const auto row = times_.find(change.row);
  if (row != times_.end()) {
    change.error = InQuotes(change.row) + " has no time " + InQuotes(change.word) + "; " +
                   Hint(change.word, row->second, "its times: ");
    return;
  }
  Words rows;
  for (const auto& [name, words] : times_) rows.push_back(name);
  change.error = "nothing with a time is called " + InQuotes(change.row) + " in the rack file";
  if (!rows.empty()) change.error += "; " + Hint(change.row, rows, "known there: ");
}

void Reader::ReadRack(const Value& rack) {
  CheckWords(rack.as_table(), {"rack"});
  CpuCardState& cpu = setup_.image.cards[0].cpu;
  cpu.taskCount = Number<std::uint8_t>(rack, "task_count", 0, 255, cpu.taskCount);
  cpu.settings = Number<std::uint8_t>(rack, "settings", 0, 255, 0);
  cpu.functionPort = Number<std::uint8_t>(rack, "function_port", 0, 255, 0);
  if (cpu.functionPort != 0 && cpu.functionPort < 9) {
    Fail(*Get(rack, "function_port"),
         "the ports below 9 are taken: \"function_port\" wants 9 to 255, or 0 for none");
  }
  if (const Value* port = Get(rack, "function_port"))
    notes_.functionPort = {std::to_string(cpu.functionPort), port->location().line(),
                           port->location().column()};
  TimeSetup& time = setup_.time;
  time.accessNanos = Number<std::uint32_t>(rack, "bus_access_ns", 10, 1'000'000, time.accessNanos);
  time.consoleBaud = Number<std::uint32_t>(rack, "console_baud", 0, 10'000'000, 0);
  if (time.consoleBaud != 0 && time.consoleBaud < 300) {
    Fail(*Get(rack, "console_baud"),
         "\"console_baud\" wants 300 to 10000000, or 0 for one that takes every line at once");
  }
  constexpr DeviceName devices[] = {DeviceName::EmIsa, DeviceName::Em335xIsa, DeviceName::None};
  const Value* device = Get(rack, "device");
  if (device == nullptr) return;
  const std::optional<std::size_t> row = Choice(*device, "device", {"em_isa", "em335x_isa", "none"});
  if (row) setup_.image.device = devices[*row];
}

void Reader::ReadSlots(const Value& slots) {
  for (const auto& [word, value] : slots.as_table()) {
    const int slot = SmallNumber(word);
    if (slot < 1 || slot >= kSlots) {
      Fail(value, "no slot " + InQuotes(word) + ": plug-in slots are 1 to 12");
      continue;
    }
    ReadSlot(value, slot);
  }
}

void Reader::ReadSlot(const Value& value, int slot) {
  const Value* const card = value.is_table() ? Need(value, "card") : &value;
  if (card == nullptr) return;
  const std::vector<std::string> words = PlugInWords();
  const std::optional<std::size_t> choice = Choice(*card, "card", words);
  if (!choice) return;
  const CardRow& row =
      *std::find_if(std::begin(kCardRows), std::end(kCardRows),
                    [&](const CardRow& candidate) { return words[*choice] == candidate.word; });
  InsertCard(setup_, slot, row.kind);
  const Value bare = Table{};
  const Value& settings = value.is_table() ? value : bare;
  row_ = CardName(settings, slot);
  ReadSettings(settings, row, setup_.image.cards[slot]);
  row_.clear();
}

std::string Reader::CardName(const Value& value, int slot) {
  std::string name = std::to_string(slot);
  if (Text(value, "name", name) && Split(name).empty())
    Fail(*Get(value, "name"), "a card's name is not empty");
  return name;
}

void Reader::ReadSettings(const Value& value, const CardRow& row, CardState& card) {
  constexpr std::int64_t kNone = -1;
  Words known = {"card", "name"};
  for (const CardSetting& setting : row.settings()) known.emplace_back(setting.word);
  TomlReader::CheckWords(value.as_table(), known);
  for (const CardSetting& setting : row.settings()) {
    const std::int64_t given = Setting(value, setting, kNone);
    if (given != kNone) ApplySetting(card, setting, given);
  }
}

std::int64_t Reader::Setting(const Value& value, const CardSetting& setting, std::int64_t absent) {
  switch (setting.unit) {
    case SettingUnit::Number:
      return Number(value, setting.word, setting.lowest, setting.highest, absent);
    case SettingUnit::Time:
      return Time(value, setting.word, absent);
    case SettingUnit::Flag:
      return Get(value, setting.word) == nullptr ? absent : std::int64_t{Flag(value, setting.word)};
  }
  return absent;
}

bool Reader::Address(const Value& value, int& entry, int& channel) {
  std::string text;
  if (!Text(value, text)) return false;
  if (!ParseAddress(text, entry, channel)) {
    Fail(value, InQuotes(text) + " is no address: entry and channel are wanted, such as \"0.5\"");
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
      Fail(value, InQuotes(word) + " is an address and cannot be a name");
      continue;
    }
    if (word.empty() || word.size() >= kSignalNameSize) {
      Fail(value, "a name has 1 to " + std::to_string(kSignalNameSize - 1) + " characters");
      continue;
    }
    if (FindSignal(setup_.image, word.c_str()) != nullptr) {
      Fail(value, "the name " + InQuotes(word) + " is given twice");
      continue;
    }
    if (!Signal(value, output, signal)) continue;
    const SignalName* other = NameOf(setup_.image, output, signal.entry, signal.channel);
    if (other != nullptr) {
      Fail(value, "this channel has the name " + InQuotes(other->name) + " already");
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
  const CardState& card = setup_.image.cards[SlotOfEntry(setup_.image, entry)];
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
  const CardState& card = setup_.image.cards[SlotOfEntry(setup_.image, row)];
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

// A range that lies wholly beyond a hard stop of its motor.
void Reader::CheckRange(const Value& owner, const PlantLink& link) {
  CardState& card = setup_.image.cards[SlotOfEntry(setup_.image, link.entry)];
  const PulseChannelState& way = *MotorChannel(card, link.channel);
  if (link.from > way.hardStopHigh) CheckSwitch(owner, "from", way);
  if (link.to < way.hardStopLow) CheckSwitch(owner, "to", way);
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
    if (right) CheckRange(owner, link);
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

// A switch that the motor cannot reach.
void Reader::CheckSwitch(const Value& axis, const char* word, const PulseChannelState& way) {
  const Value* at = Get(axis, word);
  if (at == nullptr || !at->is_integer()) return;
  const std::int64_t position = at->as_integer();
  const bool low = position < way.hardStopLow;
  if (!low && position <= way.hardStopHigh) return;
  Fail(*at, InQuotes(word) + " lies beyond " + InQuotes(low ? "stop_low" : "stop_high") +
                ": the motor never gets there");
}

void Reader::ReadHardStops(const Value& axis) {
  const Value* const low = Get(axis, "stop_low");
  const Value* const high = Get(axis, "stop_high");
  if (low == nullptr && high == nullptr) return;
  const Value& motor = *Get(axis, "motor");
  std::uint8_t entry = 0;
  std::uint8_t channel = 0;
  if (!Mover(motor, true, entry, channel)) return;
  PulseChannelState& way = *MotorChannel(setup_.image.cards[SlotOfEntry(setup_.image, entry)], channel);
  if (way.hardStopLow != -kNoHardStop || way.hardStopHigh != kNoHardStop) {
    Fail(motor, "another [[axis]] gives this motor hard stops already");
    return;
  }
  way.hardStopLow = Number(axis, "stop_low", -kMaxSteps, kMaxSteps, -kNoHardStop);
  way.hardStopHigh = Number(axis, "stop_high", -kMaxSteps, kMaxSteps, kNoHardStop);
  if (way.hardStopLow >= way.hardStopHigh) {
    Fail(*high, "\"stop_high\" wants to be higher than \"stop_low\"");
    return;
  }
  if (way.hardStopLow > 0) Fail(*low, "the motor stands at 0 at power-on: \"stop_low\" cannot be above that");
  if (way.hardStopHigh < 0)
    Fail(*high, "the motor stands at 0 at power-on: \"stop_high\" cannot be below that");
  for (const char* word : {"home_at", "low_at", "high_at"}) CheckSwitch(axis, word, way);
}

void Reader::ReadAxis(const Value& axis) {
  if (Need(axis, "motor") == nullptr) return;
  ReadHardStops(axis);
  const std::int64_t home = Number(axis, "home_at", -kMaxSteps, kMaxSteps, 0);
  AxisSwitch(axis, "home", home, home);
  for (const char* limit : {"low", "high"}) {
    const std::string at = std::string(limit) + "_at";
    if (Get(axis, limit) != nullptr) Need(axis, at);
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
    link.from = SmallNumber(word);
    if (link.from < 0 || link.from > 15) {
      Fail(input, "no position " + InQuotes(word) + ": a cylinder has the positions 0 to 15");
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
  link.goal = Number<std::uint32_t>(counter, "goal", 0, INT32_MAX, 0);
  if (text.empty() || text.size() >= kSignalNameSize) {
    Fail(*name, "a name has 1 to " + std::to_string(kSignalNameSize - 1) + " characters");
    return;
  }
  AddLink(counter, link, text);
}

void Reader::ReadThings(const Value& root) {
  struct Thing {
    const char* word;
    Words scopes;
    void (Reader::*read)(const Value&);
    const char* name;  // the word that names a row for changes
  };
  const Thing things[] = {{"axis", {"axis"}, &Reader::ReadAxis, ""},
                          {"cylinder", {"cylinder"}, &Reader::ReadCylinder, ""},
                          {"valve", {"valve"}, &Reader::ReadValve, "sensor"},
                          {"arrival", {"arrival", "when"}, &Reader::ReadArrival, "input"},
                          {"stop", {"stop", "when"}, &Reader::ReadStop, ""},
                          {"counter", {"counter", "when"}, &Reader::ReadCounter, ""},
                          {"rule", {"rule"}, &Reader::ReadRule, ""}};
  for (const Thing& thing : things) {
    for (const Value* table : Tables(root, thing.word)) {
      CheckWords(table->as_table(), thing.scopes);
      const Value* name = Get(*table, thing.name);
      row_ = name != nullptr && name->is_string() ? name->as_string().str : "";
      (this->*thing.read)(*table);
      row_.clear();
    }
  }
}

void Reader::ReadOnAtStart(const Value& on) {
  const toml::array* inputs = List(on, "on_at_start", "[\"guard_closed\", \"0.3\"]");
  if (inputs == nullptr) return;
  for (const Value& input : *inputs) {
    SignalRef signal{};
    if (!Signal(input, false, signal)) continue;
    std::uint16_t& bits = setup_.inputsOn[signal.entry];
    bits = static_cast<std::uint16_t>(bits | 1U << signal.channel);
  }
}

void Reader::ReadCheck(const Value& check) {
  CheckWords(check.as_table(), {"check"});
  const Value* ignore = Get(check, "ignore");
  const toml::array* rules =
      ignore == nullptr ? nullptr : List(*ignore, "ignore", "[\"long-delay\", \"lost-text\"]");
  if (rules == nullptr) return;
  for (const Value& rule : *rules) {
    std::string name;
    if (!Text(rule, name)) continue;
    const toml::source_location place = rule.location();
    notes_.ignored.push_back({name, place.line(), place.column()});
  }
}

void Reader::ReadRuleName(const Value& rule, PlacedText& name) {
  const Value* given = Need(rule, "name");
  if (given == nullptr || !Text(*given, name.text)) return;
  name.line = given->location().line();
  name.column = given->location().column();
  if (Split(name.text).empty()) Fail(*given, "a rule's name says what must hold");
  const bool twice = std::any_of(notes_.rules.begin(), notes_.rules.end(),
                                 [&](const RuleText& other) { return other.name.text == name.text; });
  if (twice) Fail(*given, "the rule " + InQuotes(name.text) + " is given twice");
}

void Reader::ReadHappenings(const Value& rule, const RuleWords& words, RuleText& text) {
  const auto add = [&](const Value& value) {
    PlacedText happening;
    if (!Text(value, happening.text)) return;
    happening.line = value.location().line();
    happening.column = value.location().column();
    text.happenings.push_back(happening);
  };
  if (words.form != RuleForm::NeverTogether) {
    for (const std::string& word : words.happenings) {
      if (const Value* value = Need(rule, word)) add(*value);
    }
    return;
  }
  const Value& value = *Get(rule, words.word);
  const toml::array* list = List(value, words.word, "[\"spindle on\", \"clamped off\"]");
  if (list == nullptr) return;
  if (list->size() < 2) Fail(value, "\"never_together\" wants two or more that must not be together");
  for (const Value& each : *list) add(each);
}

void Reader::ReadRule(const Value& rule) {
  RuleText text;
  ReadRuleName(rule, text.name);
  Words first;
  for (const RuleWords& form : RuleForms()) first.emplace_back(form.word);
  std::string given;
  if (!OneOf(rule, first, given)) return;
  const RuleWords& words = *std::find_if(RuleForms().begin(), RuleForms().end(),
                                         [&](const RuleWords& form) { return form.word == given; });
  Words fitting = words.happenings;
  fitting.emplace_back("name");
  if (words.time != nullptr) fitting.emplace_back(words.time);
  for (const RackWord& word : RackWords()) {
    const Value* value = std::strcmp(word.table, "rule") == 0 ? Get(rule, word.word) : nullptr;
    if (value != nullptr && !IsOneOf(word.word, fitting))
      Fail(*value, InQuotes(word.word) + " does not go with " + InQuotes(given));
  }
  text.form = words.form;
  ReadHappenings(rule, words, text);
  if (words.needsTime) Need(rule, words.time);
  if (words.time != nullptr) text.time = Time(rule, words.time, 0);
  notes_.rules.push_back(text);
}

void Reader::ReadRoot(const Value& root) {
  CheckWords(root.as_table(), {""});
  const Value* rack = TableOf(root, "rack");
  if (rack != nullptr) ReadRack(*rack);
  if (const Value* slots = TableOf(root, "slots")) ReadSlots(*slots);
  AssignEntries(setup_);
  if (const Value* inputs = TableOf(root, "inputs")) ReadNames(*inputs, false);
  if (const Value* outputs = TableOf(root, "outputs")) ReadNames(*outputs, true);
  ReadThings(root);
  const Value* on = rack == nullptr ? nullptr : Get(*rack, "on_at_start");
  if (on != nullptr) ReadOnAtStart(*on);
  if (const Value* check = TableOf(root, "check")) ReadCheck(*check);
  ReadExploration(root, notes_.explore);
  for (TimeChange& change : changes_) CheckChange(change);
}

}  // namespace

bool ParseAddress(const std::string& text, int& entry, int& channel) {
  const std::size_t dot = text.find('.');
  if (dot == std::string::npos) return false;
  entry = SmallNumber(text.substr(0, dot));
  channel = SmallNumber(text.substr(dot + 1));
  return entry >= 0 && channel >= 0;
}

bool ReadRackText(const std::string& text, const std::string& name, RackSetup& setup,
                  std::vector<std::string>& errors, RackNotes* notes) {
  MakeEmptySetup(setup);
  RackNotes unasked;
  std::vector<TimeChange> none;
  return Reader(name, setup, errors, notes == nullptr ? unasked : *notes, none).ReadText(text);
}

bool ReadRackFile(const std::string& path, RackSetup& setup, std::vector<std::string>& errors,
                  RackNotes* notes, std::vector<TimeChange>* changes) {
  MakeEmptySetup(setup);
  RackNotes unasked;
  std::vector<TimeChange> none;
  return Reader(path, setup, errors, notes == nullptr ? unasked : *notes,
                changes == nullptr ? none : *changes)
      .ReadFile();
}

}  // namespace rack
