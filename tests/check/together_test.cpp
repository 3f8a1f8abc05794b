// What the search over all tasks finds, and what it must not find.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "check/check.h"
#include "support/rule_example.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Outputs a, b, c and x with its x_back; the sensors of a, b and c follow at once, after 20 ms, after 500 ms.
constexpr const char* kRack = R"([slots]
3 = "io"
5 = "stepper"
8 = "cylinder"
[inputs]
a_on = "1.0"
b_on = "1.1"
c_on = "1.2"
start = "0.0"
other = "0.1"
mode = "0.2"
[outputs]
a = "1.0"
b = "1.1"
c = "1.2"
x = "1.3"
x_back = "1.4"
[[valve]]
output = "a"
sensor = "a_on"
[[valve]]
output = "b"
sensor = "b_on"
on_delay = "20 ms"
off_delay = "20 ms"
[[valve]]
output = "c"
sensor = "c_on"
on_delay = "500 ms"
off_delay = "500 ms"
)";

constexpr const char* kReset = "OUT: 1, 0, 0\nOUT: 1, 1, 0\nOUT: 1, 2, 0\nOUT: 1, 3, 0\nOUT: 1, 4, 0\nEXIT\n";

class TogetherTest : public ScratchTest {
 protected:
  // "file:line rule" of what the search finds in a machine of one task for each program, with blocks behind
  // "== plc1/NAME".
  std::vector<std::string> Found(const std::vector<std::string>& flows, const std::string& more = "",
                                 const std::string& rack = "") {
    const std::string name = "m" + std::to_string(++machines_);
    for (size_t i = 1; i <= flows.size(); ++i) {
      const std::string task = name + "/plc" + std::to_string(i);
      fs::create_directories(task);
      // One task alone brings the outputs down: they are nobody else's then.
      Write(task + "/RESET.PLC", i == 1 ? kReset : "EXIT\n");
      Write(task + "/FLOW.PLC", flows[i - 1]);
    }
    if (!more.empty()) {
      for (const ExampleFile& file : FilesOfExample(more)) Write(name + "/" + file.path, file.text);
    }
    Write(name + "/rack.toml", "[rack]\ntask_count = " + std::to_string(flows.size()) + "\n" + kRack + rack);
    std::string error;
    std::vector<std::string> notes;
    const auto findings = check::CheckPath(name, "", &error, &notes);
    EXPECT_EQ(error, "");
    EXPECT_EQ(!notes.empty(), std::exchange(isNoteExpected_, false));
    std::vector<std::string> found;
    for (const check::Finding& finding : *findings) {
      if (finding.rule < check::RuleId::HandshakeLock || finding.rule > check::RuleId::BrokenRule) continue;
      found.push_back(fs::path(finding.file).lexically_relative(name).string() + ":" +
                      std::to_string(finding.line) + " " + check::RuleOf(finding.rule).name);
    }
    return found;
  }

  void ExpectNote() { isNoteExpected_ = true; }

 private:
  int machines_ = 0;
  bool isNoteExpected_ = false;
};

TEST_F(TogetherTest, AGoodHandshakeIsNoLock) {
  EXPECT_THAT(Found({"OUT: 1, 0, 1\nLD: 1, 1, 1\nOUT: 1, 0, 0\nLD: 1, 1, 0\nEND\n",
                     "LD: 1, 0, 1\nOUT: 1, 1, 1\nLD: 1, 0, 0\nOUT: 1, 1, 0\nEND\n"}),
              IsEmpty());
  // The other task asks instead of waiting.
  EXPECT_THAT(Found({"OUT: 1, 0, 1\nLD: 1, 1, 1\nOUT: 1, 0, 0\nLD: 1, 1, 0\nEND\n",
                     "#LE: 1\nIF: 1, 0, 1&ON.PLC&OFF.PLC\nGO: 1\n"},
                    "== plc2/ON.PLC\nOUT: 1, 1, 1\nEND\n== plc2/OFF.PLC\nOUT: 1, 1, 0\nEND\n"),
              IsEmpty());
  // It comes to its wait only after a button.
  EXPECT_THAT(Found({"OUT: 1, 0, 1\nLD: 1, 1, 1\nOUT: 1, 0, 0\nLD: 1, 1, 0\nEND\n",
                     "LD: 0, 0, 1\nLD: 1, 0, 1\nOUT: 1, 1, 1\nLD: 1, 0, 0\nOUT: 1, 1, 0\nEND\n"}),
              IsEmpty());
  // It has ended, and Enter starts it again.
  EXPECT_THAT(Found({"LD: 1, 1, 1\nEND\n", "OUT: 1, 1, 1\nDLY: 100\nOUT: 1, 1, 0\nEXIT\n"}), IsEmpty());
}

TEST_F(TogetherTest, WhatDependsOnTimesIsNoLock) {
  // A pulse that the other task sees, unless the button comes while it is in its END.
  EXPECT_THAT(Found({"LD: 0, 0, 1\nOUT: 1, 0, 1\nDLY: 300\nOUT: 1, 0, 0\nLD: 1, 1, 1\nLD: 1, 1, 0\nEND\n",
                     "LD: 1, 0, 1\nOUT: 1, 1, 1\nDLY: 300\nOUT: 1, 1, 0\nEND\n"}),
              IsEmpty());
  // A selector has the same level for both tasks.
  EXPECT_THAT(Found({"IF: 0, 2, 1&ON.PLC&NUL\nDLY: 300\nEND\n", "IF: 0, 2, 1&WAIT.PLC&NUL\nEND\n"},
                    "== plc1/ON.PLC\nOUT: 1, 0, 1\nEND\n== plc2/WAIT.PLC\nLD: 1, 0, 1\nEND\n"),
              IsEmpty());
}

TEST_F(TogetherTest, EachTakesWhatTheOtherWaitsFor) {
  // Both buttons at once: each has shut the other out.
  EXPECT_THAT(Found({"LD: 0, 0, 1\nOUT: 1, 0, 1\nLD: 1, 1, 0\nDLY: 200\nOUT: 1, 0, 0\nEND\n",
                     "LD: 0, 1, 1\nOUT: 1, 1, 1\nLD: 1, 0, 0\nDLY: 200\nOUT: 1, 1, 0\nEND\n"}),
              ElementsAre(testing::MatchesRegex("plc[12]/FLOW.PLC:3 handshake-lock")));
  // Three in a ring.
  EXPECT_THAT(Found({"LD: 1, 2, 1\nOUT: 1, 0, 1\nEND\n", "LD: 1, 0, 1\nOUT: 1, 1, 1\nEND\n",
                     "LD: 1, 1, 1\nOUT: 1, 2, 1\nEND\n"}),
              ElementsAre(testing::MatchesRegex("plc[123]/FLOW.PLC:1 handshake-lock")));
  // The one who would give polls for something that the other gives behind its wait only.
  EXPECT_THAT(Found({"LD: 1, 1, 1\nOUT: 1, 0, 1\nEND\n", "#LE: 1\nIF: 1, 0, 1&ON.PLC&NUL\nGO: 1\n"},
                    "== plc2/ON.PLC\nOUT: 1, 1, 1\nEND\n"),
              ElementsAre("plc1/FLOW.PLC:1 handshake-lock"));
}

TEST_F(TogetherTest, AWaitThatNothingMeets) {
  EXPECT_THAT(Found({"OUT: 1, 0, 1\nOUT: 1, 0, 0\nLD: 1, 0, 1\nEND\n"}),
              ElementsAre("plc1/FLOW.PLC:3 wait-never-met"));
  // The sensor of c is still on when it is looked at, and goes off later.
  EXPECT_THAT(Found({"OUT: 1, 2, 1\nLD: 1, 2, 1\nOUT: 1, 2, 0\nLD: 1, 2, 1\nLD: 1, 2, 0\nEND\n"}), IsEmpty());
  // A pulse shorter than the delay of c changes nothing; one as long does.
  EXPECT_THAT(Found({"OUT: 1, 2, 1\nDLY: 300\nOUT: 1, 2, 0\nLD: 1, 2, 1\nEND\n"}),
              ElementsAre("plc1/FLOW.PLC:4 wait-never-met"));
  EXPECT_THAT(Found({"OUT: 1, 2, 1\nDLY: 600\nOUT: 1, 2, 0\nLD: 1, 2, 1\nLD: 1, 2, 0\nEND\n"}), IsEmpty());
  // In a block behind a branch, seen from the second call on only.
  EXPECT_THAT(Found({"OUT: 1, 0, 1\nFL: ASK.PLC\nOUT: 1, 0, 0\nFL: ASK.PLC\nEND\n"},
                    "== plc1/ASK.PLC\nIF: 0, 2, 1&WAIT.PLC&NUL\nEND\n== plc1/WAIT.PLC\nLD: 1, 0, 1\nEND\n"),
              ElementsAre("plc1/WAIT.PLC:1 wait-never-met"));
  EXPECT_THAT(Found({"LD: 0, 0, 1\nLD: 0, 1, 0\nEND\n"}), IsEmpty());
}

TEST_F(TogetherTest, NamesTheLinesOfBlocks) {
  fs::create_directories("m/plc1");
  Write("m/rack.toml", kRack);
  Write("m/plc1/RESET.PLC", kReset);
  Write("m/plc1/FLOW.PLC", "FL: work.plc\nEND\n");
  Write("m/plc1/work.plc", "OUT: 1, 0, 1\nOUT: 1, 0, 0\nLD: 1, 0, 1\nEND\n");
  std::string error;
  const auto findings = check::CheckPath("m", "", &error);
  ASSERT_EQ(findings->size(), 1U);
  EXPECT_THAT(findings->front().message,
              AllOf(HasSubstr("this task itself (plc1/work.plc:1) switches"),
                    HasSubstr("the Enter key, plc1/FLOW.PLC:1, plc1/work.plc:1-2")));
}

TEST_F(TogetherTest, ProductionBeginsWhileAResetProgramGoesOn) {
  const std::string flow = "OUT: 1, 0, 1\nLD: 1, 0, 1\nOUT: 1, 0, 0\nLD: 1, 0, 1\nEND\n";
  const auto isFound = ElementsAre("plc1/FLOW.PLC:4 wait-never-met");
  const auto reset = [](const std::string& lines) { return "== plc1/RESET.PLC\nOUT: 1, 0, 0\n" + lines; };
  EXPECT_THAT(Found({flow}, reset("END\n")), isFound);
  EXPECT_THAT(Found({flow}, reset("")), isFound);  // the last line is repeated
  EXPECT_THAT(Found({flow}, reset("#LE: 1\nOUT: 1, 3, 1\nDLY: 300\nOUT: 1, 3, 0\nDLY: 300\nGO: 1\n")),
              isFound);
  EXPECT_THAT(Found({flow}, reset("FL: BLINK.PLC\nEND\n== plc1/BLINK.PLC\n#LE: 1\nOUT: 1, 3, 1\n"
                                  "DLY: 300\nOUT: 1, 3, 0\nLD: 0, 2, 0\nGO: 1\n")),
              IsEmpty());  // the block goes on, and production does not come
  EXPECT_THAT(Found({flow, "END\n"}, reset("LD: 0, 0, 1\nEND\n== plc2/RESET.PLC\nDLY: 70\nEND\n")), isFound);
  // A reset program that waits for its end is not left before.
  EXPECT_THAT(Found({"LD: 1, 0, 1\nEND\n"},
                    "== plc1/RESET.PLC\nOUT: 1, 0, 0\n#LE: 1\n"
                    "IF: 0, 2, 1&ON.PLC&NUL\nGO: 1\n"
                    "== plc1/ON.PLC\nOUT: 1, 0, 1\nEXIT\nEND\n"),
              IsEmpty());
  // One that hangs is told of.
  ExpectNote();
  EXPECT_THAT(Found({flow}, reset("GO: 1\nEXIT\n")), IsEmpty());
}

TEST_F(TogetherTest, TheLongestPauses) {
  EXPECT_THAT(Found({"G_ST: 2147483647\nOUT: 1, 0, 1\nDLY: 2147483647\nOUT: 1, 0, 0\nLD: 1, 0, 1\nEND\n"}),
              ElementsAre("plc1/FLOW.PLC:5 wait-never-met"));
}

TEST_F(TogetherTest, OutputsInTwoDirections) {
  EXPECT_THAT(Found({"OUT: 1, 3, 1\nOUT: 1, 3, 0\nOUT: 1, 4, 1\nOUT: 1, 4, 0\nEND\n"}), IsEmpty());
  EXPECT_THAT(
      Found({"OUT: 1, 3, 1\nIF: 0, 2, 1&OFF.PLC&NUL\nOUT: 1, 4, 1\nOUT: 1, 4, 0\nOUT: 1, 3, 0\nEND\n"},
            "== plc1/OFF.PLC\nOUT: 1, 3, 0\nEND\n"),
      ElementsAre("plc1/FLOW.PLC:3 opposed-outputs"));
  // By what the rack file says of their sensors: the two ends of one way, and what is no end of it.
  const std::string rack =
      "[[axis]]\nmotor = \"2.0\"\nlow = \"1.0\"\nlow_at = 0\nhome = \"1.1\"\nhigh = \"1.2\"\nhigh_at = 90\n";
  EXPECT_THAT(Found({"OUT: 1, 0, 1\nOUT: 1, 2, 1\nOUT: 1, 0, 0\nOUT: 1, 2, 0\nEND\n"}, "", rack),
              ElementsAre("plc1/FLOW.PLC:2 opposed-outputs"));
  EXPECT_THAT(Found({"OUT: 1, 0, 1\nOUT: 1, 1, 1\nOUT: 1, 0, 0\nOUT: 1, 1, 0\nEND\n"}, "", rack), IsEmpty());
}

TEST_F(TogetherTest, RulesOfTheMachine) {
  const std::string flow =
      "OUT: 1, 2, 1\nDLY: 200\nOUT: 1, 0, 1\nDLY: 700\nOUT: 1, 0, 0\nOUT: 1, 2, 0\nEND\n";
  const auto rule = [](const std::string& words) { return "[[rule]]\nname = \"r\"\n" + words; };
  const auto isBroken = ElementsAre("rack.toml:34 broken-rule");
  // c's sensor comes 490 ms after the output, a goes on 210 ms after it: 290 ms without.
  EXPECT_THAT(Found({flow}, "", rule("never_together = [\"a on\", \"c_on off\"]\n")), isBroken);
  EXPECT_THAT(Found({flow}, "", rule("never_together = [\"a on\", \"c_on off\"]\nfor = \"250 ms\"\n")),
              isBroken);
  EXPECT_THAT(Found({flow}, "", rule("never_together = [\"a on\", \"c_on off\"]\nfor = \"300 ms\"\n")),
              IsEmpty());
  EXPECT_THAT(Found({flow}, "", rule("while = \"a on\"\nalways = \"c on\"\n")), IsEmpty());
  EXPECT_THAT(Found({flow}, "", rule("while = \"a on\"\nalways = \"b on\"\n")), isBroken);
  // Nobody can tell what is about hands and times.
  EXPECT_THAT(Found({flow}, "", rule("never_together = [\"a on\", \"mode off\"]\n")), IsEmpty());
  EXPECT_THAT(Found({flow}, "", rule("after = \"a on\"\nwithin = \"10 ms\"\ncomes = \"b on\"\n")), IsEmpty());
}

TEST_F(TogetherTest, SwitchesOfAxesAndCylinders) {
  const std::string rack =
      "[[axis]]\nmotor = \"2.0\"\nhome = \"1.3\"\nhigh = \"1.4\"\nhigh_at = 4000\n"
      "[[cylinder]]\ncylinder = \"3.0\"\nswitches = { 0 = \"1.5\", 5 = \"1.6\" }\n";
  const auto found = [&](const std::vector<std::string>& flows, const std::string& more = "") {
    return Found(flows, more, rack);
  };
  // A cylinder stands where it was sent to, an axis where its switch was seen.
  EXPECT_THAT(found({"DG: 3, 0, 5\nLDG: 3, 0,\nLD: 1, 6, 1\nLD: 1, 5, 1\nEND\n"}),
              ElementsAre("plc1/FLOW.PLC:4 wait-never-met"));
  EXPECT_THAT(found({"MOT: 2, 0, 90&20&0\nLMOT: 2, 0,\nLD: 1, 3, 1\nLD: 1, 4, 1\nEND\n"}),
              ElementsAre("plc1/FLOW.PLC:4 wait-never-met"));
  EXPECT_THAT(found({"LD: 1, 3, 1\nIF: 1, 4, 1&NUL&A.PLC\nEND\n"}, "== plc1/A.PLC\nLD: 1, 3, 0\nEND\n"),
              ElementsAre("plc1/A.PLC:1 wait-never-met"));
  // It still moves, or may.
  EXPECT_THAT(found({"DG: 3, 0, 5\nLD: 1, 5, 1\nLD: 1, 5, 0\nLDG: 3, 0,\nEND\n"}), IsEmpty());
  EXPECT_THAT(found({"DG: 3, 0, 5\nDG: 3, 0, 0\nLDG: 3, 0,\nLD: 1, 6, 1\nEND\n"}), IsEmpty());
  EXPECT_THAT(found({"MOT: 2, 0, 90&20&0\nMOT: 2, 1, 90&20&0\nLMOT: 2, 0,\nLD: 1, 3, 1\nLD: 1, 3, 0\n"
                     "LMOT: 2, 1,\nEND\n"}),
              IsEmpty());
  EXPECT_THAT(found({"DG: 3, 0, 5\nLDG: 3, 0,\nLD: 1, 5, 1\nEND\n", "DG: 3, 0, -1\nDLY: 100\nEND\n"}),
              IsEmpty());
  // Nobody knows where it stands at power-on; a search for home comes to its end.
  EXPECT_THAT(found({"#LE: 1\nIF: 1, 3, 1&NUL&STEP.PLC\nIF: 1, 3, 0&AGAIN.PLC&NUL\nLD: 1, 4, 0\nEND\n"},
                    "== plc1/STEP.PLC\nMOT: 2, 0, 90&20&0\nLMOT: 2, 0,\nEND\n"
                    "== plc1/AGAIN.PLC\nLD: 1, 3, 0\nEND\n"),
              IsEmpty());
  // Each waits for what the other moves or switches.
  const std::string reset = "== plc2/RESET.PLC\nDG: 3, 0, 0\nLDG: 3, 0,\nEXIT\n";
  EXPECT_THAT(found({"LD: 1, 6, 1\nOUT: 1, 0, 1\nLD: 1, 5, 1\nOUT: 1, 0, 0\nEND\n",
                     "LD: 1, 0, 1\nDG: 3, 0, 5\nLDG: 3, 0,\nLD: 1, 0, 0\nDG: 3, 0, 0\nLDG: 3, 0,\nEND\n"},
                    reset),
              ElementsAre(testing::MatchesRegex("plc[12]/FLOW.PLC:1 handshake-lock")));
  EXPECT_THAT(found({"OUT: 1, 0, 1\nLD: 1, 6, 1\nOUT: 1, 0, 0\nLD: 1, 5, 1\nEND\n",
                     "LD: 1, 0, 1\nDG: 3, 0, 5\nLDG: 3, 0,\nLD: 1, 0, 0\nDG: 3, 0, 0\nLDG: 3, 0,\nEND\n"},
                    reset),
              IsEmpty());
}

TEST_F(TogetherTest, ABlockThatNothingCallsDoesNothing) {
  EXPECT_THAT(Found({"OUT: 1, 0, 1\nLD: 1, 0, 1\nOUT: 1, 0, 0\nLD: 1, 0, 0\nEND\n"},
                    "== plc1/OLD.PLC\nLD: 1, 1, 1\nIF: 1, 2, 1&NUL&NUL\nEND\n"),
              IsEmpty());
  EXPECT_THAT(Found({"LD: 1, 1, 1\nEND\n"}, "== plc1/OLD.PLC\nOUT: 1, 1, 1\nEND\n"),
              ElementsAre("plc1/FLOW.PLC:1 wait-never-met"));
}

}  // namespace
