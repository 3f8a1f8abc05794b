// A sentence for every standstill.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/why.h"

namespace rack {
namespace {

class WhyTest : public testing::Test {
 protected:
  void SetUp() override {
    const CardKind kinds[] = {CardKind::Cpu, CardKind::Io, CardKind::Stepper, CardKind::Cylinder,
                              CardKind::Servo};
    for (const CardKind kind : kinds) {
      CardView card;
      card.kind = kind;
      card.slot = static_cast<int>(machine.cards.size());
      card.motors.resize(static_cast<std::size_t>(RowOf(kind).motors));
      card.counts.resize(static_cast<std::size_t>(RowOf(kind).counters));
      card.cylinders.resize(static_cast<std::size_t>(RowOf(kind).cylinders), {0, 0, 0x10});
      machine.cards.push_back(card);
    }
    machine.signals = {{"clamp_closed", SignalKind::Input, 1, 5}};
    task.task = 1;
    task.mainFile = "plc1/FLOW.PLC";
    task.file = "plc1/FLOW.PLC";
    task.line = 4;
    task.standsNanos = 3'200'000'000;
  }

  std::string Why(const std::string& line) {
    task.text = line;
    return WhyStanding(machine, task);
  }

  Snapshot machine;
  TaskView task;
};

TEST_F(WhyTest, Inputs) {
  EXPECT_EQ(Why("LD: 1, 5, 1 ; clamp"), "LD 1, 5: clamp_closed is off, should be on, for 3.2 s");
  EXPECT_EQ(Why("LD: 1, 6, 1"), "LD 1, 6: 1.6 is off, should be on, for 3.2 s");
  machine.cards[1].inputs = 0x20;
  machine.cards[1].forced = 0x20;
  EXPECT_EQ(Why("LD: 1, 5, 0"), "LD 1, 5: clamp_closed is on (forced), should be off, for 3.2 s");
  EXPECT_EQ(Why("LD: 1, 5, 2"), "LD 1, 5: no input ever has the level 2, for 3.2 s");
  EXPECT_EQ(Why("LD: 1, -1, 1"), "LD 1, -1: channel -1 is no input and reads off, for 3.2 s");
  EXPECT_EQ(Why("LD: 5, 0, 1"),
            "LD 5, 0: entry 5 is not in the card table (entries 0 to 4): never met, for 3.2 s");
  machine.cards[1].pulled = true;
  EXPECT_EQ(Why("LD: 1, 6, 0"),
            "LD 1, 6: 1.6 is on, should be off (the card is pulled: every byte reads 0xFF), for 3.2 s");
}

TEST_F(WhyTest, Motors) {
  machine.cards[2].motors[1] = {true, false, 120, 2'000'000'000};
  machine.cards[2].counts[1] = 118;
  machine.cards[2].selectedChannel = 1;
  EXPECT_EQ(Why("LMOT: 2, 1,"), "LMOT 2, 1: motor 1 still moves at 120, its move ends in 2.0 s, for 3.2 s");
  EXPECT_EQ(Why("LMOT: 2, 0,"),
            "LMOT 2, 0: the busy register tells of motor 1, selected last, which still moves at 120, its "
            "move ends in "
            "2.0 s, for 3.2 s");
  machine.cards[2].motors[1].endsInNanos = -1;
  machine.cards[2].motors[1].blocked = true;
  EXPECT_EQ(Why("LMOT: 2, 1,"),
            "LMOT 2, 1: motor 1 still moves at 120 (blocked), its move never ends, for 3.2 s");
  EXPECT_EQ(Why("ROW: 2, 1, 4000"), "ROW 2, 1: count is 118 (motor blocked), should reach 4000, for 3.2 s");
  EXPECT_EQ(Why("ROW: 1, 1, 4000"), "ROW 1, 1: entry 1 (io) counts nothing: never met, for 3.2 s");
  machine.cards[4].motors[2].busy = true;
  EXPECT_EQ(Why("LMOT: 4, 2,"), "LMOT 4, 2: motor 2 still moves at 0, its move never ends, for 3.2 s");
  EXPECT_EQ(Why("LMOT: 4, 1,"), "LMOT 4, 1: lacks nothing, for 3.2 s");
}

TEST_F(WhyTest, Cylinders) {
  machine.cards[3].cylinders[0] = {1500, 4, 0x61};
  EXPECT_EQ(Why("LDG: 3, 0,"), "LDG 3, 0: cylinder 0 moves, at 1.5, should reach 4, for 3.2 s");
  machine.cards[3].cylinders[0] = {1000, 4, 0x80};
  EXPECT_EQ(Why("LDG: 3, 0,"), "LDG 3, 0: cylinder 0 is in alarm, DG with -2 resets it, for 3.2 s");
  EXPECT_EQ(Why("LDG: 3, 1,"), "LDG 3, 1: lacks nothing, for 3.2 s");
  EXPECT_EQ(Why("DG: 3, 0, -1"), "DG 3, 0: waits for the end of the setup of cylinder 0, for 3.2 s");
}

TEST_F(WhyTest, Pauses) {
  EXPECT_EQ(Why("DLY: 5000"), "DLY 5000: 1.8 s left");
  task.standsNanos = 600'000'000;
  EXPECT_EQ(Why("END"), "END: 0.4 s left of its second");
}

TEST_F(WhyTest, StepMode) {
  task.stepMode = true;
  EXPECT_EQ(Why("OUT: 1, 2, 1"),
            "OUT 1, 2: held by the step gate, RUN, STEP or ZERO lets one line go, for 3.2 s");
  EXPECT_EQ(Why("LD: 1, 5, 1"),
            "LD 1, 5: clamp_closed is off, should be on, for 3.2 s; step mode, tried only while RUN, STEP or "
            "ZERO is "
            "pressed");
  EXPECT_EQ(Why("ROCLR: 2, 0, 0"), "ROCLR 2, 0: lacks nothing, for 3.2 s");
}

TEST_F(WhyTest, EndsOfFilesAndLostFiles) {
  task.endReads = 12;
  EXPECT_EQ(Why("OUT: 1, 2, 1"),
            "OUT 1, 2: plc1/FLOW.PLC has ended without END or EXIT, its last line repeats, for 3.2 s");
  EXPECT_EQ(Why("; end"), "plc1/FLOW.PLC has ended without END or EXIT, nothing more is executed");
  EXPECT_EQ(Why("GO: 7"), "GO 7: plc1/FLOW.PLC has no label #LE: 7, the line repeats, for 3.2 s");
  task.endReads = 0;
  task.file = "plc1/SUB.PLC";
  task.missingFile = "plc1/OTHER.PLC";
  EXPECT_EQ(Why("FL: OTHER.PLC"),
            "FL OTHER.PLC: the block plc1/OTHER.PLC could not be opened, idle until Dec");
  task.mainFile.clear();
  EXPECT_EQ(Why("EXIT"), "plc1/OTHER.PLC could not be opened: idle until a key opens a program");
  task.missingFile.clear();
  EXPECT_EQ(Why("EXIT"), "EXIT: has closed the program, Enter starts FLOW.PLC, Dec RESET.PLC");
  EXPECT_EQ(Why("END"), "no program is open, Enter starts FLOW.PLC, Dec RESET.PLC");
  task.file.clear();
  task.missingFile = "plc1/RESET.PLC";
  EXPECT_EQ(Why(""), "plc1/RESET.PLC could not be opened at the start: the task has ended");
}

}  // namespace
}  // namespace rack
