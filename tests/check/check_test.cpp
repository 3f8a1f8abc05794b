// The rules on wrong programs, on their own examples and on the demo; options and formats.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "check/check.h"
#include "check/found.h"
#include "support/rule_example.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::UnorderedElementsAreArray;

const fs::path kSource = VELMO_SOURCE;

void AddExpected(const std::string& name, const std::string& text, std::vector<std::string>* expected) {
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    std::smatch match;
    if (!std::regex_search(line, match, std::regex("expect: ([-a-z]+(, [-a-z]+)*)"))) continue;
    std::istringstream rules(match[1]);
    std::string rule;
    while (rules >> rule) {
      if (rule.back() == ',') rule.pop_back();
      expected->push_back(name + ":" + std::to_string(number) + " " + rule);
    }
  }
}

// From the comments of the program files, and from the machine's file "expected" for what has no line.
std::vector<std::string> Expected(const fs::path& machine) {
  std::vector<std::string> expected;
  std::istringstream lines(ReadText(machine / "expected"));
  std::string line;
  while (std::getline(lines, line)) expected.push_back(line);
  for (const auto& entry : fs::recursive_directory_iterator(machine)) {
    if (!entry.is_regular_file() || entry.path().parent_path() == machine) continue;
    AddExpected(entry.path().lexically_relative(machine).string(), ReadText(entry.path()), &expected);
  }
  return expected;
}

TEST(WrongPrograms, GiveExactlyTheRulesInTheirComments) {
  int machines = 0;
  for (const auto& entry : fs::directory_iterator(kSource / "tests/check/wrong")) {
    SCOPED_TRACE(entry.path().filename().string());
    EXPECT_THAT(Found(entry.path()), UnorderedElementsAreArray(Expected(entry.path())));
    EXPECT_EQ(check::Render(FindingsOf(entry.path()), check::Format::Gcc, false),
              ReadText(entry.path() / "messages"));
    ++machines;
  }
  EXPECT_EQ(machines, 24);
}

TEST(Demo, IsClean) {
  EXPECT_THAT(Found(kSource / "demo/cell"), testing::IsEmpty());
}

class CheckTest : public ScratchTest {
 protected:
  static void WriteFile(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    Write(path, text);
  }

  // The machine of a rule's example, with the rack that examples without their own have.
  static std::vector<std::string> RulesFound(const std::string& name, const std::string& example) {
    for (const ExampleFile& file : FilesOfExample(example)) WriteFile(name + "/" + file.path, file.text);
    const int tasks = fs::exists(name + "/plc2") ? 2 : 1;
    const std::string below = ReadText(name + "/rack.toml");
    // A rack file with cards of its own stands as it is; other tables of an example go below the usual cards.
    if (below.find("[slots]") == std::string::npos && below.find("[rack]") == std::string::npos) {
      Write(name + "/rack.toml",
            "[rack]\ntask_count = " + std::to_string(tasks) +
                "\n[slots]\n1 = \"io\"\n2 = \"stepper\"\n3 = \"cylinder\"\n4 = \"servo\"\n" + below);
    }
    std::vector<std::string> rules = Found(name);
    for (std::string& rule : rules) rule.erase(0, rule.find(' ') + 1);
    return rules;
  }
};

TEST_F(CheckTest, EveryRulesExamplesAreWrongAndRight) {
  for (const check::Rule& rule : check::Rules()) {
    SCOPED_TRACE(rule.name);
    const std::vector<std::string> wrong = RulesFound(std::string(rule.name) + "-wrong", rule.wrong);
    EXPECT_THAT(wrong,
                testing::AllOf(testing::Not(testing::IsEmpty()), testing::Each(std::string(rule.name))));
    EXPECT_THAT(RulesFound(std::string(rule.name) + "-right", rule.right), testing::IsEmpty());
  }
}

struct Outcome {
  int status;
  std::string output;  // both streams
};

Outcome RunCheck(const std::string& arguments) {
  const std::string command = std::string(VELMO_CHECK) + " " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  Outcome run{-1, ""};
  if (pipe == nullptr) return run;
  char buffer[4096];
  for (size_t count = 0; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    run.output.append(buffer, count);
  run.status = WEXITSTATUS(pclose(pipe));
  return run;
}

class Program : public CheckTest {
 protected:
  void SetUp() override {
    CheckTest::SetUp();
    WriteFile("cell/plc1/RESET.PLC", "EXIT\n");
    WriteFile("cell/plc1/FLOW.PLC",
              "OUTT: 0, 3, 1\n#LE: 1\nDLY: 1000 ; \xC3\xA9\xC3\xA9 ; lost\nGO: 2\nGO: 1\n");
  }
};

constexpr const char* kLines =
    "cell/plc1/FLOW.PLC:1:1: error: \"OUTT\" is no command: the controller skips the line; did you mean "
    "\"OUT\"? "
    "[unknown-keyword]\n"
    "cell/plc1/FLOW.PLC:3:6: warning: a pause of 1000 ms: the task sees no key meanwhile; wait for an input "
    "or loop "
    "over short pauses [long-delay]\n"
    "cell/plc1/FLOW.PLC:3:18: warning: the controller does not look at what stands behind a second \";\": "
    "\"lost\" "
    "[lost-text]\n"
    "cell/plc1/FLOW.PLC:4:5: error: there is no label 2 in this file: the controller repeats the line for "
    "ever; it "
    "has 1 [missing-label]\n";

TEST_F(Program, WritesOneLineForEachFindingAndASummary) {
  const Outcome text = RunCheck("cell");
  EXPECT_EQ(text.status, 1);
  EXPECT_EQ(text.output, std::string(kLines) + "2 errors, 2 warnings\n");
  EXPECT_EQ(RunCheck("--format gcc cell").output, kLines);
  EXPECT_EQ(RunCheck("--format gcc cell/plc1/FLOW.PLC").output, kLines);
  const Outcome clean = RunCheck("cell/plc1/RESET.PLC");
  EXPECT_EQ(clean.status, 0);
  EXPECT_EQ(clean.output, "no findings\n");
}

TEST_F(Program, TakesARackFileAndAFileOutsideAnyMachine) {
  WriteFile("loose/try.txt", "LMOT: 1, 0,\nFL: OTHER.PLC\n");
  WriteFile("loose/OTHER.PLC", "OUTT: 0, 0, 1\nEND\n");
  Write("io.toml", "[slots]\n7 = \"io\"\n");
  EXPECT_EQ(RunCheck("loose/try.txt").output, "no findings\n");
  EXPECT_EQ(RunCheck("--format gcc --rack io.toml loose/try.txt").output,
            "loose/try.txt:1:1: error: entry 1 is an I/O card, which has no LMOT: the wait is met at once; "
            "another entry "
            "or command was probably meant; there are 0 cpu, 1 io [wrong-card]\n");
}

TEST_F(Program, ColoursOnlyWhereAskedFor) {
  const std::vector<check::Finding> findings = {{"a.PLC", 2, 3, check::RuleId::LongDelay, "long"}};
  EXPECT_EQ(check::Render(findings, check::Format::Text, true),
            "\033[1ma.PLC:2:3:\033[0m \033[1;35mwarning:\033[0m long [long-delay]\n0 errors, 1 warning\n");
  EXPECT_EQ(check::Render(findings, check::Format::Gcc, true), "a.PLC:2:3: warning: long [long-delay]\n");
}

TEST_F(Program, WritesJsonAndSarif) {
  const auto json = nlohmann::json::parse(RunCheck("--format json cell").output);
  EXPECT_EQ(json["errors"], 2);
  EXPECT_EQ(json["warnings"], 2);
  EXPECT_EQ(
      json["findings"][1].dump(),
      R"({"column":6,"file":"cell/plc1/FLOW.PLC","line":3,"message":"a pause of 1000 ms: the task sees no key )"
      R"(meanwhile; wait for an input or loop over short pauses","rule":"long-delay","severity":"warning"})");

  WriteFile("a b/plc1/RESET.PLC", "DLY 5\nEXIT\n");
  const auto sarif = nlohmann::json::parse(RunCheck("--format sarif 'a b/plc1/RESET.PLC'").output);
  EXPECT_EQ(sarif["version"], "2.1.0");
  const auto& run = sarif["runs"][0];
  ASSERT_EQ(run["results"].size(), 1U);
  const auto& result = run["results"][0];
  EXPECT_EQ(
      result["locations"].dump(),
      R"([{"physicalLocation":{"artifactLocation":{"uri":"a%20b/plc1/RESET.PLC","uriBaseId":"SRCROOT"},)"
      R"("region":{"endColumn":5,"startColumn":4,"startLine":1}}}])");
  EXPECT_EQ(result["ruleId"], "missing-colon");
  EXPECT_EQ(result["level"], "error");
  const auto& rules = run["tool"]["driver"]["rules"];
  EXPECT_EQ(rules.size(), check::Rules().size());
  EXPECT_EQ(rules[result["ruleIndex"].get<size_t>()]["id"], "missing-colon");
  for (const auto& rule : rules) EXPECT_THAT(rule["help"]["text"].get<std::string>(), HasSubstr("Right:"));
}

TEST_F(Program, ExplainsAndListsRules) {
  const Outcome explained = RunCheck("--explain level-never");
  EXPECT_EQ(explained.status, 0);
  EXPECT_EQ(explained.output,
            "level-never\n\nerror: a level that an input never has\n\n"
            "An input is 0 or 1. LD with another level waits for ever; IF with another level always takes "
            "its second "
            "block.\n\nWrong:\n\n    LD: 1, 0, 2\n    END\n\nRight:\n\n    LD: 1, 0, 1\n    END\n");
  EXPECT_THAT(RunCheck("--list-rules").output,
              HasSubstr("long-delay         warning  a DLY of a second or more\n"));
}

TEST_F(Program, SaysWhenTheSearchOverTheTasksStopped) {
  std::string flow = "OUT: 1, 0, 1\nLD: 1, 0, 1\n";
  for (const std::string round : {"A", "B"}) {
    for (int channel = 0; channel < 16; ++channel)
      flow += "IF: 1, " + std::to_string(channel) + ", 1&" + round + ".PLC&NUL\n";
  }
  WriteFile("wide/plc1/RESET.PLC", "OUT: 1, 0, 0\nEXIT\n");
  WriteFile("wide/plc1/A.PLC", "END\n");
  WriteFile("wide/plc1/B.PLC", "END\n");
  WriteFile("wide/plc1/FLOW.PLC", flow + "OUT: 1, 0, 0\nEND\n");
  Write("wide/rack.toml", "[slots]\n1 = \"io\"\n[[valve]]\noutput = \"1.0\"\nsensor = \"1.0\"\n");
  const Outcome run = RunCheck("wide");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output,
            "velmo-check: wide: the search over all tasks stopped at its bound: there may be waits that lock "
            "each other beyond what it has seen\nno findings\n");
}

TEST_F(Program, SaysWhyItCouldNotRun) {
  WriteFile("empty/readme", "");
  WriteFile("machine/Velmo.conf", "");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"nowhere", "velmo-check: nowhere: no such file or directory\n"},
      {"empty",
       "velmo-check: empty: no machine's directory: there is no plc1, rack.toml or Velmo.conf in it\n"},
      {"machine/Velmo.conf",
       "velmo-check: machine/Velmo.conf: no program file; it is checked with the machine's directory\n"},
      {"", "velmo-check: name a machine's directory or a program file (--help)\n"},
      {"--explain mising-label",
       "velmo-check: there is no rule \"mising-label\"; did you mean \"missing-label\"?\n"},
      {"--rack none.toml cell", "velmo-check: none.toml: No such file or directory\n"},
      {"--ignore long-dely cell",
       "velmo-check: there is no rule \"long-dely\"; did you mean \"long-delay\"?\n"},
      {"--columns bytes cell", "--columns: bytes not in {"},
      {"--format xml cell", "--format: xml not in {"},
  };
  for (const auto& [arguments, message] : cases) {
    SCOPED_TRACE(arguments);
    const Outcome run = RunCheck(arguments);
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.output, HasSubstr(message));
  }
}

TEST(Documentation, HasEveryRuleAsTheProgramExplainsIt) {
  const std::string page = ReadText(kSource / "docs/check.md");
  std::string rules;
  for (const check::Rule& rule : check::Rules()) rules += "### " + check::ExplainRule(rule) + "\n";
  ASSERT_NE(page.find("\n### "), page.npos);
  EXPECT_EQ(page.substr(page.find("\n### ") + 1) + "\n", rules);
}

}  // namespace
