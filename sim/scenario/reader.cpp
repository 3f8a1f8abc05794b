#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "machine/faults.h"
#include "machine/key_names.h"
#include "machine/machine.h"
#include "machine/signals.h"
#include "rackfile/rackfile.h"
#include "scenario/scenario.h"
#include "toml/times.h"
#include "toml/toml_reader.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

using Value = toml::value;

constexpr Nanos kUsualLimit = 60 * kSecond;
constexpr Nanos kUsualHold = 200 * kMillisecond;

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

class Reader : public TomlReader {
 public:
  Reader(Scenario& scenario, std::vector<std::string>& errors)
      : TomlReader(scenario.path, errors), scenario_(scenario) {}

 private:
  void ReadRoot(const Value& root) override;
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
  std::vector<std::string> names_;  // of events
  Snapshot machine_;
};

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
  CheckWords(owner.as_table(), known);
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
    Fail(value, InQuotes(word) + " does not go with " + InQuotes(sort));
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
  if (!ReadRackFile(Below(scenario_.machine, rackFile), *setup, Errors())) return false;
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
      Fail(*Get(*table, "name"), "another event is called " + InQuotes(name));
    }
    names_.push_back(name);
  }
}

int Reader::Happens(const Value& value) {
  std::string text;
  if (!Text(value, text)) return 0;
  HappeningChoice choice = ParseHappening(text, machine_, names_);
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
  moment.nth = Number<int>(table, "nth", 1, 1'000'000, 1);
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
    event.text = "datagram " + InQuotes(event.content);
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
    Fail(*Get(table, "key"), "there is no key " + InQuotes(name) + Suggestion(name, KeyNames()));
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
  if (file && !ReadWholeFile(Below(FolderOf(scenario_.path), from), event.content)) {
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
    Fail(that, InQuotes(what.text) + " happens and is over; \"at\" wants something that lasts");
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
  CheckWords(table.as_table(), kEndWords);
  scenario_.endWait = Time(table, "wait", 0);
  const Value* hold = Get(table, "hold");
  const toml::array* list =
      List(hold == nullptr ? table : *hold, "hold", "[\"spindle off\", \"counter parts 5\"]");
  if (list == nullptr) return;
  for (const Value& value : *list) {
    Expectation expectation;
    expectation.line = static_cast<int>(value.location().line());
    expectation.what = Happens(value);
    const Happening& what = scenario_.happenings[static_cast<std::size_t>(expectation.what)];
    expectation.text = "at the end " + what.text;
    if (!IsState(what.kind))
      Fail(value, InQuotes(what.text) + " happens and is over; the end wants something that lasts");
    scenario_.expectations.push_back(expectation);
  }
}

void Reader::ReadRoot(const Value& root) {
  CheckWords(root.as_table(), kTopWords);
  scenario_.limit = Time(root, "limit", kUsualLimit);
  scenario_.seed = Number<unsigned>(root, "seed", 0, INT32_MAX, 0);
  const int tasks = Number<int>(root, "tasks", 0, 99, -1);
  if (tasks >= 0) scenario_.tasks = std::to_string(tasks);
  if (!ReadMachine(root)) return;
  ReadEventNames(root);
  for (const Value* table : Tables(root, "event")) ReadEvent(*table);
  for (const Value* table : Tables(root, "expect")) ReadExpectation(*table);
  if (const Value* end = TableOf(root, "end")) ReadEnd(*end);
  if (Get(root, "expect") == nullptr && Get(root, "end") == nullptr) {
    Fail(root, "nothing is expected here: write [[expect]] or [end]");
  }
}

std::string NameOf(const std::string& path) {
  const std::string file = path.substr(path.rfind('/') + 1);
  return file.substr(0, file.rfind('.'));
}

}  // namespace

bool ReadScenario(const std::string& path, Scenario& scenario, std::vector<std::string>& errors) {
  scenario.path = path;
  scenario.name = NameOf(path);
  return Reader(scenario, errors).ReadFile();
}

}  // namespace rack::scenario
