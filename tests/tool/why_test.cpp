// A sentence for every standstill.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/drives.h"
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
    machine.signals = {{"clamp_closed", SignalKind::Input, 1, 5},
                       {"part_there", SignalKind::Input, 1, 2},
                       {"clamp", SignalKind::Output, 1, 0},
                       {"eject", SignalKind::Output, 1, 16}};
    // The clamp's sensor follows the clamp.
    Hang(Effect::Follow, {1, SignalKind::Input, 5, 0}, 120 * kMillisecond, 80 * kMillisecond);
    machine.links.back().link.source = {1, SignalKind::Output, 0, 0};
    task.task = 1;
    task.mainFile = "plc1/FLOW.PLC";
    task.file = "plc1/FLOW.PLC";
    task.line = 4;
    task.standsNanos = 3'200'000'000;
  }

  // A link that drives an input, its condition still to be given.
  void Hang(Effect effect, SignalRef input, Nanos on, Nanos off) {
    LinkView view;
    view.link.then = effect;
    view.link.target = input;
    view.link.onDelay = on;
    view.link.offDelay = off;
    view.state.dueAt = kNever;
    machine.links.push_back(view);
  }

  std::string Why(const std::string& line) {
    task.text = line;
    return WhyStanding(machine, task);
  }

  Snapshot machine;
  TaskView task;
};

TEST_F(WhyTest, Inputs) {
  EXPECT_EQ(Why("LD: 1, 5, 1 ; clamp"),
            "LD 1, 5: clamp_closed is off, should be on, for 3.2 s: goes on 120 ms after clamp (1.0), which "
            "is off");
  EXPECT_EQ(Why("LD: 1, 6, 1"),
            "LD 1, 6: 1.6 is off, should be on, for 3.2 s: nothing in rack.toml drives 1.6");
  machine.cards[1].inputs = 0x20;
  machine.cards[1].forced = 0x20;
  EXPECT_EQ(Why("LD: 1, 5, 0"),
            "LD 1, 5: clamp_closed is on (forced), should be off, for 3.2 s: held by hand, \"in\" with "
            "\"release\" gives it back");
  EXPECT_EQ(Why("LD: 1, 5, 2"), "LD 1, 5: no input ever has the level 2, for 3.2 s");
  EXPECT_EQ(Why("LD: 1, -1, 1"), "LD 1, -1: channel -1 is no input and reads off, for 3.2 s");
  EXPECT_EQ(Why("LD: 5, 0, 1"),
            "LD 5, 0: entry 5 is not in the card table (entries 0 to 4): never met, for 3.2 s");
  machine.cards[1].pulled = true;
  EXPECT_EQ(Why("LD: 1, 6, 0"),
            "LD 1, 6: 1.6 is on, should be off (the card is pulled: every byte reads 0xFF), for 3.2 s");
}

TEST_F(WhyTest, AnInputIsFollowedBackThroughTheRackFile) {
  const auto why = [&](int channel) { return WhyNoChange(machine, 1, channel); };
  // A part arrives at the switch of a cylinder, and is ejected.
  Hang(Effect::Arrive, {1, SignalKind::Input, 2, 0}, 200 * kMillisecond, 100 * kMillisecond);
  LinkView& part = machine.links[1];
  part.link.when = Condition::CylinderStands;
  part.link.entry = 3;
  part.link.from = 5;
  part.link.removal = {1, SignalKind::Output, 16, 0};
  EXPECT_EQ(why(2), "goes on 200 ms after cylinder 3.0 stands at 5, which stands at 0");
  part.state.holds = 1;
  machine.cards[3].cylinders[0].thousandths = 5000;
  EXPECT_EQ(why(2),
            "goes on 200 ms after cylinder 3.0 stands at 5, which stands at 5 already: that must end and "
            "come again");
  part.state.level = 1;
  machine.cards[1].inputs = machine.cards[1].natural = 1 << 2;
  EXPECT_EQ(Why("LD: 1, 2, 0"),
            "LD 1, 2: part_there is on, should be off, for 3.2 s: goes off 100 ms after eject (1.16), which "
            "is off");
  machine.cards[1].outputs = 1 << 16;
  EXPECT_EQ(why(2),
            "goes off 100 ms after eject (1.16), which is on already: that must go off and come again");
  part.state.dueAt = machine.nowNanos + 60 * kMillisecond;
  EXPECT_EQ(why(2), "goes off in 0.1 s");

  // A lamp's sensor that goes off with the closed clamp, two ways to an input, and a motor's switch.
  Hang(Effect::Follow, {1, SignalKind::Input, 6, 0}, 0, 0);
  machine.links.back().link.source = {1, SignalKind::Input, 5, 0};
  Hang(Effect::Follow, {1, SignalKind::Input, 6, 0}, kSecond, 0);
  machine.links.back().link.when = Condition::MotorWithin;
  machine.links.back().link.entry = 2;
  machine.links.back().link.from = INT64_MIN;
  EXPECT_EQ(
      why(6),
      "goes on when clamp_closed (1.5), which is off: goes on 120 ms after clamp (1.0), which is off, or "
      "goes on 1 s after motor 2.0 is at or below 0, which stands at 0");
  // Two inputs that wait for each other.
  Hang(Effect::Follow, {1, SignalKind::Input, 7, 0}, 0, 0);
  machine.links.back().link.source = {1, SignalKind::Input, 7, 0};
  EXPECT_THAT(why(7), testing::EndsWith("which is off: and so on"));

  machine.cards[1].natural |= 1 << 8;
  machine.cards[1].switchedOn = 1 << 8;
  EXPECT_EQ(why(8), "nothing in rack.toml turns off what is on from the start");
  machine.cards[1].forced = 1 << 8;
  machine.faultRecords = {{FaultKind::InputStuck, 1, 8, 0, 1, 0, 0}};
  EXPECT_EQ(why(8), "a fault holds it, \"fault clear\" ends that");
  EXPECT_EQ(SignalSentence(machine, SignalKind::Output, 1, 0), "clamp (1.0) is off");
}

TEST_F(WhyTest, NoDriverAndLongWaits) {
  machine.noDriver = true;
  EXPECT_EQ(Why("LD: 0, 5, 0"),
            "LD 0, 5: 0.5 is on, should be off (the board has no driver: every byte reads 0xFF), for 3.2 s");
  EXPECT_EQ(
      Why("LD: 1, 5, 1"),
      "LD 1, 5: the board has no driver, so that the controller has found no card in entry 1: never met, for "
      "3.2 s");
  task.longWait = "waits for a lock that another thread of the controller holds";
  EXPECT_EQ(Why("DLY: 1"), "DLY 1: waits for a lock that another thread of the controller holds, for 3.2 s");
  // Where it is known how long, a short one is not what the task stands for, unless it lacks nothing else.
  machine.noDriver = false;
  task.longWait = "waits for lock CardLock, held by task 2 (plc2/FLOW.PLC:3)";
  task.longWaitNanos = 99'000'000;
  EXPECT_EQ(Why("LMOT: 2, 1,"), "LMOT 2, 1: waits for lock CardLock, held by task 2 (plc2/FLOW.PLC:3)");
  machine.cards[2].motors[1] = {true, false, 120, 2'000'000'000, 100, {}, {}};
  machine.cards[2].selectedChannel = 1;
  EXPECT_EQ(Why("LMOT: 2, 1,"), "LMOT 2, 1: motor 1 still moves at 120, its move ends in 2.0 s, for 3.2 s");
  task.longWaitNanos = 100'000'000;
  EXPECT_EQ(Why("LMOT: 2, 1,"),
            "LMOT 2, 1: waits for lock CardLock, held by task 2 (plc2/FLOW.PLC:3), for 0.1 s");
}

TEST_F(WhyTest, Motors) {
  machine.cards[2].motors[1] = {true, false, 120, 2'000'000'000, 100, {}, {}};
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
  machine.cards[2].motors[1].blocked = false;
  machine.cards[2].motors[1].lostNow = 30;
  EXPECT_EQ(Why("ROW: 2, 1, 4000"),
            "ROW 2, 1: count is 118 (motor against its stop, 30 steps lost), should reach 4000, for 3.2 s");
  EXPECT_EQ(Why("ROW: 1, 1, 4000"), "ROW 1, 1: entry 1 (io) counts nothing: never met, for 3.2 s");
  machine.cards[4].motors[2].busy = true;
  EXPECT_EQ(
      Why("LMOT: 4, 2,"),
      "LMOT 4, 2: motor 2 still moves at 0, its frequency makes no pulse: its move never ends, for 3.2 s");
  EXPECT_EQ(Why("LMOT: 4, 1,"), "LMOT 4, 1: lacks nothing, for 3.2 s");
}

TEST_F(WhyTest, Cylinders) {
  machine.cards[3].cylinders[0] = {1500, 4, 0x61};
  EXPECT_EQ(Why("LDG: 3, 0,"), "LDG 3, 0: cylinder 0 moves, at 1.5, should reach 4, for 3.2 s");
  machine.cards[3].cylinders[0] = {1000, 4, 0x80};
  EXPECT_EQ(Why("LDG: 3, 0,"), "LDG 3, 0: cylinder 0 is in alarm, DG with -2 resets it, for 3.2 s");
  machine.cards[3].cylinders[0] = {2000, 4, 0x21, true};
  EXPECT_EQ(Why("LDG: 3, 0,"), "LDG 3, 0: cylinder 0 is jammed, at 2, should reach 4, for 3.2 s");
  EXPECT_EQ(Why("DG: 3, 0, -1"),
            "DG 3, 0: waits for the end of the setup of cylinder 0, which is jammed, for 3.2 s");
  machine.cards[3].cylinders[0] = {};
  EXPECT_EQ(Why("LDG: 3, 1,"), "LDG 3, 1: lacks nothing, for 3.2 s");
  EXPECT_EQ(Why("DG: 3, 0, -1"), "DG 3, 0: waits for the end of the setup of cylinder 0, for 3.2 s");
}

TEST_F(WhyTest, Pauses) {
  EXPECT_EQ(Why("DLY: 5000"), "DLY 5000: 1.8 s left");
  task.standsNanos = 600'000'000;
  EXPECT_EQ(Why("END"), "END: 0.4 s left of its second");
  EXPECT_EQ(SleepOf(task)->where, "END");
  task.pauseNanos = 5'000'000'000;
  EXPECT_EQ(Why("OUT: 1, 2, 1"), "OUT 1, 2: 4.4 s left of the pause of G_ST 5000");
  EXPECT_EQ(Why("DLY: 500"), "DLY 500: 4.9 s left of the pause of G_ST 5000");
  // A wait is looked at again after each pause.
  task.standsNanos = 7'000'000'000;
  task.accessNanos = 2'000'000'000;
  EXPECT_EQ(Why("LD: 1, 6, 1"),
            "LD 1, 6: 1.6 is off, should be on, for 7.0 s: nothing in rack.toml drives 1.6; 3.0 s left of "
            "the pause of "
            "G_ST 5000");
  EXPECT_EQ(SleepOf(task)->leftNanos, 3'000'000'000);
  EXPECT_EQ(SleepOf(task)->sinceNanos, 2'000'000'000);
  task.pauseNanos = 10'000'000;
  EXPECT_FALSE(SleepOf(task));
}

TEST_F(WhyTest, StepMode) {
  task.stepMode = true;
  machine.keyPort = machine.configuredPort = 9;
  EXPECT_EQ(Why("OUT: 1, 2, 1"),
            "OUT 1, 2: held by the step gate, RUN, STEP or ZERO lets one line go, for 3.2 s");
  EXPECT_EQ(Why("LD: 1, 5, 1"),
            "LD 1, 5: clamp_closed is off, should be on, for 3.2 s: goes on 120 ms after clamp (1.0), which "
            "is off; "
            "step mode, tried only while RUN, STEP or ZERO is pressed");
  EXPECT_EQ(Why("ROCLR: 2, 0, 0"), "ROCLR 2, 0: lacks nothing, for 3.2 s");
  const auto held = [&](int rack, int configured) {
    machine.keyPort = rack;
    machine.configuredPort = configured;
    return Why("OUT: 1, 2, 1");
  };
  const std::string end = "; only Dec ends it, for 3.2 s";
  EXPECT_EQ(held(0, 0), "OUT 1, 2: held by the step gate, the machine has no function keys" + end);
  EXPECT_EQ(held(9, 0),
            "OUT 1, 2: held by the step gate, function keys are not read: rack.toml has function_port = 9, "
            "Velmo.conf no FunctionPort" +
                end);
  EXPECT_EQ(held(0, 9),
            "OUT 1, 2: held by the step gate, no function keys: Velmo.conf has FunctionPort=9, rack.toml no "
            "function_port" +
                end);
  EXPECT_EQ(held(9, 10),
            "OUT 1, 2: held by the step gate, function keys are not read: rack.toml has function_port = 9, "
            "Velmo.conf FunctionPort=10" +
                end);
  task.mainFile.clear();
  EXPECT_EQ(Why("EXIT"),
            "EXIT: has closed the program, for 3.2 s, step mode: Enter does nothing, Dec starts RESET.PLC");
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
  EXPECT_EQ(Why("EXIT"), "EXIT: has closed the program, for 3.2 s: Enter starts FLOW.PLC, Dec RESET.PLC");
  EXPECT_EQ(Why("END"), "no program is open, for 3.2 s: Enter starts FLOW.PLC, Dec RESET.PLC");
  task.file.clear();
  task.missingFile = "plc1/RESET.PLC";
  EXPECT_EQ(Why(""), "plc1/RESET.PLC could not be opened at the start: the task has ended");
}

}  // namespace
}  // namespace rack
