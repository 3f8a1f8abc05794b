// What the checker is told to leave out, which paths it takes, and its formats.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "check/check.h"
#include "support/schema.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct Outcome {
  int status;
  std::string output;
};

// Standard output alone.
Outcome RunCheck(const std::string& arguments) {
  const std::string command = std::string(VELMO_CHECK) + " " + arguments + " 2>errors";
  FILE* pipe = popen(command.c_str(), "r");
  Outcome run{-1, ""};
  if (pipe == nullptr) return run;
  char buffer[4096];
  for (size_t count = 0; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    run.output.append(buffer, count);
  run.status = WEXITSTATUS(pclose(pipe));
  return run;
}

std::string Gcc(const std::string& arguments) {
  return RunCheck("--format gcc " + arguments).output;
}

json Parsed(const std::string& arguments) {
  return json::parse(RunCheck(arguments).output);
}

class Output : public ScratchTest {
 protected:
  static void WriteFile(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    Write(path, text);
  }

  void SetUp() override {
    ScratchTest::SetUp();
    WriteFile("cell/rack.toml", "[slots]\n1 = \"io\"\n2 = \"stepper\"\n");
    WriteFile("cell/plc1/RESET.PLC", "EXIT\n");
    WriteFile("cell/plc1/FLOW.PLC", "DLY: 2000\nOUTT: 1, 0, 1\nEND\n");
  }

  static constexpr const char* kDelay =
      "cell/plc1/FLOW.PLC:1:6: warning: a pause of 2000 ms: the task sees no key meanwhile; wait for an "
      "input or "
      "loop over short pauses [long-delay]\n";
  static constexpr const char* kKeyword =
      "cell/plc1/FLOW.PLC:2:1: error: \"OUTT\" is no command: the controller skips the line; did you mean "
      "\"OUT\"? [unknown-keyword]\n";
};

TEST_F(Output, ShowsWhatItIsAskedForAndItsStatusIsThatOfWhatIsShown) {
  EXPECT_EQ(Gcc("cell"), std::string(kDelay) + kKeyword);
  EXPECT_EQ(Gcc("--errors-only cell"), kKeyword);
  EXPECT_EQ(Gcc("--ignore unknown-keyword cell"), kDelay);
  EXPECT_EQ(RunCheck("--ignore unknown-keyword cell").status, 1);
  const Outcome nothing = RunCheck("--errors-only --ignore unknown-keyword cell");
  EXPECT_EQ(nothing.status, 0);
  EXPECT_EQ(nothing.output, "no findings\n");
  EXPECT_EQ(RunCheck("--ignore unknown-keyword --ignore long-delay cell").status, 0);
  const Outcome raised = RunCheck("--errors-only --warnings-as-errors cell");
  EXPECT_EQ(raised.status, 1);
  EXPECT_THAT(raised.output, HasSubstr("FLOW.PLC:1:6: error: a pause of 2000 ms"));
  EXPECT_THAT(raised.output, HasSubstr("2 errors, 0 warnings\n"));
  EXPECT_EQ(Parsed("--warnings-as-errors --format json cell")["errors"], 2);
}

TEST_F(Output, ARackFileIgnoresRulesForTheWholeMachine) {
  WriteFile("cell/plc3/FLOW.PLC", "END\n");
  const char* rack = "[rack]\ntask_count = 1\n[slots]\n1 = \"io\"\n[check]\n";
  Write("cell/rack.toml", std::string(rack) + "ignore = [\"long-delay\", \"idle-directory\"]\n");
  EXPECT_EQ(Gcc("cell"), kKeyword);
  EXPECT_EQ(Gcc("cell/plc1/FLOW.PLC"), kKeyword);
  Write("cell/rack.toml",
        std::string(rack) + "ignore = [\"long-dely\", \"unknown-keyword\", \"idle-directory\"]\n");
  EXPECT_EQ(
      Gcc("cell"),
      "cell/rack.toml:6:11: error: there is no rule \"long-dely\" to ignore; did you mean \"long-delay\"? "
      "[rack-file]\n" +
          std::string(kDelay));
}

TEST_F(Output, AWrongRackFileIsAFindingInEveryFormat) {
  Write("cell/rack.toml", "[slots]\n1 = \"oi\"\n");
  const std::string message = "unknown card \"oi\"; did you mean \"io\"?";
  const Outcome text = RunCheck("cell");
  EXPECT_EQ(text.status, 1);
  EXPECT_EQ(text.output, "cell/rack.toml:2:5: error: " + message + " [rack-file]\n" + kDelay + kKeyword +
                             "2 errors, 1 warning\n");
  const json found = Parsed("--format json cell");
  EXPECT_EQ(found["findings"][0]["rule"], "rack-file");
  EXPECT_EQ(found["findings"][0]["line"], 2);
  EXPECT_EQ(found["findings"][0]["message"], message);
  EXPECT_EQ(Parsed("--format sarif cell")["runs"][0]["results"][0]["ruleId"], "rack-file");
  EXPECT_EQ(Gcc("cell cell/plc1"),
            "cell/rack.toml:2:5: error: " + message + " [rack-file]\n" + kDelay + kKeyword);
}

TEST_F(Output, ACommentIgnoresSeveralRulesAndSaysWhatItDoesNotUnderstand) {
  const auto found = [](const std::string& comment) {
    Write("cell/plc1/FLOW.PLC", "DLY: 2000, 5 ; " + comment + "\nEND\n");
    std::vector<std::string> rules;
    const json report = Parsed("--format json cell");
    for (const json& finding : report["findings"]) rules.push_back(finding["rule"]);
    return rules;
  };
  EXPECT_THAT(found("check: ignore long-delay, lost-text"), ElementsAre());
  EXPECT_THAT(found("check: ignore long-delay,lost-text because glue sets"), ElementsAre());
  EXPECT_THAT(found("check: ignore lost-text; check: ignore long-delay"), ElementsAre());
  EXPECT_THAT(found("check: part there"), ElementsAre("long-delay", "lost-text"));
  EXPECT_THAT(found("check: ignition, before noon"), ElementsAre("long-delay", "lost-text"));
  for (const char* wrong : {"check: ignroe long-delay", "check:ignore long-delay", "Check: ignore long-delay",
                            "check: ignore", "check: ignore dely"}) {
    EXPECT_THAT(found(wrong), ElementsAre("unknown-ignore", "long-delay", "lost-text")) << wrong;
  }
  EXPECT_THAT(found("check: ignore long-delay, lost-txt"), ElementsAre("unknown-ignore", "lost-text"));
  EXPECT_THAT(found("check: ignore long-delay,"), ElementsAre("unknown-ignore", "lost-text"));
  EXPECT_THAT(found("check: ignore long-delay lost-text"), ElementsAre("unknown-ignore", "lost-text"));
}

TEST_F(Output, ATaskAloneIsCheckedAndNothingIsReportedTwice) {
  WriteFile("cell/plc2/RESET.PLC", "EXIT\n");
  WriteFile("cell/plc2/FLOW.PLC", "OUT: 1, 3, 1\nEND\n");
  Write("cell/plc1/FLOW.PLC", "OUT: 1, 3, 0\nOUTT: 1\nEND\n");
  Write("cell/rack.toml", "[rack]\ntask_count = 2\n[slots]\n1 = \"io\"\n");
  const std::string whole = Gcc("cell");
  EXPECT_THAT(whole, HasSubstr("cell/plc1/FLOW.PLC:2:1: error"));
  EXPECT_THAT(whole, HasSubstr("cell/plc2/FLOW.PLC:1:9: warning: task 1 writes output 1.3 too"));
  EXPECT_THAT(Gcc("cell/plc1"), Not(HasSubstr("plc2/FLOW.PLC")));
  EXPECT_THAT(Gcc("cell/plc1"), HasSubstr("cell/plc1/FLOW.PLC:2:1: error"));
  EXPECT_EQ(Gcc("cell/plc1/") + Gcc("cell/plc2/"), whole);
  EXPECT_EQ(Gcc("cell cell/plc1/FLOW.PLC ./cell/plc2 " + (fs::current_path() / "cell").string()), whole);
  fs::current_path("cell/plc1");
  EXPECT_THAT(Gcc("."), HasSubstr("FLOW.PLC:2:1: error"));
  fs::current_path("../..");
}

TEST_F(Output, SaysWhichEntriesThereAreAndWhichMotorWasProbablyMeant) {
  const auto found = [](const std::string& flow) {
    Write("cell/plc1/FLOW.PLC", flow + "\nEND\n");
    return Gcc("--errors-only cell");
  };
  EXPECT_THAT(found("OUT: 3, 0, 1"), HasSubstr("; there are 0 cpu, 1 io, 2 stepper [no-such-slot]"));
  EXPECT_THAT(found("LMOT: 1, 0,"), HasSubstr("; there are 0 cpu, 1 io, 2 stepper [wrong-card]"));
  EXPECT_THAT(found("MOT: 2, 0, 40&20&1\nLMOT: 0,"), HasSubstr("did you mean \"LMOT: 2, 0,\"?"));
  EXPECT_THAT(found("MOT: 2, 3, 40&20&1\nLMOT: 2,"), HasSubstr("did you mean \"LMOT: 2, 3,\"?"));
  EXPECT_THAT(found("MOT: 2, 3, 40&20&1\nLMOT: 2, 3"), HasSubstr("did you mean \"LMOT: 2, 3,\"?"));
  EXPECT_THAT(found("LMOT: 0,"), HasSubstr("; write slot, channel and a last comma [two-field-wait]"));
}

TEST_F(Output, JsonHasTheVersionAndTheRack) {
  const json found = Parsed("--format json cell");
  EXPECT_EQ(found["version"], "0.0.0.4");
  EXPECT_EQ(found["rack"], "cell/rack.toml");
  fs::remove("cell/rack.toml");
  EXPECT_EQ(Parsed("--format json cell")["rack"], nullptr);
}

TEST_F(Output, ColumnsAreCharactersOrUnitsOfUtf16) {
  Write("cell/plc1/FLOW.PLC", "FL: \xF0\x9F\x94\xA9\xC3\xA9.PLC : lost\nEND\n");
  WriteFile("cell/plc1/\xF0\x9F\x94\xA9\xC3\xA9.PLC", "END\n");
  EXPECT_THAT(Gcc("cell"), HasSubstr("FLOW.PLC:1:14: warning"));
  EXPECT_THAT(Gcc("--columns utf16 cell"), HasSubstr("FLOW.PLC:1:15: warning"));
  EXPECT_EQ(Parsed("--columns utf16 --format json cell")["findings"][0]["column"], 15);
  const json run = Parsed("--columns utf16 --format sarif cell")["runs"][0];
  EXPECT_EQ(run["columnKind"], "utf16CodeUnits");
  EXPECT_EQ(run["results"][0]["locations"][0]["physicalLocation"]["region"].dump(),
            R"({"endColumn":19,"startColumn":15,"startLine":1})");
}

TEST_F(Output, ColumnsOfTheConfigurationAreCountedLikeThoseOfPrograms) {
  Write("cell/Velmo.conf", "\xEF\xBB\xBF[UDP] Port=\xF0\x9F\x94\xA9\n");
  EXPECT_THAT(Gcc("cell"), HasSubstr("Velmo.conf:1:8: error: text stands behind [UDP]"));
  const auto region = [&](const std::string& options) {
    const json results = Parsed(options + "--format sarif cell")["runs"][0]["results"];
    return results[1]["locations"][0]["physicalLocation"]["region"].dump();
  };
  EXPECT_EQ(region(""), R"({"endColumn":14,"startColumn":8,"startLine":1})");
  EXPECT_EQ(region("--columns utf16 "), R"({"endColumn":15,"startColumn":8,"startLine":1})");
}

TEST_F(Output, NoControlCharacterOfAProgramGoesOutRaw) {
  Write("cell/plc1/FLOW.PLC", "\x1b[2J\x07: 1\nOUX\xC2\x9B: 1\nO\xFFT: 1\nEND\xE2\x80\xAE\nEND\n");
  for (const char* format : {"text", "gcc"}) {
    const std::string output = RunCheck(std::string("--format ") + format + " cell").output;
    EXPECT_THAT(output, HasSubstr("\"\\x1b[2J\\x07\" is no command"));
    EXPECT_THAT(output, HasSubstr("\"OUX\\xc2\\x9b\" is no command"));
    EXPECT_THAT(output, HasSubstr("\"O\\xffT\" is no command"));
    const auto isRaw = [](char c) { return (c > 0 && c < ' ' && c != '\n') || c == '\x7f'; };
    EXPECT_TRUE(std::none_of(output.begin(), output.end(), isRaw)) << output;
  }
  EXPECT_THAT(RunCheck("--format json cell").output, HasSubstr("\\u001b[2J"));
}

TEST_F(Output, ColoursStandOnlyOnATerminalThatWantsThem) {
  const auto onTerminal = [](const std::string& environment) {
    Outcome run{-1, ""};
    const std::string command = "env -u NO_COLOR TERM=xterm " + environment + " script -qec '" + VELMO_CHECK +
                                " cell' /dev/null </dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[4096];
    for (size_t count = 0; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
      run.output.append(buffer, count);
    pclose(pipe);
    return run.output;
  };
  EXPECT_THAT(onTerminal(""), HasSubstr("\033[1;31merror:"));
  EXPECT_THAT(onTerminal("NO_COLOR=1"), Not(HasSubstr("\033[")));
  EXPECT_THAT(onTerminal("TERM=dumb"), Not(HasSubstr("\033[")));
  EXPECT_THAT(onTerminal("NO_COLOR="), HasSubstr("\033[1;31merror:"));
}

class Sarif : public Output {
 protected:
  static std::vector<std::string> ErrorsIn(const json& document) {
    static const Schema schema(
        json::parse(std::ifstream(fs::path(VELMO_SOURCE) / "tests/check/sarif-2.1.0.json")));
    return schema.ErrorsIn(document);
  }
};

TEST_F(Sarif, FollowsTheSchemaOfTheStandard) {
  const fs::path wrong = fs::path(VELMO_SOURCE) / "tests/check/wrong";
  for (const auto& machine : fs::directory_iterator(wrong)) {
    EXPECT_THAT(ErrorsIn(Parsed("--format sarif " + machine.path().string())), ElementsAre())
        << machine.path();
  }
  json document = Parsed("--format sarif --columns utf16 --warnings-as-errors cell");
  EXPECT_THAT(ErrorsIn(document), ElementsAre());
  document["runs"][0]["results"][0]["level"] = "bad";
  document["runs"][0]["tool"]["driver"].erase("name");
  EXPECT_EQ(ErrorsIn(document).size(), 2U);
}

TEST_F(Sarif, SaysWhichProgramFoundItAndWhereItsPathsBegin) {
  const json run = Parsed("--format sarif cell")["runs"][0];
  EXPECT_EQ(run["tool"]["driver"]["version"], "0.0.0.4");
  EXPECT_THAT(run["tool"]["driver"]["informationUri"].get<std::string>(),
              testing::MatchesRegex("file:///.*/check\\.md"));
  EXPECT_EQ(run["originalUriBaseIds"]["SRCROOT"]["uri"], "file://" + fs::current_path().string() + "/");
  fs::create_directory("below");
  fs::current_path("below");
  const json outside = Parsed("--format sarif ../cell")["runs"][0];
  EXPECT_EQ(outside["results"][0]["locations"][0]["physicalLocation"]["artifactLocation"].dump(),
            "{\"uri\":\"file://" + directory.string() + "/cell/plc1/FLOW.PLC\"}");
}

TEST_F(Sarif, AFindingKeepsItsFingerprintWhenLinesComeAboveIt) {
  const auto prints = [] {
    std::vector<std::string> list;
    const json report = Parsed("--format sarif cell");
    for (const json& result : report["runs"][0]["results"])
      list.push_back(result["partialFingerprints"]["velmoCheck/v1"]);
    return list;
  };
  Write("cell/plc1/FLOW.PLC", "DLY: 2000\nDLY: 2000\nEND\n");
  const std::vector<std::string> before = prints();
  ASSERT_EQ(before.size(), 2U);
  EXPECT_NE(before[0], before[1]);
  Write("cell/plc1/FLOW.PLC", "; glue\n\nDLY: 2000\nDLY: 2000\nEND\n");
  EXPECT_EQ(prints(), before);
  Write("cell/plc1/FLOW.PLC", "DLY: 3000\nDLY: 2000\nEND\n");
  EXPECT_EQ(prints()[1], before[0]);
  EXPECT_NE(prints()[0], before[0]);
}

TEST_F(Sarif, EveryPlaceIsAFileThatCanBeOpened) {
  WriteFile("other/plc1/FLOW.PLC", "END\n");
  WriteFile("other/plc3/RESET.PLC", "EXIT\n");
  WriteFile("other/plc9/SUB.PLC", "END\n");
  const json report = Parsed("--format sarif other");
  std::vector<std::string> places;
  for (const json& result : report["runs"][0]["results"]) {
    const std::string uri = result["locations"][0]["physicalLocation"]["artifactLocation"]["uri"];
    EXPECT_TRUE(fs::is_regular_file(uri)) << uri;
    places.push_back(result["ruleId"].get<std::string>() + " " + uri);
  }
  EXPECT_THAT(places, testing::UnorderedElementsAre(
                          "no-task-directory other/plc1/FLOW.PLC", "no-reset other/plc1/FLOW.PLC",
                          "no-flow other/plc3/RESET.PLC", "idle-directory other/plc9/SUB.PLC"));
}

}  // namespace
