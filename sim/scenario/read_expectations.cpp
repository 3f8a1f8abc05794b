// The expectations of a scenario: what the machine must do.
#include <algorithm>
#include <cstring>

#include "scenario/demand.h"
#include "scenario/scenario_reader.h"
#include "toml/times.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

const std::vector<std::string> kEndWords = {"wait", "hold"};

}  // namespace

std::string ScenarioReader::AfterText(const Moment& moment) const {
  return " after " + HappeningAt(moment.after).text +
         (moment.nth > 1 ? " number " + std::to_string(moment.nth) : "");
}

// The words of [[expect]] that begin a sentence, each with the words of all demands that it can state.
std::vector<ScenarioReader::Sort> ScenarioReader::Sentences() {
  std::vector<Sort> sorts;
  for (const Demand demand : kDemands) {
    const DemandRow& row = RowOf(demand);
    if (row.word.empty()) continue;
    auto sort =
        std::find_if(sorts.begin(), sorts.end(), [&](const Sort& each) { return each.word == row.word; });
    if (sort == sorts.end()) sort = sorts.insert(sort, {std::string(row.word), {}});
    for (const std::string_view word : row.with) {
      if (!word.empty()) sort->with.emplace_back(word);
    }
  }
  return sorts;
}

void ScenarioReader::ReadExpectation(const Value& table) {
  std::string word;
  if (!SortOf(table, Sentences(), {}, word)) return;
  const auto* const demand = std::find_if(std::begin(kDemands), std::end(kDemands),
                                          [&](Demand each) { return RowOf(each).word == word; });
  Expectation expectation;
  expectation.demand = *demand;
  expectation.line = static_cast<int>(Get(table, word)->location().line());
  switch (RowOf(*demand).sentence) {
    case Sentence::That:
      ReadThat(table, expectation);
      break;
    case Sentence::Never:
      ReadNever(table, expectation);
      break;
    case Sentence::Then:
      ReadThen(table, expectation);
      break;
    case Sentence::Hold:
    case Sentence::Events:
      break;
  }
  scenario_.expectations.push_back(expectation);
}

// Which demand its word states.
bool ScenarioReader::FindThat(const Value& table, Demand& demand) {
  Words words;
  std::string when;
  for (const Demand each : kDemands) {
    if (!RowOf(each).when.empty()) words.emplace_back(RowOf(each).when);
  }
  if (!OneOf(table, words, when)) return false;
  for (const Demand each : kDemands) {
    if (RowOf(each).when == when) demand = each;
  }
  return true;
}

void ScenarioReader::ReadThat(const Value& table, Expectation& expectation) {
  const Value& that = *Get(table, "that");
  expectation.what = Happens(that);
  const bool after = ReadAfter(table, expectation.from);
  if (!FindThat(table, expectation.demand)) return;
  const DemandRow& row = RowOf(expectation.demand);
  const Happening& what = HappeningAt(expectation.what);
  const std::string when(row.when);
  expectation.limit = Time(table, when, 0);
  if (!row.after) CheckTime(table, when, expectation.limit);
  expectation.text = what.text + " " + when + " " + TimeText(expectation.limit);
  if (after) expectation.text += AfterText(expectation.from);
  if (after != row.after) {
    Fail(*Get(table, when), "\"within\" a time goes with \"after\", \"by\" and \"at\" a time stand alone");
  }
  CheckLasting(that, expectation, InQuotes(when));
}

// Of a demand that is about a moment.
void ScenarioReader::CheckLasting(const Value& value, const Expectation& expectation,
                                  const std::string& who) {
  const Happening& what = HappeningAt(expectation.what);
  if (!RowOf(expectation.demand).lasting || IsState(what.kind)) return;
  Fail(value, InQuotes(what.text) + " happens and is over; " + who + " wants something that lasts");
}

void ScenarioReader::ReadNever(const Value& table, Expectation& expectation) {
  expectation.what = Happens(*Get(table, "never"));
  expectation.text = "never " + HappeningAt(expectation.what).text;
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

void ScenarioReader::ReadThen(const Value& table, Expectation& expectation) {
  const Value& then = *Get(table, "then");
  const Value* first = Get(table, "first");
  if (first == nullptr) {
    Fail(then, "\"then\" goes with \"first\"");
    return;
  }
  expectation.first = Happens(*first);
  expectation.what = Happens(then);
  expectation.text = HappeningAt(expectation.first).text + " before " + HappeningAt(expectation.what).text;
}

void ScenarioReader::ReadEnd(const Value& table) {
  CheckWords(table.as_table(), kEndWords);
  scenario_.endWait = Time(table, "wait", 0);
  const Value* hold = Get(table, "hold");
  if (hold == nullptr && Get(table, "wait") == nullptr) {
    Fail(table, "[end] wants \"hold\", what is so at the end, or \"wait\", how long the machine goes on");
  }
  if (hold == nullptr) return;
  const toml::array* list = List(*hold, "hold", "[\"spindle off\", \"counter parts 5\"]");
  if (list == nullptr) return;
  for (const Value& value : *list) {
    Expectation expectation;
    expectation.demand = Demand::End;
    expectation.line = static_cast<int>(value.location().line());
    expectation.what = Happens(value);
    expectation.text = "at the end " + HappeningAt(expectation.what).text;
    CheckLasting(value, expectation, "the end");
    scenario_.expectations.push_back(expectation);
  }
}

// An event that never comes makes whatever the others say worthless.
void ScenarioReader::ExpectEvents() {
  if (scenario_.events.empty()) return;
  Expectation expectation;
  expectation.demand = Demand::Events;
  expectation.line = scenario_.events.front().line;
  expectation.text = "every event comes";
  scenario_.expectations.push_back(expectation);
}

}  // namespace rack::scenario
