// The drawing of a machine's flow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "check/check.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const fs::path kSource = VELMO_SOURCE;

std::string GraphOf(const fs::path& machine) {
  std::string error;
  const std::optional<std::string> graph = check::GraphOfPath(machine, "", &error);
  EXPECT_EQ(error, "");
  return graph.value_or("");
}

// Names in the text that the pattern's group matches.
std::set<std::string> Names(const std::string& text, const char* pattern) {
  const std::regex name(pattern);
  std::set<std::string> names;
  for (auto match = std::sregex_iterator(text.begin(), text.end(), name); match != std::sregex_iterator();
       ++match)
    names.insert((*match)[1]);
  return names;
}

class GraphTest : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    fs::create_directories("m/plc1");
    fs::create_directories("m/plc2");
    fs::create_directories("m/plc3");
    Write(
        "m/rack.toml",
        "[rack]\ntask_count = 2\n[slots]\n3 = \"io\"\n[inputs]\nhere = \"1.1\"\n[[valve]]\noutput = \"1.0\"\n"
        "sensor = \"here\"\n");
    Write("m/plc1/RESET.PLC", "OUT: 1, 0, 1\nEXIT\n");
    Write("m/plc1/FLOW.PLC", "; a comment\nOUT: 1, 0, 1\nOUT: 1, 0, 0\nFL: B.PLC\nEND\n");
    Write("m/plc1/B.PLC", "DLY: 5 ; <\"&\x80\x01>\xC3\xA9 ; check: ignore long-delay\nEND\n");
    Write("m/plc1/LOST.PLC", "END\n");
    Write("m/plc2/RESET.PLC", "LD: 1, 1, 0\nEXIT\n");
    Write("m/plc2/FLOW.PLC", "#LE: 7\nLD: 1, 1, 1\nIF: 1, 1, 0&B.PLC&NUL\nGO: 7\n");
    Write("m/plc2/B.PLC", "LD: 1, 1, 1\nEND\n");
    Write("m/plc3/FLOW.PLC", "END\n");
  }
};

TEST_F(GraphTest, HasLinesJumpsCallsAndWhatTasksGiveEachOther) {
  const std::string graph = GraphOf("m");
  EXPECT_EQ(Names(graph, "\n      (\\w+) \\[label="),
            (std::set<std::string>{"plc1_0_1", "plc1_1_2", "plc1_1_5", "plc1_3_1", "plc2_0_1", "plc2_1_1",
                                   "plc2_1_4", "plc2_2_1"}));
  const std::set<std::string> edges = Names(graph, "\n  (\\w+:?\\w*:?e? -> \\w+:?\\w*:?e?)");
  EXPECT_EQ(edges, (std::set<std::string>{
                       "plc1_1_2:l3 -> plc1_0_1",         // FL
                       "plc1_1_2:l3 -> plc1_1_5:l4",      // and back
                       "plc1_1_5:l4 -> plc1_1_2:l1",      // END
                       "plc1_3_1:l1 -> plc1_1_2",         // Enter
                       "plc2_1_1:l2 -> plc2_0_1",         // IF
                       "plc2_1_1:l2 -> plc2_1_4:l3",      // NUL
                       "plc2_1_4:l3 -> plc2_1_1:l0",      // GO
                       "plc2_2_1:l1 -> plc2_1_1",         // Enter
                       "plc1_1_2:l1:e -> plc2_1_1:l1:e",  // on, for LD in the program and in its block
                       "plc1_1_2:l1:e -> plc2_0_1:l0:e",
                       "plc1_1_2:l2:e -> plc2_1_1:l2:e",  // off, for IF
                   }));
  EXPECT_THAT(graph, AllOf(HasSubstr("1&nbsp;&nbsp;DLY: 5 ; &lt;&quot;&amp;??&gt;\xC3\xA9 </TD>"),
                           HasSubstr("LD: 1, 1, 1&nbsp;&nbsp;<FONT COLOR=\"#c62828\">here</FONT>"),
                           HasSubstr("label=\"= 0\""), Not(HasSubstr("LOST")), Not(HasSubstr("plc3"))));
}

TEST_F(GraphTest, ABlockOfResetProgramsGivesToResetProgramsOnly) {
  Write("m/plc1/RESET.PLC", "FL: HOME.PLC\nEXIT\n");
  Write("m/plc1/HOME.PLC", "OUT: 1, 0, 1\nEND\n");
  Write("m/plc1/FLOW.PLC", "END\n");
  Write("m/plc2/RESET.PLC", "LD: 1, 1, 1\nEXIT\n");
  EXPECT_EQ(Names(GraphOf("m"), "\n  (\\w+:\\w+:e -> \\w+:\\w+:e)"),
            std::set<std::string>{"plc1_2_1:l0:e -> plc2_2_1:l0:e"});
}

TEST_F(GraphTest, IsAllThatIsPrinted) {
  ASSERT_EQ(system(VELMO_CHECK " --graph m > drawn 2> errors"), 0);
  EXPECT_EQ(Read("drawn"), GraphOf("m"));
  EXPECT_EQ(Read("errors"), "");
  const int status = system(VELMO_CHECK " --graph nowhere > drawn 2> errors");
  EXPECT_EQ(WEXITSTATUS(status), 2);
  EXPECT_EQ(Read("drawn"), "");
  EXPECT_THAT(Read("errors"), HasSubstr("velmo-check: nowhere: no machine's directory"));
}

// Where Graphviz is installed.
TEST_F(GraphTest, IsReadByGraphviz) {
  if (system("command -v dot > /dev/null") != 0) GTEST_SKIP() << "dot is not installed";
  for (const std::string& graph :
       {GraphOf("m"), GraphOf(kSource / "demo/cell"), GraphOf(kSource / "tests/check/wrong/encoding"),
        GraphOf(kSource / "tests/check/wrong/lines")}) {
    Write("drawn", graph);
    EXPECT_EQ(system("dot -Tdot drawn > read 2> errors"), 0);
    EXPECT_EQ(Read("errors"), "");
  }
}

TEST(GraphPicture, ShowsTheDemoCellAsItIs) {
  std::ifstream file(kSource / "docs/demo-cell.svg");
  const std::string picture((std::istreambuf_iterator<char>(file)), {});
  EXPECT_EQ(Names(picture, "<title>(plc\\w+)</title>"),
            Names(GraphOf(kSource / "demo/cell"), "\n      (\\w+) \\[label="));
}

}  // namespace
