// The operator's keys as each task takes them, and step mode.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// A key is seen on every pass while it is in the mailbox, so most keys act several times: equal lines count once.

TEST(Keys, EveryCodeOfTheKeypad) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", "EXIT\n");
  machine.StartUntil("EXIT");
  machine.AwaitPolls();
  struct Row {
    int code;
    const char* key;  // as the keypad task shows it; empty: no key
  };
  const Row withoutEffect[] = {{0x4A, "f"}, {0x69, "5"},  {0x6B, "8"}, {0x6C, "b"}, {0x70, "e"},
                               {0x72, "6"}, {0x73, "9"},  {0x75, "c"}, {0x7A, "7"}, {0x7C, "11"},
                               {0x7D, "d"}, {0x77, "10"}, {0x71, ""},  {0x33, ""}};
  std::string lines;
  const auto tap = [&](const Row& row) {
    machine.Tap(row.code);
    if (*row.key != '\0') lines += "KeyPad=" + std::string(row.key) + "\n";
  };
  for (const Row& row : withoutEffect) tap(row);
  machine.AwaitPolls();
  EXPECT_EQ(machine.Log(), Line("EXIT", 0, -1, ""));
  EXPECT_THAT(machine.Console(), Not(HasSubstr("HKEY_6")));
  tap({kSix, "a"});
  machine.WaitForConsole("\nHKEY_6: Task Run\n");
  EXPECT_EQ(machine.Log(), Line("EXIT", 0, -1, ""));
  for (const Row& row : {Row{kPlus, "13"}, Row{kDec, "12"}, Row{kEnter, "14"}}) tap(row);
  machine.AwaitPolls();
  EXPECT_EQ(machine.LinesWith("PLCKey: "), lines);
  // Each code is cleared once, also that of no key.
  EXPECT_EQ(CountOf(machine.Bus(0), "#0 1<00 "), 18);
  EXPECT_THAT(machine.Bus(0), HasSubstr("#0 2>71 #0 1<00 #0 2>"));
}

// A program that begins with this line is deaf until the key that started it has left the mailbox.
const std::string kDeaf = "DLY: 500";

std::string Deaf(const std::string& file) {
  return Line("DLY", 500, -1, "500", file);
}

TEST(Keys, EnterNumAndDec) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", kDeaf + "\nLED: 0, 0, rests");
  machine.Write("plc1/FLOW.PLC", kDeaf + "\nLED: 0, 0, rests");
  machine.StartUntil("rests");
  const auto log = [&] { return Collapsed(Without(machine.Log(), "rests")); };
  const auto waitForRest = [&](const std::string& file) {
    EXPECT_TRUE(machine.Await([&] { return CountOf(Collapsed(machine.Log()), "rests] [] [" + file) > 0; }));
    machine.AwaitPolls();
  };
  std::string expected = Deaf("RESET.PLC");
  EXPECT_EQ(log(), expected);

  machine.Press(kEnter);
  waitForRest("FLOW.PLC");
  expected += "HKEY_Enter: Task Run[RESET.PLC]\nPLC1 Run: [plc1/FLOW.PLC]\n" + Deaf("FLOW.PLC");
  EXPECT_EQ(log(), expected);

  machine.Press(kEnter);  // it runs already
  expected += "HKEY_Enter: Task Run[FLOW.PLC]\n";
  EXPECT_EQ(log(), expected);

  machine.Press(kNum);  // the program goes on without its name
  machine.WaitForLog("rests] [] []");
  EXPECT_EQ(log(), expected);

  machine.Press(kEnter);
  expected += "HKEY_Enter: Task Run[]\nPLC1 Run: [plc1/FLOW.PLC]\n" + Deaf("FLOW.PLC");
  EXPECT_EQ(log(), expected);
  waitForRest("FLOW.PLC");

  EXPECT_TRUE(machine.Await([&] { return machine.Log().rfind("rests") > machine.Log().rfind("DLY"); }));
  machine.Press(kDec);
  EXPECT_EQ(log(), expected + Deaf("RESET.PLC"));
}

TEST(Keys, DecEndsStepModeWithItsLatch) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", "LED: 0, 0, resets\nEXIT\n");
  machine.Write("plc1/FLOW.PLC", "LED: 0, 0, flows\nEXIT\n");
  machine.StartUntil("resets");
  machine.Press(kPlus);
  machine.Press(kEnter);  // the latch keeps it from starting anything
  EXPECT_EQ(CountOf(machine.Log(), "PLC1 Run"), 0);
  machine.Press(kDec);
  machine.Press(kEnter);
  machine.WaitForLog("flows");
}

TEST(Keys, DecAbandonsABlockAndItsWait) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", kDeaf + "\nFL: A.PLC\nEXIT\n");
  machine.Write("plc1/A.PLC", "LDG: 9, 0, ; for ever\nEND\n");
  machine.StartUntil("for ever");
  machine.Press(kDec);
  EXPECT_TRUE(machine.Await([&] { return CountOf(Collapsed(machine.Log()), "for ever") == 2; }));
  const std::string once =
      Deaf("RESET.PLC") + Line("FL", 0, -1, "A.PLC") + Line("LDG", 9, 0, "", "A.PLC", "for ever");
  EXPECT_EQ(Collapsed(machine.Log()), once + once);
}

TEST(Keys, EnterWhileALineWaitsOrABlockRuns) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nLED: 0, 0, never\n");
  machine.Write("plc1/FLOW.PLC", "LED: 0, 0, flow\nEXIT\n");
  machine.Write("plc2/RESET.PLC", "FL: A.PLC\nLED: 0, 0, never\n");
  machine.Write("plc2/A.PLC", "LD: 0, 0, 1\nEND\n");
  machine.Write("plc2/FLOW.PLC", "LED: 0, 0, flow\nEXIT\n");
  machine.Write("plc3/RESET.PLC", "LD: 0, 0, 1\nLED: 0, 0, never\n");
  machine.StartUntil("SYN_LD", {"--tasks", "3"});
  machine.WaitForLog("SYN_LD", 2);
  machine.WaitForLog("SYN_LD", 3);
  machine.Press(kEnter);
  machine.WaitForLog(Again("LD", 0, 0, "1", "FLOW.PLC"));
  machine.WaitForLog("Load PLC3 Run: [plc3/FLOW.PLC] Failed!\n", 3);
  machine.SetInput(0, 0, true);
  machine.WaitForLog("EXIT");
  machine.WaitForLog("EXIT", 2);
  machine.AwaitPolls();

  const std::string end = Line("LED", 0, 0, "flow", "FLOW.PLC") + Line("EXIT", 0, -1, "", "FLOW.PLC");
  EXPECT_THAT(machine.Log(1), EndsWith("SYN_LD: SlotIdx:0  ChIdx:0 1\n" + end));
  EXPECT_THAT(machine.Log(2), EndsWith("SYN_LD: SlotIdx:0  ChIdx:0 1\n" + Line("END", 0, -1, "", "A.PLC") +
                                       "SYN_END:1 \n" + end));
  // The line went on waiting without a program to read, and was met; nothing follows it.
  EXPECT_THAT(machine.Log(3),
              EndsWith(Again("LD", 0, 0, "1", "FLOW.PLC") + "SYN_LD: SlotIdx:0  ChIdx:0 1\n"));
  for (int task = 1; task <= 3; ++task) EXPECT_THAT(machine.Log(task), Not(HasSubstr("never")));
}

TEST(Keys, MissingProgramsAreToldOnce) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", "EXIT\n");
  machine.StartUntil("EXIT");
  const std::string lost = "Load PLC1 Run: [plc1/FLOW.PLC] Failed!\n";
  const std::string exit = Line("EXIT", 0, -1, "");
  const auto log = [&] { return Collapsed(Without(machine.Log(), "Task Run[FLOW.PLC]")); };
  machine.Press(kEnter);
  machine.Press(kEnter);  // the name of the lost program stays behind
  EXPECT_EQ(log(), exit + "HKEY_Enter: Task Run[]\n" + lost);
  EXPECT_THAT(machine.Log(), HasSubstr("HKEY_Enter: Task Run[FLOW.PLC]\n"));
  machine.Press(kNum);
  machine.Press(kEnter);
  const std::string twice = exit + "HKEY_Enter: Task Run[]\n" + lost + "HKEY_Enter: Task Run[]\n" + lost;
  EXPECT_EQ(log(), twice);
  std::filesystem::remove(machine.Path("plc1/RESET.PLC"));
  machine.Press(kDec);
  EXPECT_EQ(log(), twice + "Load PLC1 Run: [plc1/RESET.PLC] Failed!\n");
}

TEST(Keys, AnEmptyProgramRepeatsTheLineBefore) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", "#LE: 1\nGO: 1\n");
  machine.Write("plc1/FLOW.PLC", "");
  machine.StartUntil("GO");
  machine.Press(kEnter);
  machine.WaitForLog(Again("GO", 1, -1, "", "FLOW.PLC"));
  // The file in which the label stood is closed.
  EXPECT_EQ(Collapsed(Without(machine.Log(), "HKEY_Enter")),
            Collapsed(Line("#LE", 1, -1, "") + Line("GO", 1, -1, "") + "PLC1 Run: [plc1/FLOW.PLC]\n" +
                      Line("GO", 1, -1, "", "FLOW.PLC")));
}

class StepMode : public testing::Test {
 protected:
  // An open loop until input 0 is on, then the block under test.
  StepMode() : machine("[rack]\nfunction_port = 20\n") {
    machine.Write("Velmo.conf",
                  "[UDP]\nPort=" + std::to_string(FreePort()) + "\n[KEYPAD]\nFunctionPort=20\n");
    machine.Write("plc1/RESET.PLC", "#LE: 1\nIF: 0, 0, 1&A.PLC&NUL\nGO: 1\n");
  }
  void EnterStepMode(const std::string& block) {
    machine.Write("plc1/A.PLC", block);
    machine.StartUntil("GO");
    machine.AwaitPolls();
    machine.Press(kPlus);
    machine.SetInput(0, 0, true);
  }
  // What happened in the block.
  std::string Log() const {
    return Collapsed(Without(Without(Without(machine.Log(), "IF"), "CmdIdx: GO"), "#LE"));
  }

  TestMachine machine;
};

constexpr int kRunKey = 8;
constexpr int kStepKey = 4;
constexpr int kZeroKey = 2;
constexpr int kCancelKey = 1;

TEST_F(StepMode, HoldsBehindGatedCommandsUntilAReleaseKey) {
  EnterStepMode("OUT: 0, 1, 1\n" + kDeaf + "\nOUT: 0, 2, 1\n" + kDeaf + "\nDG: 0, 0, 1\n" + kDeaf +
                "\nLED: 0, 0, 4\n");
  const std::string deaf = Deaf("A.PLC");
  machine.WaitForLog("OUT");
  machine.HoldFunctionKeys(kCancelKey, 150);
  machine.Press(kSix);
  EXPECT_EQ(Log(), Line("OUT", 0, 1, "1", "A.PLC"));
  machine.Press(kEnter);  // step mode was chosen: only its line
  std::string expected = Line("OUT", 0, 1, "1", "A.PLC") + "HKEY_Enter: Task Run[RESET.PLC]\n";
  EXPECT_EQ(Log(), expected);

  const struct {
    int key;
    std::string released;
  } rows[] = {{kStepKey, deaf + Line("OUT", 0, 2, "1", "A.PLC")},
              {kRunKey, deaf + Line("DG", 0, 0, "1", "A.PLC") + "SYN_DG: SlotIdx:0 ChIdx:0 1\n"},
              {kZeroKey, deaf + Line("LED", 0, 0, "4", "A.PLC")}};
  for (const auto& row : rows) {
    machine.HoldFunctionKeys(row.key, 150);
    expected += row.released;
    EXPECT_TRUE(machine.Await([&] { return Log().size() >= expected.size(); }));
    machine.AwaitPolls();
    EXPECT_EQ(Log(), expected);
  }

  machine.Press(kDec);  // step mode is over, and so is its latch
  expected += Line("OUT", 0, 1, "1", "A.PLC") + deaf + Line("OUT", 0, 2, "1", "A.PLC") + deaf;
  EXPECT_TRUE(machine.Await([&] { return Log().size() >= expected.size(); }));
  EXPECT_EQ(Log().substr(0, expected.size()), expected);
}

TEST_F(StepMode, AWaitingLineIsTriedOnlyWithAReleaseKey) {
  EnterStepMode("LD: 0, 1, 1\nLED: 0, 0, met\n");
  machine.WaitForLog("SYN_LD");
  machine.SetInput(0, 1, true);
  machine.AwaitPolls();
  EXPECT_EQ(Log(), Line("LD", 0, 1, "1", "A.PLC") + "SYN_LD: SlotIdx:0  ChIdx:1 1\n");
  machine.HoldFunctionKeys(kStepKey, 150);
  machine.WaitForLog("met");
  EXPECT_EQ(Log(), Line("LD", 0, 1, "1", "A.PLC") + "SYN_LD: SlotIdx:0  ChIdx:1 1\n" +
                       Line("LD", 0, 1, "1", "A.PLC") + "SYN_LD: SlotIdx:0  ChIdx:1 1\n" +
                       Line("LED", 0, 0, "met", "A.PLC"));
}

TEST_F(StepMode, OtherCommandsAreNotHeld) {
  EnterStepMode("LMOT: 0, 0,\nG_ST: 10\nDLY: 1\nPARAM: 0, 0, 1\nROCLR: 0, 0,\nFL: B.PLC\n");
  machine.Write("plc1/B.PLC", "IF: 0, 0, 0&A.PLC&NUL\nLDGI: 0, 0, 1\nROW: 0, 0, 0\n");
  machine.WaitForLog(Again("ROW", 0, 0, "0", "0&A.PLC&NUL"));
}

TEST_F(StepMode, FunctionKeysArePolledAheadOfTheKeypad) {
  EnterStepMode("OUT: 0, 1, 1\n");
  machine.HoldFunctionKeys(kCancelKey, 150);
  EXPECT_THAT(machine.Bus(0), HasSubstr("#0 2>00 #0 20>00 #0 2>79 #0 1<00 #0 20>00 #0 2>00 "));
  EXPECT_THAT(machine.Bus(0), HasSubstr("#0 20>01 #0 2>00 "));
  EXPECT_EQ(Collapsed(machine.LinesWith("PLCKey: ")), "KeyPad=13\nKeyPad=4\n");
}

TEST(FunctionKeys, APortThatCannotBeOneIsRefused) {
  TestMachine machine;
  machine.Write("Velmo.conf", "[KEYPAD]\nFunctionPort=8\n[UDP]\nPort=" + std::to_string(FreePort()) + "\n");
  machine.Start();
  machine.AwaitPolls();
  machine.AwaitPolls();
  EXPECT_THAT(machine.Console(),
              HasSubstr("RunEnv: DIRECTORY\n\nVelmo.conf: FunctionPort 8 refused, ports 9 to 255 "
                        "are possible\nCardID: 0xa3"));
  EXPECT_THAT(machine.Bus(0), EndsWith("#0 2>00 #0 2>00 "));
}

}  // namespace
