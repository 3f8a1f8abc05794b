// The events of a scenario: what is done to the machine.
#include <algorithm>
#include <optional>

#include "machine/faults.h"
#include "machine/key_names.h"
#include "machine/signals.h"
#include "scenario/scenario_reader.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

constexpr Nanos kUsualHold = 200 * kMillisecond;

const std::vector<std::string> kEventWords = {"name", "at", "after", "nth", "delay"};

// What can be done, the words that go with it, and how it is read.
struct ActionRow {
  std::string word;
  std::vector<std::string> with;
  void (ScenarioReader::*read)(const toml::value& table, const std::string& word, Event& event);
};
const std::vector<ActionRow> kActions = {{"key", {"hold"}, &ScenarioReader::ReadKey},
                                         {"input", {}, &ScenarioReader::ReadInput},
                                         {"fault", {"for"}, &ScenarioReader::ReadFault},
                                         {"clear", {}, &ScenarioReader::ReadFault},
                                         {"datagram", {}, &ScenarioReader::ReadDatagram},
                                         {"restart", {}, &ScenarioReader::ReadRestart},
                                         {"program", {"from", "text"}, &ScenarioReader::ReadProgram}};

// A program file below the machine's directory, and nothing outside it.
bool IsInside(const std::string& path) {
  return !path.empty() && path[0] != '/' && path.find("..") == std::string::npos;
}

// The words of a fault. The name of an input, which may hold blanks, is one of them.
std::vector<std::string> FaultWords(const std::string& text, bool clear) {
  std::vector<std::string> words = Split(text);
  if (words.empty()) return {""};
  const std::size_t behind = words.size() - (clear ? 0 : 1);
  if (words[0] != "stuck" || behind < 3) return words;
  const auto end = words.begin() + static_cast<std::ptrdiff_t>(behind);
  words[1] = Join({words.begin() + 1, end}, " ");
  words.erase(words.begin() + 2, end);
  return words;
}

}  // namespace

void ScenarioReader::ReadEventNames(const Value& root) {
  for (const Value* table : Tables(root, "event")) {
    std::string name;
    if (!Text(*table, "name", name)) continue;
    if (IsOneOf(name, names_)) {
      Fail(*Get(*table, "name"), "another event is called " + InQuotes(name));
    }
    names_.push_back(name);
  }
}

void ScenarioReader::ReadEvent(const Value& table) {
  std::vector<Sort> sorts;
  sorts.reserve(kActions.size());
  for (const ActionRow& row : kActions) sorts.push_back({row.word, row.with});
  std::string action;
  const bool known = SortOf(table, sorts, kEventWords, action);
  Event event;
  event.line = static_cast<int>(table.location().line());
  Text(table, "name", event.name);
  ReadMoment(table, event.when);
  moments_.push_back({&table, event.name, event.when});
  if (!known) return;
  for (const ActionRow& row : kActions) {
    if (row.word == action) (this->*row.read)(table, action, event);
  }
  scenario_.events.push_back(event);
}

void ScenarioReader::ReadMoment(const Value& table, Moment& when) {
  const bool after = ReadAfter(table, when);
  if (after == (Get(table, "at") != nullptr)) {
    Fail(table, "an event wants either \"at\", a time since power-on, or \"after\", something that happens");
  }
  when.delay = Time(table, after ? "delay" : "at", 0);
  if (after) return;
  if (const Value* delay = Get(table, "delay")) Fail(*delay, "\"delay\" goes with \"after\"");
}

// The earliest time at which an event can come. Events that wait for each other in a circle: at any.
Nanos ScenarioReader::EarliestOf(const Moment& moment, std::size_t depth) const {
  if (moment.after < 0 || depth > moments_.size()) return moment.delay;
  const Happening& after = HappeningAt(moment.after);
  if (after.kind != HappeningKind::Event) return moment.delay;
  const auto named = std::find_if(moments_.begin(), moments_.end(),
                                  [&](const NamedMoment& each) { return each.name == after.words; });
  if (named == moments_.end()) return moment.delay;
  return EarliestOf(named->when, depth + 1) + moment.delay;
}

// An event that cannot come before the run ends is none.
void ScenarioReader::CheckMoments() {
  for (const NamedMoment& each : moments_) {
    const char* const word = each.when.after < 0 ? "at" : "delay";
    if (Get(*each.table, word) == nullptr) continue;
    CheckTime(*each.table, word, EarliestOf(each.when, 0));
  }
}

void ScenarioReader::ReadDatagram(const Value& table, const std::string& word, Event& event) {
  event.kind = ActionKind::Datagram;
  Text(table, word, event.content);
  event.text = "datagram " + InQuotes(event.content);
}

void ScenarioReader::ReadRestart(const Value& table, const std::string& word, Event& event) {
  const Value* restart = Get(table, word);
  if (!restart->is_boolean() || !restart->as_boolean()) Fail(*restart, "\"restart\" is true or not there");
  event.kind = ActionKind::Restart;
  event.text = "restart request";
}

void ScenarioReader::ReadKey(const Value& table, const std::string& word, Event& event) {
  std::string name;
  if (!Text(table, word, name)) return;
  const std::optional<Key> key = FindKey(name);
  if (!key) {
    Fail(*Get(table, word), "there is no key " + InQuotes(name) + Suggestion(name, KeyNames()));
    return;
  }
  event.kind = ActionKind::Key;
  event.text = std::string("key ") + key->name;
  event.request.kind = key->function ? RequestKind::PressFunctionKeys : RequestKind::PressKey;
  event.request.value = key->code;
  event.request.duration = Time(table, "hold", kUsualHold);
}

void ScenarioReader::ReadInput(const Value& table, const std::string& word, Event& event) {
  std::string text;
  if (!Text(table, word, text)) return;
  const std::size_t blank = text.rfind(' ');
  const std::string level = blank == std::string::npos ? "" : text.substr(blank + 1);
  if (level != "on" && level != "off" && level != "release") {
    Fail(*Get(table, word), "\"input\" wants a signal and on, off or release, such as \"clamped off\"");
    return;
  }
  const SignalChoice input = ChooseSignal(machine_, SignalKind::Input, text.substr(0, blank));
  if (!input.found) {
    Fail(*Get(table, word), input.error);
    return;
  }
  event.kind = ActionKind::Request;
  event.text = "input " + text;
  event.request.kind = level == "release" ? RequestKind::ReleaseInput : RequestKind::SetInput;
  event.request.slot = static_cast<std::uint8_t>(machine_.cards[static_cast<std::size_t>(input.entry)].slot);
  event.request.channel = static_cast<std::uint8_t>(input.channel);
  event.request.value = level == "on" ? 1 : 0;
}

void ScenarioReader::ReadFault(const Value& table, const std::string& word, Event& event) {
  std::string text;
  if (!Text(table, word, text)) return;
  event.kind = ActionKind::Request;
  event.text = word + " " + text;
  const bool clear = word == "clear";
  if (clear && text == "all") {
    event.request.kind = RequestKind::EndAllFaults;
    return;
  }
  const std::vector<std::string> words = FaultWords(text, clear);
  const FaultChoice choice =
      ChooseFault(machine_, words, clear ? RequestKind::EndFault : RequestKind::BeginFault);
  if (!choice.error.empty()) Fail(*Get(table, word), choice.error);
  event.request = choice.request;
  event.request.duration = Time(table, "for", 0);
}

void ScenarioReader::ReadProgram(const Value& table, const std::string& word, Event& event) {
  const Value& program = *Get(table, word);
  if (!Text(table, word, event.path)) return;
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
  const std::string path = BesideScenario(from);
  if (file && !ReadWholeFile(path, event.content)) Fail(*Get(table, "from"), "cannot read " + path);
}

}  // namespace rack::scenario
