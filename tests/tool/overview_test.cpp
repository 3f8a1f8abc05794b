// What `watch` shows on screens of several sizes, without a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/overview.h"

namespace rack {
namespace {

class OverviewTest : public testing::Test {
 protected:
  void SetUp() override {
    machine.running = true;
    machine.nowNanos = 14'300'000'000;
    for (const CardKind kind : {CardKind::Cpu, CardKind::Io, CardKind::Stepper, CardKind::Cylinder}) {
      CardView card;
      card.kind = kind;
      card.motors.resize(static_cast<std::size_t>(RowOf(kind).motors));
      card.counts.resize(static_cast<std::size_t>(RowOf(kind).counters));
      card.cylinders.resize(static_cast<std::size_t>(RowOf(kind).cylinders), {0, 0, 0x10});
      machine.cards.push_back(card);
    }
    machine.signals = {{"part_waiting", SignalKind::Input, 1, 0},
                       {"clamped", SignalKind::Input, 1, 1},
                       {"horn", SignalKind::Output, 0, 9}};
    machine.cards[1].inputs = machine.cards[1].forced = 1;
    machine.cards[2].motors[3].position = -12;
    machine.cards[3].cylinders[0] = {1500, 5, 0x80};
    machine.counters = {{0, "parts", 3, 5}};
    machine.faults = {"alarm cylinder 3.0, 1.2 s left"};
    TaskView task;
    task.task = 1;
    task.mainFile = task.file = "plc1/FLOW.PLC";
    task.line = 8;
    task.text = "LDG: 3, 0,";
    task.standsNanos = 1'900'000'000;
    machine.tasks = {task};
  }

  std::vector<std::string> Rows(int rows, int columns, bool all = false, int skipped = 0) {
    std::vector<std::string> texts;
    for (const ScreenRow& row : overview.Rows(machine, {rows, columns}, all, skipped)) {
      texts.emplace_back();
      for (const Piece& piece : row) texts.back() += piece.text;
      texts.back().erase(texts.back().find_last_not_of(' ') + 1);
      EXPECT_LE(texts.back().size(), static_cast<std::size_t>(columns));
    }
    EXPECT_LE(texts.size(), static_cast<std::size_t>(rows));
    return texts;
  }

  Snapshot machine;
  Overview overview{{}};
};

TEST_F(OverviewTest, TasksAndFaultsFirstThenWhatIsInUse) {
  const std::vector<std::string> rows = {
      "running at 14.3 s  parts 3 of 5  faults: 1  forced (!): 1",
      "task 1 plc1/FLOW.PLC:8 LDG 3, 0: cylinder 0 is in alarm, DG with -2 resets it,",
      "  for 1.9 s",
      "fault alarm cylinder 3.0, 1.2 s left",
      "in       part_waiting #!  clamped .",
      "out      horn .",
      "motor    2.3   stands at -12        count 0",
      "cylinder 3.0   alarm  at 1.5        to 5"};
  EXPECT_EQ(Rows(23, 80), rows);
  // What has been used once stays in its place.
  machine.cards[2].motors[3].position = 0;
  EXPECT_EQ(Rows(23, 80).size(), 8U);
  EXPECT_GT(Rows(60, 80, true).size(), 20U);
  EXPECT_EQ(Rows(23, 80).size(), 8U);
}

TEST_F(OverviewTest, ASmallScreenLosesTheLeastImportantFirst) {
  EXPECT_THAT(Rows(6, 80), testing::ElementsAre(testing::_, testing::StartsWith("task 1"), "  for 1.9 s",
                                                testing::StartsWith("fault"), testing::StartsWith("in "),
                                                "3 rows more: cursor down, or a higher window"));
  EXPECT_THAT(Rows(6, 80, false, 3),
              testing::ElementsAre(testing::_, testing::_, testing::_, testing::_,
                                   testing::StartsWith("motor"), testing::StartsWith("cyl")));
  EXPECT_THAT(Rows(3, 30),
              testing::ElementsAre("running at 14.3 s  parts 3 of", "task 1 plc1/FLOW.PLC:8 LDG 3,",
                                   "fault alarm cylinder 3.0, 1.2"));
  for (int size = 0; size < 12; ++size) Rows(size, size);
  for (const int columns : {0, 1, 9, 40, 300}) Rows(30, columns, true, 1000);
}

TEST_F(OverviewTest, OnlyWhatIsNamedBesideTasksAndFaults) {
  overview = Overview({"horn", "2.7"});
  EXPECT_EQ(overview.Unknown(machine), "");
  EXPECT_THAT(Rows(23, 80), testing::ElementsAre(testing::_, testing::_, testing::_, testing::_,
                                                 "out      horn .", testing::StartsWith("motor    2.7")));
  EXPECT_EQ(Overview({"hron"}).Unknown(machine),
            "nothing is called \"hron\"; did you mean horn? (names: part_waiting, clamped, horn; or "
            "entry.channel such "
            "as 0.5)");
}

// One text cleaner: a name or a file of bytes that are no text, or that a terminal would obey, takes the columns that it shows.
TEST_F(OverviewTest, WhatIsNoTextIsShownByItsBytes) {
  machine.signals = {{"auf\x1b[2J", SignalKind::Input, 1, 0}, {"t\xc3\xbcr", SignalKind::Input, 1, 1}};
  machine.counters = {{0, "\x07 parts", 3, 0}};
  machine.faults = {"stuck auf\x1b[2J"};
  machine.tasks[0].file = machine.tasks[0].mainFile = "plc1/\xe9.PLC";
  EXPECT_THAT(Rows(23, 80),
              testing::ElementsAre("running at 14.3 s  \\x07 parts 3  faults: 1  forced (!): 1",
                                   testing::StartsWith("task 1 plc1/\\xe9.PLC:8 LDG 3, 0: "), "  for 1.9 s",
                                   "fault stuck auf\\x1b[2J", "in       auf\\x1b[2J #!  t\xc3\xbcr .",
                                   testing::_, testing::_));
  machine.signals.pop_back();
  for (int columns = 0; columns < 40; ++columns) Rows(30, columns);
}

TEST_F(OverviewTest, WhatStandsOutHasALook) {
  machine.standing.stands = true;
  machine.timeMode = TimeMode::Virtual;
  std::vector<std::string> looks;
  for (const ScreenRow& row : overview.Rows(machine, {23, 80}, false, 0)) {
    for (const Piece& piece : row) {
      if (piece.look == Look::Plain) continue;
      const char* const names[] = {"", "forced ", "faulty ", "waiting ", "standing "};
      looks.push_back(names[static_cast<int>(piece.look)] + piece.text.substr(0, 14));
    }
  }
  EXPECT_THAT(
      looks, testing::ElementsAre("standing  stands", "faulty   faults: 1",
                                  "forced   forced (!): ", "waiting task 1 plc1/FL", "waiting   for 1.9 s",
                                  "faulty fault alarm cy", "forced part_waiting #", "faulty 3.0   alarm  a"));
}

}  // namespace
}  // namespace rack
