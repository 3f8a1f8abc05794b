// Expectations at the edges of their times, from records made by hand, and the text of results.
#include <gtest/gtest.h>

#include "scenario/report.h"

namespace rack::scenario {
namespace {

// Input 0 of an I/O card in slot 2, and what is expected of it.
class JudgeTest : public testing::Test {
 protected:
  JudgeTest() {
    scenario.limit = kSecond;
    machine.cards.resize(2);
    machine.cards[1].kind = CardKind::Io;
    machine.cards[1].slot = 2;
    machine.signals = {{"part", SignalKind::Input, 1, 0}, {"door", SignalKind::Input, 1, 1}};
  }

  int Happens(const std::string& text) {
    scenario.happenings.push_back(ParseHappening(text, machine, {}).happening);
    return static_cast<int>(scenario.happenings.size()) - 1;
  }
  void Expect(Demand demand, const std::string& what, Nanos limit, Moment from = {}) {
    Expectation expectation;
    expectation.demand = demand;
    expectation.what = Happens(what);
    expectation.limit = limit;
    expectation.from = from;
    expectation.text = what;
    expectation.line = 7;
    scenario.expectations.push_back(expectation);
  }
  // Edges of inputs, "part on" and so on with their time in nanoseconds; then nothing until the end.
  std::string Judged(const std::vector<std::pair<Nanos, std::string>>& edges, Nanos end, bool whole = true) {
    Judge judge(scenario, machine, [](std::uint32_t) { return std::string(); });
    for (const auto& [time, edge] : edges) {
      const auto channel = static_cast<std::uint8_t>(edge.rfind("part", 0) == 0 ? 0 : 1);
      const int level = edge.back() == 'n' ? 1 : 0;
      judge.See({time, JournalKind::InputEdge, kUnknownTask, 2, channel, level, 0, 0});
    }
    judge.Reach(end);
    std::string verdicts = judge.EndTime() ? "decided:" : "open:";
    judge.End(end, "the end", whole);
    outcomes = judge.Outcomes();
    for (const Outcome& outcome : outcomes)
      verdicts += outcome.verdict == Verdict::Passed ? " passed" : " failed";
    return verdicts;
  }

  Snapshot machine;
  Scenario scenario;
  std::vector<Outcome> outcomes;
};

TEST_F(JudgeTest, ADeadlineItselfIsInTime) {
  Expect(Demand::By, "part on", 100);
  Expect(Demand::By, "part on", 99);
  Expect(Demand::At, "part on", 100);
  Expect(Demand::At, "part on", 99);
  EXPECT_EQ(Judged({{100, "part on"}, {101, "part off"}}, 200), "decided: passed failed passed failed");
  EXPECT_EQ(outcomes[1].time, 99);
}

TEST_F(JudgeTest, WithinCountsFromTheMomentAndTakesWhatLasts) {
  const int part = Happens("part on");
  Expect(Demand::Within, "door on", 10, {part, 1, 0});
  Expect(Demand::Within, "door on", 10, {part, 2, 0});
  Expect(Demand::Within, "door off", 10, {part, 1, 0});
  Expect(Demand::Within, "door on", 10, {part, 3, 0});
  EXPECT_EQ(Judged({{50, "part on"}, {60, "door on"}, {70, "part off"}, {80, "part on"}}, 200),
            "open: passed passed passed failed");
  EXPECT_EQ(outcomes[3].message, "at 0.000 s, the end: part on number 3 has not come, only 2");
}

TEST_F(JudgeTest, NeverWatchesItsTimeOnly) {
  const int part = Happens("part on");
  Expect(Demand::Never, "door on", -1);
  Expect(Demand::Never, "door on", 39);
  Expect(Demand::Never, "door on", 100, {-1, 1, 61});
  Expect(Demand::Never, "door on", 5, {-1, 1, 55});
  Expect(Demand::Never, "door on", 9, {part, 1, 0});
  Expect(Demand::Never, "door on", -1, {part, 2, 0});
  EXPECT_EQ(Judged({{40, "door on"}, {60, "door off"}, {61, "part on"}, {70, "door off"}}, 200),
            "open: failed passed passed failed passed failed");
  EXPECT_EQ(outcomes[0].message, "at 0.000 s, door (1.1) is on since 0.000 s");
  EXPECT_EQ(outcomes[0].story,
            std::vector<std::string>{"0.000      -" + std::string(20, ' ') + "input door (1.1) on"});
}

TEST_F(JudgeTest, WhatLastsUnseenBetweenTwoEventsBreaksNever) {
  Expect(Demand::Never, "door on", 10, {-1, 1, 50});
  EXPECT_EQ(Judged({{40, "door on"}, {90, "door off"}}, 100), "decided: failed");
}

TEST_F(JudgeTest, TheEndDecidesWhatIsOpen) {
  Expect(Demand::At, "part on", 100);
  Expect(Demand::Never, "door on", -1);
  Expect(Demand::End, "part on", 0);
  Expect(Demand::End, "door on", 0);
  EXPECT_EQ(Judged({{10, "part on"}}, 100), "open: passed passed passed failed");
  EXPECT_EQ(Judged({{10, "part on"}}, 90), "open: failed passed passed failed");
  // A controller that ended too early has not shown that something never happens, nor what is so at the end.
  EXPECT_EQ(Judged({{10, "part on"}}, 100, false), "open: failed failed failed failed");
}

TEST(ReportTest, TextsOfPeopleBreakNeitherTapNorXml) {
  Scenario scenario;
  scenario.path = "a&b.toml";
  scenario.name = "a&b";
  scenario.expectations.resize(1);
  scenario.expectations[0].text = "plc1 prints #1 <\"x\">";
  scenario.expectations[0].line = 3;
  ScenarioResult result;
  result.scenario = &scenario;
  result.end = 1'500'000'000;
  result.outcomes = {
      {Verdict::Failed, 1'250'000'000, "it said \"no\"\x01\xFF", {"task 1 a:1"}, {"a \\ b", "c\n"}}};
  EXPECT_EQ(TapOf(result, 4),
            "# a&b.toml, 1.500 s of the machine\n"
            "not ok 4 - a&b: plc1 prints \\#1 <\"x\">\n"
            "  ---\n"
            "  message: \"it said \\\"no\\\"\\\\x01\\\\xff\"\n"
            "  at: \"a&b.toml:3\"\n"
            "  tasks: |\n"
            "    task 1 a:1\n"
            "  happened: |\n"
            "    a \\ b\n"
            "    c\\x0a\n"
            "  ...\n");
  EXPECT_EQ(
      JunitOf({SuiteOf(result)}),
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<testsuites>\n"
      "  <testsuite name=\"a&amp;b\" tests=\"1\" failures=\"1\" errors=\"0\" skipped=\"0\" time=\"1.500\">\n"
      "    <testcase classname=\"a&amp;b\" name=\"plc1 prints #1 &lt;&quot;x&quot;>\" "
      "file=\"a&amp;b.toml\" "
      "line=\"3\" time=\"1.250\">\n"
      "      <failure message=\"it said &quot;no&quot;\\x01\\xff\">a&amp;b.toml:3\n"
      "task 1 a:1\n"
      "a \\ b\n"
      "c\n\n"
      "</failure>\n"
      "    </testcase>\n"
      "  </testsuite>\n"
      "</testsuites>\n");
}

}  // namespace
}  // namespace rack::scenario
