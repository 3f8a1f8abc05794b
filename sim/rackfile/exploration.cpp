#include "rackfile/exploration.h"

#include <iterator>

#include "toml/times.h"
#include "toml/words.h"

namespace rack {

namespace {

constexpr const char* kWords[] = {"order", "times",   "bounce",  "late",     "stuck",  "alarm",
                                  "jams",  "blocked", "loses",   "silent",   "pulled", "bus",
                                  "keys",  "step",    "restart", "datagram", "hand"};
static_assert(std::size(kWords) == static_cast<std::size_t>(Disturbance::Count));

}  // namespace

const char* WordOf(Disturbance disturbance) {
  return kWords[static_cast<std::size_t>(disturbance)];
}

Exploration ReplacedBy(const Exploration& exploration, const Exploration& other) {
  Exploration replaced = exploration;
  if (other.leaveOut) replaced.leaveOut = other.leaveOut;
  if (other.goesOn) replaced.goesOn = other.goesOn;
  if (other.within) replaced.within = other.within;
  if (other.wayBack) replaced.wayBack = other.wayBack;
  if (other.known) replaced.known = other.known;
  return replaced;
}

PlacedText ExploringReader::Placed(const Value& value, const std::string& text) {
  const toml::source_location place = value.location();
  return {text, place.line(), place.column()};
}

void ExploringReader::ReadExploration(const Value& root, Exploration& exploration) {
  const Value* explore = TableOf(root, "explore");
  if (explore == nullptr) return;
  CheckWords(explore->as_table(), {"leave_out", "goes_on", "within", "way_back", "known"});
  if (const Value* list = Get(*explore, "leave_out")) ReadLeaveOut(*list, exploration);
  if (const Value* value = Get(*explore, "goes_on")) ReadGoesOn(*value, exploration);
  if (const Value* list = Get(*explore, "way_back")) ReadWayBack(*list, exploration);
  if (const Value* list = Get(*explore, "known")) ReadKnown(*list, exploration);
  const Value* within = Get(*explore, "within");
  if (within == nullptr) return;
  exploration.within = Time(*explore, "within", 0);
}

void ExploringReader::ReadLeaveOut(const Value& list, Exploration& exploration) {
  const toml::array* words = List(list, "leave_out", "[\"bus\", \"pulled\"]");
  if (words == nullptr) return;
  std::vector<Disturbance>& leaveOut = exploration.leaveOut.emplace();
  const Words known(std::begin(kWords), std::end(kWords));
  for (const Value& word : *words) {
    const std::optional<std::size_t> row = Choice(word, "disturbance", known);
    if (row) leaveOut.push_back(static_cast<Disturbance>(*row));
  }
}

void ExploringReader::ReadGoesOn(const Value& value, Exploration& exploration) {
  std::string text;
  if (Text(value, text)) exploration.goesOn = Placed(value, text);
}

// Keys, and between two of them a time where it is not the usual one.
void ExploringReader::ReadWayBack(const Value& list, Exploration& exploration) {
  const toml::array* steps = List(list, "way_back", "[\"Dec\", \"4 s\", \"Enter\"]");
  if (steps == nullptr) return;
  std::vector<WayBackKey>& wayBack = exploration.wayBack.emplace();
  std::optional<Nanos> pause;
  const Value* lastTime = nullptr;
  for (const Value& step : *steps) {
    std::string text;
    if (!Text(step, text)) continue;
    const std::optional<Nanos> time = FileTime(text);
    if (!time) {
      wayBack.push_back({Placed(step, text), pause});
      pause.reset();
      lastTime = nullptr;
      continue;
    }
    if (wayBack.empty() || pause) Fail(step, "a time stands between two keys here");
    pause = time;
    lastTime = &step;
  }
  if (lastTime != nullptr && !wayBack.empty()) Fail(*lastTime, "no key follows this time");
}

void ExploringReader::ReadKnown(const Value& list, Exploration& exploration) {
  const toml::array* rows = List(list, "known", "[{ find = \"...\", reason = \"...\" }]");
  if (rows == nullptr) return;
  std::vector<KnownFind>& known = exploration.known.emplace();
  for (const Value& row : *rows) {
    if (!row.is_table()) {
      Fail(row, "\"known\" wants a list such as [{ find = \"...\", reason = \"...\" }]");
      continue;
    }
    CheckWords(row.as_table(), {"find", "reason"});
    KnownFind find;
    const bool hasFind = NeedText(row, "find", find.find);
    const bool hasReason = NeedText(row, "reason", find.reason);
    if (hasFind && hasReason) known.push_back(find);
  }
}

bool ExploringReader::NeedText(const Value& owner, const std::string& word, std::string& text) {
  const Value* value = Need(owner, word);
  if (value == nullptr || !Text(owner, word, text)) return false;
  if (!Split(text).empty()) return true;
  Fail(*value, InQuotes(word) + " is empty");
  return false;
}

}  // namespace rack
