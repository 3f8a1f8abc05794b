// The checker on a machine of 100,000 lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <ostream>
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

// Machines whose findings, or the search for them, have to do with far more lines than their own.
using Files = std::map<std::string, std::string>;
struct Shape {
  const char* name;
  Files (*files)(int lines);
};
void PrintTo(const Shape& shape, std::ostream* out) {
  *out << shape.name;
}

std::string Times(int times, const std::function<std::string(int)>& text) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text(i);
  return all;
}

std::string Times(int times, const std::string& text) {
  return Times(times, [&](int) { return text; });
}

std::string No(int number) {
  return std::to_string(number);
}

Files JumpsFarAndWide(int lines) {
  const int loops = lines / 4;
  return {{"plc1/FLOW.PLC", Times(loops, [&](int i) {
             return "#LE: " + No(i) +
                    "\nLD: 1, 0, 1\nIF: 1, 1, 1&B.PLC&NUL\nGO: " + No(static_cast<int>(7919L * i % loops)) +
                    "\n";
           })}};
}

Files MovesLeftByBlocks(int lines) {
  const int blocks = lines / 32;
  Files files = {{"plc1/FLOW.PLC", Times(lines / 2, [&](int i) {
                                     return "FL: M" + No(i % blocks) + ".PLC\nMOT: 2, " + No((i + 3) % 8) +
                                            ", 400&20&1\n";
                                   }) + "END\n"}};
  for (int i = 0; i < blocks; ++i) {
    files["plc1/M" + No(i) + ".PLC"] = "MOT: 2, " + No(i % 8) + ", 400&20&1\nEND\n";
  }
  return files;
}

const Shape kShapes[] = {
    {"JumpsFarAndWide", JumpsFarAndWide},
    {"MovesLeftByBlocks", MovesLeftByBlocks},
    {"MovesThatNothingWaitsFor",
     [](int lines) -> Files {
       return {{"plc1/FLOW.PLC", Times(lines, "MOT: 2, 0, 400&20&1\n") + "END\n"}};
     }},
    {"WaitsForMotorsThatNothingStarts",
     [](int lines) -> Files {
       return {{"plc1/FLOW.PLC", Times(lines / 2, "LMOT: 2, 0,\nROCLR: 2, 1, 0\n") + "END\n"}};
     }},
    {"ExitsInABlock",
     [](int lines) -> Files {
       return {{"plc1/FLOW.PLC", "FL: X.PLC\nEND\n"}, {"plc1/X.PLC", Times(lines, "EXIT\n")}};
     }},
    {"CommentsInARound",
     [](int lines) -> Files {
       return {{"plc1/RESET.PLC", "OUT: 1, 1, 0\nEXIT\n"},
               {"plc1/FLOW.PLC", "#LE: 1\nOUT: 1, 1, 1\n" + Times(lines, ";\n") + "DLY: 5\nGO: 1\n"}};
     }},
    {"Configuration",
     [](int lines) -> Files {
       return {{"plc1/FLOW.PLC", "DLY: 5\nEND\n"}, {"Velmo.conf", Times(lines / 2, "[UDPP]\nPort=1\n")}};
     }},
};

class Growth : public Large, public testing::WithParamInterface<Shape> {
 protected:
  static double SecondsFor(int lines) {
    for (const auto& [path, text] : GetParam().files(lines)) Write(path, text);
    double least = 1e9;
    for (int i = 0; i < 2; ++i) {
      std::string error;
      const std::clock_t begin = std::clock();
      EXPECT_TRUE(check::CheckPath(".", "", &error)) << error;
      least = std::min(least, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
    }
    return least;
  }
};

// Eight times the lines take some eight times as long; were each line held against each other one, sixty times.
TEST_P(Growth, IsThatOfTheLines) {
  Write("rack.toml", "[slots]\n1 = \"io\"\n2 = \"stepper\"\n");
  const double few = SecondsFor(4'000);
  const double many = SecondsFor(32'000);
  EXPECT_LT(many, 24 * few) << few << " s, then " << many << " s";
}

INSTANTIATE_TEST_SUITE_P(Large, Growth, testing::ValuesIn(kShapes),
                         [](const auto& shape) { return std::string(shape.param.name); });

}  // namespace
