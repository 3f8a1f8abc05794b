#include "scenario/scenario_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <memory>

#include "machine/machine.h"
#include "scenario/machine_rules.h"
#include "toml/times.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

constexpr Nanos kUsualLimit = 60 * kSecond;

const std::vector<std::string> kTopWords = {"machine", "rack",   "tasks", "seed",   "limit",
                                            "event",   "expect", "end",   "explore"};

std::string NameOf(const std::string& path) {
  const std::string file = path.substr(path.rfind('/') + 1);
  return file.substr(0, file.rfind('.'));
}

std::string Below(const std::string& folder, const std::string& path) {
  return path[0] == '/' ? path : folder + "/" + path;
}

}  // namespace

std::string ScenarioReader::BesideScenario(const std::string& path) const {
  const std::size_t slash = scenario_.path.rfind('/');
  return Below(slash == std::string::npos ? "." : scenario_.path.substr(0, slash), path);
}

// Unknown words, and words that go with another sort.
bool ScenarioReader::SortOf(const Value& owner, const std::vector<Sort>& sorts, const Words& always,
                            std::string& sort) {
  Words words;
  Words known = always;
  for (const Sort& row : sorts) {
    words.push_back(row.word);
    known.push_back(row.word);
    std::copy_if(row.with.begin(), row.with.end(), std::back_inserter(known),
                 [&](const std::string& word) { return !IsOneOf(word, known); });
  }
  CheckWords(owner.as_table(), known);
  if (!OneOf(owner, words, sort)) return false;
  Words fitting = always;
  fitting.push_back(sort);
  for (const Sort& row : sorts) {
    if (row.word == sort) fitting.insert(fitting.end(), row.with.begin(), row.with.end());
  }
  for (const auto& [word, value] : owner.as_table()) {
    if (!IsOneOf(word, known) || IsOneOf(word, fitting)) continue;
    Fail(value, InQuotes(word) + " does not go with " + InQuotes(sort));
  }
  return true;
}

void ScenarioReader::CheckTime(const Value& table, const std::string& word, Nanos time) {
  if (time <= scenario_.limit) return;
  Fail(*Get(table, word),
       "this is later than the limit of " + TimeText(scenario_.limit) + ", \"limit\" moves it");
}

// The machine and what its rack file says. False: the names in the rest cannot be judged.
bool ScenarioReader::ReadMachine(const Value& root) {
  std::string directory = "..";
  Text(root, "machine", directory);
  scenario_.machine = BesideScenario(directory);
  struct stat status = {};
  if (stat(scenario_.machine.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    const Value* given = Get(root, "machine");
    Fail(given != nullptr ? *given : root, "there is no machine in " + scenario_.machine +
                                               ": \"machine\" names its directory, seen from this file");
    return false;
  }
  std::string rackFile = "rack.toml";
  std::vector<TimeChange> changes;
  ReadRackChoice(root, rackFile, changes);
  const auto rack = std::make_shared<RackWithRules>();
  if (!ReadRackWithRules(Below(scenario_.machine, rackFile), *rack, Errors(), &changes)) return false;
  for (const TimeChange& change : changes) {
    if (!change.error.empty()) Fail(*Get(*Get(root, "rack"), change.row + "." + change.word), change.error);
  }
  scenario_.setup = std::shared_ptr<const RackSetup>(rack, &rack->setup);
  scenario_.explore = rack->explore;
  const auto state = std::make_unique<RackState>();
  PowerOn(*state, rack->setup, 0);
  machine_ = SnapshotOf(state->image, state->live);
  return true;
}

// The rack file alone, or a table of it and of times in place of its own.
void ScenarioReader::ReadRackChoice(const Value& root, std::string& file, std::vector<TimeChange>& changes) {
  const Value* rack = Get(root, "rack");
  if (rack == nullptr || !rack->is_table()) {
    Text(root, "rack", file);
    return;
  }
  for (const auto& [word, value] : rack->as_table()) {
    const std::size_t dot = word.rfind('.');
    if (word == "file") {
      Text(*rack, word, file);
    } else if (dot == std::string::npos) {
      Fail(value, InQuotes(word) + " is neither \"file\" nor a time of the rack file, such as " +
                      "\"clamped.on_delay\", in quotes");
    } else {
      changes.push_back({word.substr(0, dot), word.substr(dot + 1), Time(*rack, word, 0), 0, ""});
    }
  }
}

// What the rack file says, with this file's words in place of it.
void ScenarioReader::ReadExplore(const Value& root) {
  Exploration own;
  ReadExploration(root, own);
  std::vector<PlacedText> wrong;
  const ExploreChoice chosen = ChooseExplore(own, machine_, wrong);
  for (const PlacedText& each : wrong) Fail(each.line, each.column, each.text);
  ExploreChoice& explore = scenario_.explore;
  explore.text = ReplacedBy(explore.text, own);
  if (own.goesOn) explore.goesOn = chosen.goesOn;
  if (own.wayBack) explore.wayBack = chosen.wayBack;
}

// A row of the happenings, also for what is wrong: it counts as a state from here on, one finding is enough.
int ScenarioReader::Happens(const Value& value) {
  std::string text;
  HappeningChoice choice;
  if (!Text(value, text)) {
    choice.happening.kind = HappeningKind::Level;
  } else {
    choice = ParseHappening(text, machine_, names_);
  }
  if (!choice.error.empty()) {
    Fail(value, choice.error);
    choice.happening.kind = HappeningKind::Level;
  }
  places_.push_back({&value, static_cast<int>(scenario_.happenings.size())});
  scenario_.happenings.push_back(choice.happening);
  return static_cast<int>(scenario_.happenings.size()) - 1;
}

// How many tasks the controller starts: by its argument, or by the CPU card's switch, none without a driver.
int ScenarioReader::TaskCount() const {
  constexpr int kTasks = 8;
  const RackImage& image = scenario_.setup->image;
  const int wanted = !scenario_.tasks.empty()           ? WholeNumber(scenario_.tasks).value_or(1)
                     : image.device == DeviceName::None ? 0
                                                        : image.cards[0].cpu.taskCount;
  return wanted > kTasks ? 1 : wanted;
}

// Why a line or a speaker can never come up on this machine: it is not there, and no event puts it there. Empty: it
// may come.
std::string ScenarioReader::WhyNotThere(const Happening& happening) const {
  const int tasks = TaskCount();
  const bool isTask = happening.who >= 1 && happening.who <= 8;
  if (isTask && happening.who > tasks) {
    return "there is no task " + std::to_string(happening.who) + ": this machine runs " +
           (tasks == 1 ? "1 task" : std::to_string(tasks) + " tasks");
  }
  if (happening.kind != HappeningKind::Line) return "";
  std::vector<std::string> contents(1);
  const bool there = ReadWholeFile(scenario_.machine + "/" + happening.words, contents.front());
  if (!there) contents.clear();
  for (const Event& event : scenario_.events) {
    if (event.path == happening.words) contents.push_back(event.content);
  }
  if (contents.empty()) {
    return "there is no file " + happening.words + " in " + scenario_.machine +
           ", and no event puts it there";
  }
  std::int64_t lines = 0;
  for (const std::string& content : contents) {
    const bool open = !content.empty() && content.back() != '\n';
    lines = std::max<std::int64_t>(lines, std::count(content.begin(), content.end(), '\n') + (open ? 1 : 0));
  }
  if (happening.low <= lines) return "";
  return happening.words + " has " + std::to_string(lines) + (lines == 1 ? " line" : " lines");
}

void ScenarioReader::CheckPlaces() {
  for (const Place& place : places_) {
    const std::string why = WhyNotThere(HappeningAt(place.happening));
    if (!why.empty())
      Fail(*place.value, InQuotes(HappeningAt(place.happening).text) + " can never happen: " + why);
  }
}

bool ScenarioReader::ReadAfter(const Value& table, Moment& moment) {
  const Value* after = Get(table, "after");
  if (after == nullptr) {
    if (const Value* nth = Get(table, "nth")) Fail(*nth, "\"nth\" goes with \"after\"");
    return false;
  }
  moment.after = Happens(*after);
  moment.nth = Number<int>(table, "nth", 1, 1'000'000, 1);
  return true;
}

void ScenarioReader::ReadRoot(const Value& root) {
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
  ReadExplore(root);
  CheckMoments();
  CheckPlaces();
  const Value* end = Get(root, "end");
  const bool holds = end != nullptr && (!end->is_table() || Get(*end, "hold") != nullptr);
  if (Get(root, "expect") == nullptr && !holds) {
    Fail(root, "nothing is expected here: write [[expect]], or [end] with \"hold\"");
  }
  ExpectEvents();
}

bool ReadScenario(const std::string& path, Scenario& scenario, std::vector<std::string>& errors) {
  scenario.path = path;
  scenario.name = NameOf(path);
  return ScenarioReader(scenario, errors).ReadFile();
}

}  // namespace rack::scenario
