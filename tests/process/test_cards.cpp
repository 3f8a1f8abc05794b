// Every card command from its program line to the card and back, on a rack that moves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

#include "machine.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// Entries 1 to 4. The driver polls a cylinder card all the while it works, so it works quickly.
constexpr const char* kRack =
    "[slots]\n"
    "3 = \"io\"\n"
    "5 = \"stepper\"\n"
    "6 = \"servo\"\n"
    "8 = { card = \"cylinder\", travel_time = \"20 ms\", setup_time = \"30 ms\", reset_time = \"20 ms\" }\n"
    "[[valve]]\n"
    "output = \"1.2\"\nsensor = \"1.5\"\non_delay = \"60 ms\"\noff_delay = \"40 ms\"\n";

// An access that is made again and again, once.
std::string Once(std::string bus, const std::string& access) {
  for (size_t at; (at = bus.find(access + access)) != std::string::npos;) bus.erase(at, access.size());
  return bus;
}

const std::string kExit = "EXIT\n";

TEST(Cards, OutputsRelaysAndInputs) {
  TestMachine machine(kRack);
  const struct {
    const char* program;
    const char* bus;
  } rows[] = {
      {"OUT: 1, 3, 1", "#3 5>00 #3 5<08 "},
      {"OUT: 1, 0, 1", "#3 5>08 #3 5<09 "},
      {"OUT: 1, 3, 2", "#3 5>09 #3 5<01 "},
      {"OUT: 1, -1, 1", "#3 5>01 #3 5<01 "},
      {"OUT: 1, 15, 1", "#3 6>00 #3 6<80 "},
      {"OUT: 1, 8, 1", "#3 6>80 #3 6<81 "},
      {"OUT: 1, 16, 1", "#3 7>00 #3 7<01 "},
      {"OUT: 1, 25, 1", "#3 7>01 #3 7<03 "},
      {"OUT: 1, 16, 0", "#3 7>03 #3 7<02 "},
      {"OUT: 0, 7, 1", "#0 5>00 #0 5<80 "},
      {"OUT: 0, 12, 1", "#0 6>00 #0 6<10 "},
      {"OUT: 0, 20, on", "#0 6>10 #0 6<00 "},
      {"LD: 1, 7, 0", "#3 8>00 "},
      {"LD: 1, 8, 0", "#3 9>00 "},
      {"LD: 0, 7, 0", "#0 3>00 "},
      {"LD: 0, 9, 0", "#0 4>00 "},
      {"IF: 1, 1, 1&A&NUL", "#3 8>00 "},
      {"IF: 0, 15, 0&NUL&A", "#0 4>00 "},
      {"OUT: 2, 0, 1", ""},
      {"LD: 2, 0, 1", ""},
      {"OUT: 3, 0, 1", ""},
      {"LD: 3, 0, 1", ""},
      {"OUT: 4, 0, 1", ""},
      {"LD: 4, 0, 1", ""},
      {"DG: 1, 0, 1", ""},
      {"LDG: 1, 0,", ""},
      {"MOT: 4, 0, 1&1&1", ""},
      {"LMOT: 4, 0,", ""},
      {"ROCLR: 1, 0,", ""},
      {"EXIT", ""},
  };
  std::string program = "G_ST: 1\n";
  std::string bus;
  for (const auto& row : rows) {
    program += row.program + std::string("\n");
    bus += row.bus;
  }
  machine.Write("plc1/RESET.PLC", program);
  machine.StartUntil("EXIT");
  EXPECT_EQ(machine.Bus(), bus);
  const std::string log = machine.FullLog();
  EXPECT_THAT(log,
              HasSubstr("PLC1: " + Line("OUT", 2, 0, "1") + "STMTR: Cmd_OUT\nPLC1: " + Line("LD", 2, 0, "1") +
                        "PLC1: SYN_LD: SlotIdx:2  ChIdx:0 1\nSTMTR: Cmd_LD\nPLC1: " + Line("OUT", 3, 0, "1") +
                        "ASDA: Cmd_Out\nPLC1: " + Line("LD", 3, 0, "1") +
                        "PLC1: SYN_LD: SlotIdx:3  ChIdx:0 1\nASDA: Cmd_Ld\nPLC1: " + Line("OUT", 4, 0, "1")));
  const rack::Snapshot picture = machine.Picture();
  EXPECT_EQ(picture.cards[0].outputs, 0x0080U);
  EXPECT_EQ(picture.cards[1].outputs, 0x028101U);
}

TEST(Cards, AValveAndItsSensor) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC",
                "OUT: 1, 2, 1\nLD: 1, 5, 1\nOUT: 1, 2, 0\nLD: 1, 5, 0\nIF: 1, 5, 0&OFF.PLC&NUL\nEXIT\n");
  machine.Write("plc1/OFF.PLC", "OUT: 1, 16, 1\nEXIT\nEND\n");
  machine.StartUntil("EXIT");
  EXPECT_EQ(Once(Once(machine.Bus(), "#3 8>00 "), "#3 8>20 "),
            "#3 5>00 #3 5<04 #3 8>00 #3 8>20 #3 5>04 #3 5<00 #3 8>20 #3 8>00 #3 7>00 #3 7<01 ");
}

TEST(Cards, AStepperMoves) {
  TestMachine machine(kRack);
  machine.Write(
      "plc1/RESET.PLC",
      "MOT: 2, 1, 40&4&0\nLMOT: 2, 1, ; stands\nROW: 2, 1, 40\nROCLR: 2, 1,\nROW: 2, 1, 0\n"
      "MOT: 2, 7, 100&7&1&1&1&9&1&5&6&1&70\nROW: 2, 7, 70\nMOT: 2, 0, 1&2\nMOT: 2, 8, 1&2&0\nEXIT\n");
  machine.StartUntil("EXIT");
  const std::string first =
      "#5 7<01 #5 8<00 #5 7<01 #5 9<04 #5 11<00 #5 10<04 #5 15<00 #5 14<00 #5 13<00 #5 12<50 #5 17<00 #5 "
      "16<04 "
      "#5 29<00 #5 28<00 #5 27<00 #5 26<00 #5 24<01 #5 24>01 #5 24>00 "
      "#5 7<01 #5 20>28 #5 21>00 #5 22>00 #5 23>80 #5 19<01 #5 19<00 "
      "#5 7<01 #5 20>00 #5 21>00 #5 22>00 #5 23>80 ";
  const std::string second =
      "#5 7<07 #5 8<EC #5 7<07 #5 9<07 #5 11<00 #5 10<07 #5 15<00 #5 14<00 #5 13<00 #5 12<C8 #5 17<00 #5 "
      "16<07 "
      "#5 29<00 #5 28<00 #5 27<00 #5 26<8C #5 24<01 #5 24>01 ";
  const std::string bus = Once(machine.Bus(), "#5 24>01 ");
  EXPECT_EQ(bus.substr(0, first.size() + second.size()), first + second);
  EXPECT_THAT(bus, EndsWith("#5 7<07 #5 20>BA #5 21>FF #5 22>FF #5 23>7F "));
  EXPECT_THAT(
      Collapsed(machine.FullLog()),
      StartsWith("PLC1: " + Line("MOT", 2, 1, "40&4&0") +
                 "PLC1: SYN_MOT: SlotIdx:2  ChIdx:1 40&4&0\n"
                 "STMTR: MOT ChIdx:1, Step:40, Dir:0, Force:0, EnExtSTop:0, StopSensorDir:0, StepFreq:4, "
                 "StartStep:0, CompensateStep:0, EnCntStop:0, StepStop:0\n"
                 "PLC1: Task_MOT OK[1]:SlotIDx:2, ChIdx:1 40&4&0\n"
                 "PLC1: " +
                 Line("LMOT", 2, 1, "", "RESET.PLC", "stands") + "PLC1: " + Line("ROW", 2, 1, "40") +
                 "PLC1: SYN_ROW: SlotIdx:2 ChIdx:1 40\nPLC1: " + Line("ROCLR", 2, 1, "") +
                 "PLC1: SYN_ROCLR: SlotIdx:2 ChIdx:1 \nPLC1: " + Line("ROW", 2, 1, "0")));
  EXPECT_THAT(
      machine.FullLog(),
      HasSubstr("STMTR: MOT ChIdx:7, Step:100, Dir:1, Force:1, EnExtSTop:1, StopSensorDir:1, StepFreq:7, "
                "StartStep:5, CompensateStep:6, EnCntStop:1, StepStop:70\n"));
  EXPECT_THAT(machine.Log(),
              HasSubstr("SYN_MOT: SlotIdx:2  ChIdx:0 1&2\nTask_MOT Fail[0]:SlotIDx:2, ChIdx:0 1&2\n"));
  EXPECT_THAT(machine.Log(), HasSubstr("Task_MOT OK[1]:SlotIDx:2, ChIdx:8 1&2&0\n"));
  const rack::CardView stepper = machine.Picture().cards[2];
  EXPECT_EQ(stepper.motors[1].position, 40);
  EXPECT_EQ(stepper.counts[1], 0);
  EXPECT_EQ(stepper.motors[7].position, -70);
}

TEST(Cards, AServoMoves) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC",
                "MOT: 3, 2, 100&10&1&0&1&3&1\nLMOT: 3, 2,\nROW: 3, 2, 100\nROCLR: 3, 2,\nLMOT: 3, 8,\nROCLR: "
                "3, 4,\nEXIT\n");
  machine.StartUntil("EXIT");
  EXPECT_EQ(
      Once(machine.Bus(), "#6 24>04 "),
      "#6 5<02 #6 8<C7 #6 5<02 #6 9<0A #6 15<00 #6 14<00 #6 13<00 #6 12<C8 #6 29<00 #6 28<00 #6 27<00 #6 "
      "26<00 "
      "#6 24<01 #6 24>04 #6 24>00 #6 5<02 #6 20>9C #6 21>FF #6 22>FF #6 23>7F #6 19<01 #6 19<00 #6 24>00 ");
  EXPECT_THAT(machine.FullLog(),
              HasSubstr("PLC1: SYN_MOT: SlotIdx:3  ChIdx:2 100&10&1&0&1&3&1\n"
                        "ASDA: Mot ChIdx:2, Step:100, Dir:1, Force:0, EnExtSTop:1, ExtStopCH\xEF\xBC\x9A"
                        "3, "
                        "StopSensorDir:1, StepFreq:10, EnCntStop:0, StepStop:0 \n"
                        "PLC1: Task_MOT OK[1]:SlotIDx:3, ChIdx:2 100&10&1&0&1&3&1\n"));
  EXPECT_EQ(machine.Picture().cards[3].motors[2].position, -100);
}

TEST(Cards, ACylinderMoves) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC",
                "DG: 4, 1, -1\nDG: 4, 1, 5\nLDG: 4, 1,\nDG: 4, 2, -2\nDG: 4, 1, 16\nLDG: 4, 3,\nEXIT\n");
  machine.StartUntil("EXIT");
  // Commands, the end of each handshake and of each wait; without selects and the polls that went on.
  const std::set<std::string> passing = {"5<01", "5<02", "6>60", "6>61", "6>28", "6>29", "5>01"};
  std::string seen;
  std::string before;
  std::istringstream accesses(machine.Bus());
  for (std::string access; accesses >> access;) {
    if (access == "#8" || passing.count(access) != 0) continue;
    if (access != before) seen += access + " ";
    before = access;
  }
  EXPECT_EQ(seen,
            "7<FE 6<20 5>00 6>10 7<3F 6>10 "  // setup, and no alarm after it
            "6<35 5>00 6>10 "                 // move, until it is in position
            "7<FE 6<10 5>00 6>10 7<3F ");     // reset; nothing for what the card does not have
  EXPECT_THAT(machine.Bus(), StartsWith("#8 7<FE #8 5<01 #8 6<20 #8 5<01 #8 6>"));
  EXPECT_EQ(Collapsed(machine.FullLog()),
            "PLC1: " + Line("DG", 4, 1, "-1") + "PLC1: SYN_DG: SlotIdx:4 ChIdx:1 -1\nPLC1: " +
                Line("DG", 4, 1, "5") + "PLC1: SYN_DG: SlotIdx:4 ChIdx:1 5\nPLC1: " + Line("LDG", 4, 1, "") +
                "PLC1: " + Line("DG", 4, 2, "-2") +
                "PLC1: SYN_DG: SlotIdx:4 ChIdx:2 -2\nPLC1: " + Line("DG", 4, 1, "16") +
                "PLC1: SYN_DG: SlotIdx:4 ChIdx:1 16\nPLC1: " + Line("LDG", 4, 3, "") +
                "PLC1: " + Line("EXIT", 4, -1, ""));
  EXPECT_EQ(machine.Picture().cards[4].cylinders[1].thousandths, 5000);
}

// Outputs that eight tasks switch in the same byte: every change is one that its own task asked for.
TEST(Cards, EightTasksOnOneOutputByteLoseNoBit) {
  TestMachine machine(kRack, rack::TimeMode::Real);
  for (int task = 1; task <= 8; ++task) {
    const std::string channel = std::to_string(task - 1);
    std::string program = "G_ST: 0\n";
    for (int i = 0; i < 500; ++i) {
      program += "OUT: 1, " + channel + ", 1\nOUT: 1, " + channel + ", 0\n";
    }
    machine.Write("plc" + std::to_string(task) + "/RESET.PLC",
                  program + "OUT: 1, " + channel + ", 1\nEXIT\n");
  }
  machine.Start({"--tasks", "8"});
  for (int task = 1; task <= 8; ++task) machine.WaitForLog("EXIT", task);
  const rack::Snapshot picture = machine.Picture();
  EXPECT_EQ(picture.cards[1].outputs, 0xFFU);
  std::map<int, int> changes;
  for (const rack::JournalRecord& record : machine.Journal()) {
    if (record.kind != rack::JournalKind::OutputChange) continue;
    EXPECT_EQ(record.port + 1, record.task) << "changed by another task";
    ++changes[record.task];
  }
  for (int task = 1; task <= 8; ++task) {
    EXPECT_EQ(changes[task], 1001) << "task " << task;
    const std::string channel = std::to_string(task - 1);
    EXPECT_EQ(CountOf(machine.Log(task), "CmdIdx: OUT SlotIdx[1] ChIdx[" + channel + "][1]"), 501);
  }
}

// What one task programs into a channel never reaches the channel of the other.
TEST(Cards, TwoTasksOnOneMotorCardDoNotCrossChannels) {
  TestMachine machine(kRack, rack::TimeMode::Real);
  std::string programs[2];
  for (int move = 1; move <= 12; ++move) {
    for (int task = 0; task < 2; ++task) {
      const std::string channel = "2, " + std::to_string(task) + ", ";
      programs[task] += "MOT: " + channel + (task == 0 ? "10&60&0" : "20&90&1") + "\nROW: " + channel +
                        std::to_string(move * (task == 0 ? 10 : 20)) + "\n";
    }
  }
  machine.Write("plc1/RESET.PLC", "G_ST: 0\n" + programs[0] + kExit);
  machine.Write("plc2/RESET.PLC", "G_ST: 0\n" + programs[1] + kExit);
  machine.StartUntil("EXIT", {"--tasks", "2"});
  machine.WaitForLog("EXIT", 2);
  const auto motors = machine.Picture().cards[2].motors;
  EXPECT_EQ(motors[0].position, 120);
  EXPECT_EQ(motors[1].position, -240);
  int selectedBy = -1;
  int starts = 0;
  for (const rack::JournalRecord& record : machine.Journal()) {
    const bool isAccess = record.kind == rack::JournalKind::Write || record.kind == rack::JournalKind::Read;
    if (!isAccess || record.slot != 5 || record.port == 0 || record.task == rack::kMainThread) continue;
    if (record.port == 7) selectedBy = record.task;
    EXPECT_EQ(record.task, selectedBy) << "port " << int{record.port};
    if (record.kind == rack::JournalKind::Write && record.port == 24) ++starts;
  }
  EXPECT_EQ(starts, 24);
}

TEST(Faults, APulledCardReadsAllOnes) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nLD: 1, 7, 1\nOUT: 1, 4, 0\nIF: 1, 3, 1&A.PLC&NUL\nEXIT\n");
  machine.Write("plc1/A.PLC", "LD: 1, 3, 0\nEND\n");
  machine.Write("plc2/RESET.PLC", "LD: 0, 0, 1\nMOT: 2, 3, 10&10&0\nROW: 2, 3, 999\nLMOT: 2, 3,\nEXIT\n");
  machine.StartUntil("SYN_LD", {"--tasks", "2"});
  machine.WaitForLog("SYN_LD", 2);
  machine.Fault(rack::FaultKind::CardPulled, 3);
  machine.Fault(rack::FaultKind::CardPulled, 5);
  machine.SetInput(0, 0, true);
  machine.WaitForLog(Again("LD", 1, 3, "0", "A.PLC"));
  machine.WaitForLog(Again("LMOT", 2, 3, ""), 2);
  EXPECT_EQ(machine.Live().cards[5].stepper.channels[3].position, 0);
  machine.EndFaults();
  machine.WaitForLog("EXIT");
  machine.WaitForLog("EXIT", 2);
  EXPECT_THAT(Once(Once(machine.Bus(), "#0 3>00 "), "#3 8>FF "),
              EndsWith("#0 3>01 #3 8>FF #3 5>FF #3 5<EF #3 8>FF #3 8>00 "));
  EXPECT_THAT(Once(machine.Bus(2), "#5 24>FF "),
              EndsWith("#5 24<01 #5 24>FF #5 7<03 #5 20>FF #5 21>FF #5 22>FF #5 23>FF #5 24>FF #5 24>00 "));
  EXPECT_EQ(machine.Picture().cards[1].outputs, 0U);
}

TEST(Faults, AStuckInputHoldsAgainstTheMachine) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC", "OUT: 1, 2, 1\nLD: 0, 0, 1\nLD: 1, 5, 1\nEXIT\n");
  machine.StartUntil("SYN_LD");
  machine.Fault(rack::FaultKind::InputStuck, 3, 5, 0);
  machine.SetInput(0, 0, true);
  machine.WaitForLog(Again("LD", 1, 5, "1"));
  machine.AwaitPolls();
  EXPECT_THAT(machine.Bus(), EndsWith("#3 8>00 "));
  machine.EndFaults();
  machine.WaitForLog("EXIT");
  EXPECT_THAT(machine.Bus(), EndsWith("#3 8>20 "));
}

TEST(Faults, MotorsThatStandStillOrLoseSteps) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nMOT: 2, 0, 40&40&0\nLMOT: 2, 0,\nROW: 2, 0, 1\nEXIT\n");
  machine.Write("plc2/RESET.PLC",
                "LD: 0, 0, 1\nMOT: 3, 1, 40&40&1\nLMOT: 3, 1,\nROW: 3, 1, 30\nROW: 3, 1, 31\n");
  machine.StartUntil("SYN_LD", {"--tasks", "2"});
  machine.Fault(rack::FaultKind::MotorBlocked, 5, 0);
  machine.Fault(rack::FaultKind::MotorLosesSteps, 6, 1, 4);
  machine.SetInput(0, 0, true);
  machine.WaitForLog(Again("ROW", 2, 0, "1"));
  machine.WaitForLog(Again("ROW", 3, 1, "31"), 2);
  EXPECT_THAT(machine.Bus(), EndsWith("#5 7<00 #5 20>00 #5 21>00 #5 22>00 #5 23>80 "));
  EXPECT_THAT(machine.Bus(2), EndsWith("#6 5<01 #6 20>E2 #6 21>FF #6 22>FF #6 23>7F "));
}

TEST(Faults, ACylinderInAlarmWaitsUntilAnotherTaskResetsIt) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC", "DG: 4, 0, 15\nLDG: 4, 0,\nEXIT\n");
  machine.Write("plc2/RESET.PLC", "LD: 0, 0, 1\nDG: 4, 0, -2\nDG: 4, 0, 1\nEXIT\n");
  machine.StartUntil("LDG", {"--tasks", "2"});
  machine.Fault(rack::FaultKind::CylinderAlarm, 8, 0);
  machine.AwaitPolls();
  EXPECT_THAT(machine.Log(), EndsWith(Again("LDG", 4, 0, "")));
  EXPECT_EQ(machine.Picture().cards[4].cylinders[0].status & 0x80, 0x80);
  machine.SetInput(0, 0, true);
  machine.WaitForLog("EXIT", 2);
  machine.WaitForLog("EXIT");
  EXPECT_EQ(machine.Picture().cards[4].cylinders[0].thousandths, 1000);
}

// A setup that ends in alarm is reset and tried again: seven setups, six resets.
TEST(Faults, ASetupIsGivenUpWhenTheAlarmComesBack) {
  const struct {
    int alarms;
    int setups;
    int resets;
  } rows[] = {{99, 7, 6}, {2, 4, 3}};
  for (const auto& row : rows) {
    TestMachine machine(kRack);
    machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nDG: 4, 0, -1\nEXIT\n");
    machine.StartUntil("SYN_LD");
    machine.Fault(rack::FaultKind::CylinderAlarm, 8, 0, row.alarms);
    machine.SetInput(0, 0, true);
    machine.WaitForLog("EXIT");
    EXPECT_EQ(CountOf(machine.Bus(), " 6<20 "), row.setups);
    EXPECT_EQ(CountOf(machine.Bus(), " 6<10 "), row.resets);
    EXPECT_EQ(machine.FullLog().find("no end"), std::string::npos);
  }
}

TEST(Faults, ACylinderCardThatDoesNotAcknowledge) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nDG: 4, 0, 5\nLDG: 4, 0,\nEXIT\n");
  machine.StartUntil("SYN_LD");
  machine.Fault(rack::FaultKind::CardSilent, 8);
  machine.SetInput(0, 0, true);
  machine.WaitForLog("EXIT");
  EXPECT_EQ(machine.Picture().cards[4].cylinders[0].thousandths, 0);
  EXPECT_THAT(machine.Bus(), HasSubstr("#8 5<00 #8 6<35 #8 5<00 #8 6>10 "));
  EXPECT_THAT(machine.Bus(), HasSubstr("#8 5<00 #8 5>01 "));
}

TEST(Faults, FailingBusReadsLookLikeAllOnes) {
  TestMachine machine(kRack);
  machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nLD: 1, 0, 0\nEXIT\n");
  machine.StartUntil("SYN_LD");
  machine.Fault(rack::FaultKind::BusReadsFail, 0);
  machine.WaitForLog(Again("LD", 1, 0, "0"));
  machine.EndFaults();
  machine.WaitForLog("EXIT");
  EXPECT_EQ(Once(Once(machine.Bus(), "#0 3>00 "), "#3 8>fails "), "#0 3>00 #0 3>fails #3 8>fails #3 8>00 ");
  EXPECT_EQ(machine.LinesWith("PLCKey: "), "");
}

}  // namespace
