#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "machine/faults.h"
#include "machine/key_names.h"
#include "machine/machine.h"
#include "machine/signals.h"
#include "rackfile/rackfile.h"
#include "scenario/scenario.h"
#include "toml/toml_error.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

using Value = toml::value;

constexpr Nanos kUsualLimit = 60 * kSecond;
constexpr Nanos kUsualHold = 200 * kMillisecond;
constexpr const char* kTimeForm = "wants a time such as \"300 ms\", \"1.5 s\" or \"20 min\"";

const std::vector<std::string> kTopWords = {"machine", "rack",  "tasks",  "seed",
                                            "limit",   "event", "expect", "end"};
// What an event or an expectation can be, each with the words that go with it.
struct Sort {
  const char* word;
  std::vector<std::string> with;
};
using Sorts = std::vector<Sort>;

const Sorts kActions = {{"key", {"hold"}}, {"input", {}},   {"fault", {"for"}},           {"clear", {}},
                        {"datagram", {}},  {"restart", {}}, {"program", {"from", "text"}}};
const std::vector<std::string> kEventWords = {"name", "at", "after", "nth", "delay"};
const Sorts kDemands = {{"that", {"by", "at", "after", "nth", "within"}},
                        {"never", {"from", "by", "after", "nth", "within"}},
                        {"then", {"first"}}};
const std::vector<std::string> kEndWords = {"wait", "hold"};

std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

const Value* Get(const Value& owner, const std::string& word) {
  const toml::table& table = owner.as_table();
  const auto found = table.find(word);
  return found == table.end() ? nullptr : &found->second;
}

bool ReadFile(const std::string& path, std::string& text) {
  std::ifstream file(path, std::ios::binary);
  struct stat status = {};
  if (!file || stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) return false;
  text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return !file.bad();
}

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string Below(const std::string& folder, const std::string& path) {
  return path[0] == '/' ? path : folder + "/" + path;
}

// A program file below the machine's directory, and nothing outside it.
bool IsInside(const std::string& path) {
  return !path.empty() && path[0] != '/' && path.find("..") == std::string::npos;
}

// One reading of one scenario. Every finding goes into the list and the reading goes on.
class Reader {
 public:
  Reader(Scenario& scenario, std::vector<std::string>& errors) : scenario_(scenario), errors_(errors) {}

  void Read(const Value& root);

 private:
  struct Finding {
    std::size_t line;
    std::size_t column;
    std::string message;
  };

  void Fail(const Value& value, const std::string& message) {
    const toml::source_location place = value.location();
    findings_.push_back({place.line(), place.column(), message});
  }
  void Report();
  void CheckWords(const Value& owner, std::vector<std::string> known);
  bool Text(const Value& owner, const char* word, std::string& text);
  Nanos Time(const Value& owner, const char* word, Nanos absent);
  int Number(const Value& owner, const char* word, int low, int high, int absent);
  std::vector<const Value*> Tables(const Value& root, const char* word);
  bool OneOf(const Value& owner, const std::vector<std::string>& words, std::string& given);
  bool SortOf(const Value& owner, const Sorts& sorts, const std::vector<std::string>& always,
              std::string& sort);
  void CheckTime(const Value& table, const char* word, Nanos time);

  bool ReadMachine(const Value& root);
  void ReadEventNames(const Value& root);
  void ReadEvent(const Value& table);
  void ReadAction(const Value& table, const std::string& action, Event& event);
  void ReadKey(const Value& table, Event& event);
  void ReadInput(const Value& table, Event& event);
  void ReadFault(const Value& table, const char* word, Event& event);
  void ReadProgram(const Value& table, Event& event);
  bool ReadAfter(const Value& table, Moment& moment);

  void ReadExpectation(const Value& table);
  void ReadThat(const Value& table, Expectation& expectation);
  void ReadNever(const Value& table, Expectation& expectation);
  void ReadOrder(const Value& table, Expectation& expectation);
  void ReadEnd(const Value& table);
  int Happens(const Value& value);
  std::string AfterText(const Moment& moment) const;

  Scenario& scenario_;
  std::vector<std::string>& errors_;
  std::vector<Finding> findings_;
  std::vector<std::string> names_;  // of events
  Snapshot machine_;
};

// Tables are read in no particular order; people read from top to bottom.
void Reader::Report() {
  std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
  for (const Finding& finding : findings_) {
    errors_.push_back(scenario_.path + ":" + std::to_string(finding.line) + ":" +
                      std::to_string(finding.column) + ": " + finding.message);
  }
}

void Reader::CheckWords(const Value& owner, std::vector<std::string> known) {
  for (const auto& [word, value] : owner.as_table()) {
    if (std::find(known.begin(), known.end(), word) != known.end()) continue;
    const std::string near = Nearest(word, known);
    Fail(value,
         "unknown word " + Quoted(word) + "; " +
             (near.empty() ? "known here: " + Join(known, ", ") : "did you mean " + Quoted(near) + "?"));
  }
}

bool Reader::Text(const Value& owner, const char* word, std::string& text) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return false;
  if (value->is_string()) {
    text = value->as_string().str;
    return true;
  }
  Fail(*value, Quoted(word) + " wants a text in quotes");
  return false;
}

Nanos Reader::Time(const Value& owner, const char* word, Nanos absent) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return absent;
  std::string text = value->is_string() ? value->as_string().str : "";
  const bool united = !text.empty() && text.find_first_not_of("0123456789. ") != std::string::npos;
  text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
  const std::optional<long long> millis = united ? DurationMillis(text) : std::nullopt;
  if (millis) return *millis * kMillisecond;
  Fail(*value, Quoted(word) + " " + kTimeForm);
  return absent;
}

int Reader::Number(const Value& owner, const char* word, int low, int high, int absent) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return absent;
  if (value->is_integer() && value->as_integer() >= low && value->as_integer() <= high) {
    return static_cast<int>(value->as_integer());
  }
  Fail(*value,
       Quoted(word) + " wants a whole number from " + std::to_string(low) + " to " + std::to_string(high));
  return absent;
}

std::vector<const Value*> Reader::Tables(const Value& root, const char* word) {
  std::vector<const Value*> tables;
  const Value* list = Get(root, word);
  if (list == nullptr) return tables;
  const bool right = list->is_array() && std::all_of(list->as_array().begin(), list->as_array().end(),
                                                     [](const Value& row) { return row.is_table(); });
  if (!right) {
    Fail(*list, Quoted(word) + " is written as [[" + word + "]]");
    return tables;
  }
  for (const Value& row : list->as_array()) tables.push_back(&row);
  return tables;
}

bool Reader::OneOf(const Value& owner, const std::vector<std::string>& words, std::string& given) {
  int count = 0;
  for (const std::string& word : words) {
    if (Get(owner, word) == nullptr) continue;
    given = word;
    ++count;
  }
  if (count == 1) return true;
  Fail(owner, "exactly one of " + Join(words, ", ") + " is wanted here");
  return false;
}

// Which of the sorts a table is, with all its words checked: unknown ones, and those that go with another sort.
bool Reader::SortOf(const Value& owner, const Sorts& sorts, const std::vector<std::string>& always,
                    std::string& sort) {
  std::vector<std::string> words;
  std::vector<std::string> known = always;
  std::vector<std::string> fitting = always;
  for (const Sort& row : sorts) {
    words.emplace_back(row.word);
    known.emplace_back(row.word);
    for (const std::string& word : row.with) {
      if (std::find(known.begin(), known.end(), word) == known.end()) known.push_back(word);
    }
  }
  CheckWords(owner, known);
  if (!OneOf(owner, words, sort)) return false;
  fitting.push_back(sort);
  for (const Sort& row : sorts) {
    if (sort == row.word) fitting.insert(fitting.end(), row.with.begin(), row.with.end());
  }
  const auto has = [](const std::vector<std::string>& list, const std::string& word) {
    return std::find(list.begin(), list.end(), word) != list.end();
  };
  for (const auto& [word, value] : owner.as_table()) {
    if (!has(known, word) || has(fitting, word)) continue;
    Fail(value, Quoted(word) + " does not go with " + Quoted(sort));
  }
  return true;
}

void Reader::CheckTime(const Value& table, const char* word, Nanos time) {
  if (time <= scenario_.limit) return;
  Fail(*Get(table, word),
       "this is later than the limit of " + TimeText(scenario_.limit) + ", \"limit\" moves it");
}

// The machine and what its rack file says. False: the names in the rest cannot be judged.
bool Reader::ReadMachine(const Value& root) {
  std::string directory = "..";
  Text(root, "machine", directory);
  scenario_.machine = Below(FolderOf(scenario_.path), directory);
  struct stat status = {};
  if (stat(scenario_.machine.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    const Value* given = Get(root, "machine");
    Fail(given != nullptr ? *given : root, "there is no machine in " + scenario_.machine +
                                               ": \"machine\" names its directory, seen from this file");
    return false;
  }
  std::string rackFile = "rack.toml";
  Text(root, "rack", rackFile);
  const auto setup = std::make_shared<RackSetup>();
  std::vector<std::string> findings;
  const bool read = ReadRackFile(Below(scenario_.machine, rackFile), *setup, findings);
  errors_.insert(errors_.end(), findings.begin(), findings.end());
  if (!read) return false;
  scenario_.setup = setup;
  const auto state = std::make_unique<RackState>();
  PowerOn(*state, *setup, 0);
  machine_ = SnapshotOf(state->image, state->live);
  return true;
}

void Reader::ReadEventNames(const Value& root) {
  for (const Value* table : Tables(root, "event")) {
    std::string name;
    if (!Text(*table, "name", name)) continue;
    if (std::find(names_.begin(), names_.end(), name) != names_.end()) {
      Fail(*Get(*table, "name"), "another event is called " + Quoted(name));
    }
    names_.push_back(name);
  }
}

int Reader::Happens(const Value& value) {
  if (!value.is_string()) {
    Fail(value, "a text in quotes is wanted here");
    return 0;
  }
  HappeningChoice choice = ParseHappening(value.as_string().str, machine_, names_);
  if (!choice.error.empty()) {
    Fail(value, choice.error);
    // Counts as a state from here on: one finding is enough.
    choice.happening.kind = HappeningKind::Level;
  }
  scenario_.happenings.push_back(choice.happening);
  return static_cast<int>(scenario_.happenings.size()) - 1;
}

bool Reader::ReadAfter(const Value& table, Moment& moment) {
  const Value* after = Get(table, "after");
  if (after == nullptr) {
    if (const Value* nth = Get(table, "nth")) Fail(*nth, "\"nth\" goes with \"after\"");
    return false;
  }
  moment.after = Happens(*after);
  moment.nth = Number(table, "nth", 1, 1'000'000, 1);
  return true;
}

void Reader::ReadEvent(const Value& table) {
  std::string action;
  const bool known = SortOf(table, kActions, kEventWords, action);
  Event event;
  Text(table, "name", event.name);
  const bool after = ReadAfter(table, event.when);
  if (after == (Get(table, "at") != nullptr)) {
    Fail(table, "an event wants either \"at\", a time since power-on, or \"after\", something that happens");
  }
  event.when.delay = after ? Time(table, "delay", 0) : Time(table, "at", 0);
  if (!after) CheckTime(table, "at", event.when.delay);
  if (const Value* delay = Get(table, "delay"); delay != nullptr && !after)
    Fail(*delay, "\"delay\" goes with \"after\"");
  if (!known) return;
  ReadAction(table, action, event);
  scenario_.events.push_back(event);
}

void Reader::ReadAction(const Value& table, const std::string& action, Event& event) {
  if (action == "key") return ReadKey(table, event);
  if (action == "input") return ReadInput(table, event);
  if (action == "fault" || action == "clear") return ReadFault(table, action.c_str(), event);
  if (action == "program") return ReadProgram(table, event);
  if (action == "datagram") {
    event.kind = ActionKind::Datagram;
    Text(table, "datagram", event.content);
    event.text = "datagram " + Quoted(event.content);
    return;
  }
  const Value* restart = Get(table, "restart");
  if (!restart->is_boolean() || !restart->as_boolean()) Fail(*restart, "\"restart\" is true or not there");
  event.kind = ActionKind::Restart;
  event.text = "restart request";
}

void Reader::ReadKey(const Value& table, Event& event) {
  std::string name;
  if (!Text(table, "key", name)) return;
  const std::optional<Key> key = FindKey(name);
  if (!key) {
    Fail(*Get(table, "key"), "there is no key " + Quoted(name) + Suggestion(name, KeyNames()));
    return;
  }
  event.kind = ActionKind::Key;
  event.text = std::string("key ") + key->name;
  event.request.kind = key->function ? RequestKind::PressFunctionKeys : RequestKind::PressKey;
  event.request.value = key->code;
  event.request.duration = Time(table, "hold", kUsualHold);
}

void Reader::ReadInput(const Value& table, Event& event) {
  std::string text;
  if (!Text(table, "input", text)) return;
  const std::size_t blank = text.rfind(' ');
  const std::string level = blank == std::string::npos ? "" : text.substr(blank + 1);
  if (level != "on" && level != "off" && level != "release") {
    Fail(*Get(table, "input"), "\"input\" wants a signal and on, off or release, such as \"clamped off\"");
    return;
  }
  const SignalChoice input = ChooseSignal(machine_, SignalKind::Input, text.substr(0, blank));
  if (!input.found) {
    Fail(*Get(table, "input"), input.error);
    return;
  }
  event.kind = ActionKind::Request;
  event.text = "input " + text;
  event.request.kind = level == "release" ? RequestKind::ReleaseInput : RequestKind::SetInput;
  event.request.slot = static_cast<std::uint8_t>(machine_.cards[static_cast<std::size_t>(input.entry)].slot);
  event.request.channel = static_cast<std::uint8_t>(input.channel);
  event.request.value = level == "on" ? 1 : 0;
}

void Reader::ReadFault(const Value& table, const char* word, Event& event) {
  std::string text;
  if (!Text(table, word, text)) return;
  event.kind = ActionKind::Request;
  event.text = std::string(word) + " " + text;
  const bool clear = std::strcmp(word, "clear") == 0;
  if (clear && text == "all") {
    event.request.kind = RequestKind::EndAllFaults;
    return;
  }
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string each; stream >> each;) words.push_back(each);
  if (words.empty()) words.emplace_back();
  const FaultChoice choice =
      ChooseFault(machine_, words, clear ? RequestKind::EndFault : RequestKind::BeginFault);
  if (!choice.error.empty()) Fail(*Get(table, word), choice.error);
  event.request = choice.request;
  event.request.duration = Time(table, "for", 0);
}

void Reader::ReadProgram(const Value& table, Event& event) {
  const Value& program = *Get(table, "program");
  if (!Text(table, "program", event.path)) return;
  event.kind = ActionKind::Program;
  event.text = "program " + event.path;
  if (!IsInside(event.path)) {
    Fail(program, "\"program\" names a file below the machine's directory, such as \"plc1/FLOW.PLC\"");
  }
  std::string from;
  const bool file = Text(table, "from", from);
  if (file == Text(table, "text", event.content)) {
    Fail(program, "a program's new lines come \"from\" a file beside this one, or are its \"text\"");
    return;
  }
  if (file && !ReadFile(Below(FolderOf(scenario_.path), from), event.content)) {
    Fail(*Get(table, "from"), "cannot read " + Below(FolderOf(scenario_.path), from));
  }
}

std::string Reader::AfterText(const Moment& moment) const {
  const std::string& text = scenario_.happenings[static_cast<std::size_t>(moment.after)].text;
  return " after " + text + (moment.nth > 1 ? " number " + std::to_string(moment.nth) : "");
}

void Reader::ReadExpectation(const Value& table) {
  std::string sort;
  if (!SortOf(table, kDemands, {}, sort)) return;
  Expectation expectation;
  if (sort == "that") ReadThat(table, expectation);
  if (sort == "never") ReadNever(table, expectation);
  if (sort == "then") ReadOrder(table, expectation);
  scenario_.expectations.push_back(expectation);
}

void Reader::ReadThat(const Value& table, Expectation& expectation) {
  const Value& that = *Get(table, "that");
  expectation.what = Happens(that);
  expectation.line = static_cast<int>(that.location().line());
  const Happening what = scenario_.happenings[static_cast<std::size_t>(expectation.what)];
  std::string when;
  const bool after = ReadAfter(table, expectation.from);
  if (!OneOf(table, {"by", "at", "within"}, when)) return;
  expectation.limit = Time(table, when.c_str(), 0);
  if (when != "within") CheckTime(table, when.c_str(), expectation.limit);
  expectation.text = what.text + " " + when + " " + TimeText(expectation.limit);
  if (after != (when == "within")) {
    Fail(*Get(table, when), "\"within\" a time goes with \"after\", \"by\" and \"at\" a time stand alone");
  }
  if (after) expectation.text += AfterText(expectation.from);
  if (when == "at" && !IsState(what.kind)) {
    Fail(that, Quoted(what.text) + " happens and is over; \"at\" wants something that lasts");
  }
  expectation.demand = when == "by" ? Demand::By : when == "at" ? Demand::At : Demand::Within;
}

void Reader::ReadNever(const Value& table, Expectation& expectation) {
  const Value& never = *Get(table, "never");
  expectation.demand = Demand::Never;
  expectation.what = Happens(never);
  expectation.line = static_cast<int>(never.location().line());
  expectation.text = "never " + scenario_.happenings[static_cast<std::size_t>(expectation.what)].text;
  const bool after = ReadAfter(table, expectation.from);
  expectation.from.delay = Time(table, "from", 0);
  const char* const end = after ? "within" : "by";
  expectation.limit = Time(table, end, -1);
  if (Get(table, "from") != nullptr) expectation.text += " from " + TimeText(expectation.from.delay);
  if (expectation.limit >= 0) expectation.text += std::string(" ") + end + " " + TimeText(expectation.limit);
  if (after) expectation.text += AfterText(expectation.from);
  for (const char* word : {"from", "by", "within"}) {
    const Value* value = Get(table, word);
    if (value == nullptr || after == (std::strcmp(word, "within") == 0)) continue;
    Fail(*value,
         "\"never\" goes with \"from\" and \"by\" a time since power-on, or with \"after\" and \"within\"");
  }
  if (after || expectation.limit < 0) return;
  CheckTime(table, "by", expectation.limit);
  expectation.limit -= expectation.from.delay;
  if (expectation.limit < 0) Fail(*Get(table, "by"), "\"by\" must be later than \"from\"");
}

void Reader::ReadOrder(const Value& table, Expectation& expectation) {
  const Value* first = Get(table, "first");
  expectation.demand = Demand::Order;
  if (first == nullptr) {
    Fail(*Get(table, "then"), "\"then\" goes with \"first\"");
    return;
  }
  expectation.first = Happens(*first);
  expectation.what = Happens(*Get(table, "then"));
  expectation.line = static_cast<int>(Get(table, "then")->location().line());
  expectation.text = scenario_.happenings[static_cast<std::size_t>(expectation.first)].text + " before " +
                     scenario_.happenings[static_cast<std::size_t>(expectation.what)].text;
}

void Reader::ReadEnd(const Value& table) {
  CheckWords(table, kEndWords);
  scenario_.endWait = Time(table, "wait", 0);
  const Value* list = Get(table, "hold");
  if (list == nullptr || !list->is_array()) {
    Fail(list == nullptr ? table : *list,
         "\"hold\" wants a list such as [\"spindle off\", \"counter parts 5\"]");
    return;
  }
  for (const Value& value : list->as_array()) {
    Expectation expectation;
    expectation.line = static_cast<int>(value.location().line());
    expectation.what = Happens(value);
    const Happening& what = scenario_.happenings[static_cast<std::size_t>(expectation.what)];
    expectation.text = "at the end " + what.text;
    if (!IsState(what.kind))
      Fail(value, Quoted(what.text) + " happens and is over; the end wants something that lasts");
    scenario_.expectations.push_back(expectation);
  }
}

void Reader::Read(const Value& root) {
  CheckWords(root, kTopWords);
  scenario_.limit = Time(root, "limit", kUsualLimit);
  scenario_.seed = static_cast<unsigned>(Number(root, "seed", 0, INT32_MAX, 0));
  const int tasks = Number(root, "tasks", 0, 99, -1);
  if (tasks >= 0) scenario_.tasks = std::to_string(tasks);
  if (ReadMachine(root)) {
    ReadEventNames(root);
    for (const Value* table : Tables(root, "event")) ReadEvent(*table);
    for (const Value* table : Tables(root, "expect")) ReadExpectation(*table);
    const Value* end = Get(root, "end");
    if (end != nullptr && end->is_table()) ReadEnd(*end);
    if (end != nullptr && !end->is_table()) Fail(*end, "\"end\" is written as [end]");
    if (Get(root, "expect") == nullptr && end == nullptr) {
      Fail(root, "nothing is expected here: write [[expect]] or [end]");
    }
  }
  Report();
}

std::string NameOf(const std::string& path) {
  const std::string file = path.substr(path.rfind('/') + 1);
  return file.substr(0, file.rfind('.'));
}

}  // namespace

bool ReadScenario(const std::string& path, Scenario& scenario, std::vector<std::string>& errors) {
  scenario.path = path;
  scenario.name = NameOf(path);
  std::string text;
  if (!ReadFile(path, text)) {
    errors.push_back(path + ": cannot be read");
    return false;
  }
  const std::size_t before = errors.size();
  try {
    std::istringstream stream(text);
    Reader(scenario, errors).Read(toml::parse(stream, path));
  } catch (const toml::exception& error) {
    errors.push_back(SyntaxError(path, error));
  } catch (const std::exception& error) {
    errors.push_back(path + ": " + error.what());
  }
  return errors.size() == before;
}

std::string TimeText(Nanos time) {
  const long long millis = time / kMillisecond;
  if (millis % 60'000 == 0 && millis != 0) return std::to_string(millis / 60'000) + " min";
  if (millis % 1000 == 0) return std::to_string(millis / 1000) + " s";
  if (millis < 1000) return std::to_string(millis) + " ms";
  std::string text = std::to_string(millis / 1000) + "." + std::to_string(1000 + millis % 1000).substr(1);
  text.erase(text.find_last_not_of('0') + 1);
  return text + " s";
}

}  // namespace rack::scenario
