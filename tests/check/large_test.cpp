// The checker on a machine of 100,000 lines.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "check/check.h"
#include "support/scratch.h"

namespace {

constexpr int kLoops = 5000;

// Twenty lines with five labels and two jumps; each loop has labels and blocks of its own.
std::string Loop(int loop) {
  const auto label = [&](int number) { return std::to_string(5 * loop + number); };
  std::string text;
  for (int number = 1; number <= 3; ++number) {
    text += "#LE: " + label(number) + "\nOUT: 1, " + std::to_string(number) + ", 1\nDLY: 5\nLD: 1, 0, 1\n";
  }
  text += "GO: " + label(4) + "\nOUT: 1, 5, 1\n#LE: " + label(4) + "\nFL: A" + std::to_string(loop % 50) +
          ".PLC\n#LE: " + label(5) + "\nOUT: 1, 4, 0\nIF: 1, 1, 1&NUL&B.PLC\n";
  const bool isLast = loop + 1 == kLoops;
  return text + "GO: " + std::to_string(isLast ? 1 : 5 * loop + 6) + "\n";
}

std::string WholeProgram() {
  std::string text;
  for (int loop = 0; loop < kLoops; ++loop) text += Loop(loop);
  return text;
}

class Large : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    std::filesystem::create_directory("plc1");
    Write("rack.toml", "[slots]\n1 = \"io\"\n");
    Write("plc1/RESET.PLC", "EXIT\n");
    Write("plc1/B.PLC", "END\n");
    for (int block = 0; block < 50; ++block) {
      Write("plc1/A" + std::to_string(block) + ".PLC", "OUT: 1, 6, 1\nEND\n");
    }
  }

  // "line rule" of each finding of FLOW.PLC.
  static std::vector<std::string> Found(const std::string& flow) {
    Write("plc1/FLOW.PLC", flow);
    std::string error;
    const auto findings = check::CheckPath(".", "", &error);
    EXPECT_EQ(error, "");
    std::vector<std::string> found;
    for (const check::Finding& finding : findings.value_or(std::vector<check::Finding>())) {
      EXPECT_EQ(finding.file, "plc1/FLOW.PLC");
      found.push_back(std::to_string(finding.line) + " " + check::RuleOf(finding.rule).name);
    }
    return found;
  }
};

// Between the two jumps of each loop one line is never executed.
TEST_F(Large, AllJumpsOfAHundredThousandLinesLeadToTheirLabels) {
  const std::string program = WholeProgram();
  const std::vector<std::string> found = Found(program);
  ASSERT_EQ(found.size(), 5000U);
  EXPECT_EQ(found.front(), "14 unreachable");
  EXPECT_EQ(found.back(), std::to_string(kLoops * 20 - 6) + " unreachable");
}

TEST_F(Large, TheLastLineIsCheckedLikeTheFirst) {
  std::string program = "G_ST: 0\n";
  for (int i = 0; i < 25'000; ++i)
    program += "#LE: " + std::to_string(i + 1) + "\nLD: 1, 0, 1\nOUT: 1, 1, 1\n\n";
  const std::string end = program + "#LE: 25000\n#LE: 25001\nOUT: 1, 1, 0\nGO: 25001\n";
  EXPECT_EQ(Found(end),
            (std::vector<std::string>{"3 busy-wait", "100002 duplicate-label", "100005 busy-loop"}));
}

TEST_F(Large, AMissingLabelIsToldWithTheNearestOfMany) {
  std::string program;
  for (int i = 0; i < 25'000; ++i) program += "#LE: " + std::to_string(10 * i) + "\n";
  Write("plc1/FLOW.PLC", program + "GO: 777\n");
  std::string error;
  const auto findings = check::CheckPath(".", "", &error);
  ASSERT_TRUE(findings) << error;
  ASSERT_EQ(findings->size(), 1U);
  EXPECT_EQ((*findings)[0].message,
            "there is no label 777 in this file: the controller repeats the line for ever; of its 25000 the "
            "nearest are 740, 750, 760, 770, 780, 790, 800, 810");
}

}  // namespace
