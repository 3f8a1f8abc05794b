// Scenarios of a small machine that pass and fail, one for each kind of expectation, and one that is wrong
// throughout: what `velmo-rack test` prints is compared whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>

#include "scenario/shell.h"

namespace {

namespace fs = std::filesystem;

const fs::path kCases = fs::path(VELMO_SOURCE) / "tests/scenario/cases";

class CasesTest : public testing::Test {
 protected:
  void SetUp() override { fs::copy(kCases, shell.Folder() / "cases", fs::copy_options::recursive); }

  std::string Run(const std::string& command, const std::string& folder = "cases") {
    shell.Enter(folder);
    return shell.Run(command);
  }

  Shell shell;
};

class FailingCaseTest : public CasesTest, public testing::WithParamInterface<std::string> {};

std::vector<std::string> FailingCases() {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(kCases / "fail")) {
    if (entry.path().extension() == ".toml") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST_P(FailingCaseTest, TellsWhatDidHappen) {
  const std::string name = GetParam();
  EXPECT_EQ(Run("velmo-rack test " + name + ".toml", "cases/fail"),
            ReadText(kCases / "fail" / (name + ".tap")));
  EXPECT_EQ(shell.Status(), 1);
  // The recording of the run: its head, and its last time.
  const std::string recording = ReadText(shell.Folder() / "cases/fail" / ("machine-" + name + ".vcd"));
  EXPECT_THAT(recording, testing::HasSubstr("$enddefinitions $end\n#0\n"));
  // The view names the recording beside it.
  EXPECT_THAT(ReadText(shell.Folder() / "cases/fail" / ("machine-" + name + ".gtkw")),
              testing::StartsWith("[dumpfile] \"machine-" + name + ".vcd\"\n"));
}

INSTANTIATE_TEST_SUITE_P(Cases, FailingCaseTest, testing::ValuesIn(FailingCases()), [](const auto& of) {
  std::string name = of.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

TEST_F(CasesTest, PassingScenariosPassAndLeaveNothing) {
  const std::string files = "find . -type f | sort | xargs cksum";
  const std::string before = Run(files);
  const std::string output = Run("velmo-rack test pass");
  EXPECT_EQ(shell.Status(), 0) << output;
  EXPECT_THAT(output, testing::StartsWith("TAP version 13\n1..64\n# pass/alarm.toml, 2.831 s of the machine\n"
                                          "ok 1 - alarm: cylinder 3.0 alarm within 10 ms after jam\n"));
  // An hour was allowed.
  EXPECT_THAT(output, testing::HasSubstr("# pass/ends-early.toml, 1.170 s of the machine\n"));
  EXPECT_EQ(Run(files), before);
  EXPECT_EQ(Run("find machine -name .velmo-rack"), "");
}

TEST_F(CasesTest, TheSameRunTwice) {
  const std::string first = Run("velmo-rack test fail/never.toml; cat machine-never.vcd machine-never.gtkw");
  EXPECT_THAT(first, testing::HasSubstr("not ok 1"));
  EXPECT_EQ(Run("velmo-rack test fail/never.toml; cat machine-never.vcd machine-never.gtkw"), first);
}

TEST_F(CasesTest, EveryMistakeOfAScenarioHasItsPlaceAndNothingRuns) {
  EXPECT_EQ(Run("velmo-rack test pass wrong.toml"), ReadText(kCases / "wrong.txt"));
  EXPECT_EQ(shell.Status(), 2);
  EXPECT_EQ(Run("velmo-rack test none"), "velmo-rack: none: there is no such file or directory\n");
  EXPECT_EQ(shell.Status(), 2);
  std::ofstream(shell.Folder() / "cases/bad.toml") << "machine = \n";
  EXPECT_THAT(Run("velmo-rack test bad.toml"), testing::StartsWith("bad.toml:1:"));
  EXPECT_EQ(shell.Status(), 2);
  std::ofstream(shell.Folder() / "cases/bad.toml") << "machine = \"nowhere\"\n";
  EXPECT_EQ(Run("velmo-rack test bad.toml"),
            "bad.toml:1:11: there is no machine in ./nowhere: \"machine\" names its directory, seen from "
            "this file\n");
  std::ofstream(shell.Folder() / "cases/bad.toml") << "machine = \"machine\"\n";
  EXPECT_EQ(Run("velmo-rack test bad.toml"),
            "bad.toml:1:1: nothing is expected here: write [[expect]], or [end] with \"hold\"\n");
  std::ofstream(shell.Folder() / "cases/bad.toml") << "machine = \"machine\"\n[end]\nwait = \"1 s\"\n";
  EXPECT_EQ(Run("velmo-rack test bad.toml"),
            "bad.toml:1:1: nothing is expected here: write [[expect]], or [end] with \"hold\"\n");
  std::ofstream(shell.Folder() / "cases/bad.toml")
      << "machine = \"machine\"\n[[expect]]\nthat = 5\nby = \"1 s\"\n[end]\nhold = [3]\n";
  EXPECT_EQ(Run("velmo-rack test bad.toml"),
            "bad.toml:3:8: a text in quotes is wanted here\nbad.toml:6:9: a text in quotes is wanted here\n");
}

TEST_F(CasesTest, ATimeOfTheRackFileIsChangedInOneRowOnly) {
  shell.Run("printf '[slots]\\n2 = \"io\"\\n5 = \"cylinder\"\\n' > cases/machine/bare.toml");
  const auto test = [&](const std::string& rack) {
    std::ofstream(shell.Folder() / "cases/bad.toml") << "machine = \"machine\"\n[rack]\n"
                                                     << rack << "\n[end]\nhold = [\"input 1.0 off\"]\n";
    return Run("velmo-rack test bad.toml");
  };
  // A card without a name goes by its slot; one without settings has times, too.
  EXPECT_THAT(test("file = \"bare.toml\"\n\"5.travel_time\" = \"10 ms\""), testing::HasSubstr("\nok 1 - "));
  EXPECT_EQ(test("file = \"bare.toml\"\n\"6.travel_time\" = \"10 ms\""),
            "bad.toml:4:19: nothing with a time is called \"6\" in the rack file; did you mean \"5\"?\n");
  std::ofstream(shell.Folder() / "cases/machine/rack.toml", std::ios::app)
      << "\n[[valve]]\noutput = \"horn\"\nsensor = \"clamped\"\n";
  EXPECT_EQ(test("\"clamped.on_delay\" = \"10 ms\""),
            "bad.toml:3:22: 2 rows of the rack file are called \"clamped\" and have \"on_delay\"\n");
  std::ofstream(shell.Folder() / "cases/machine/rack.toml") << "[slots]\n2 = \"io\"\n";
  EXPECT_EQ(test("\"clamped.on_delay\" = \"10 ms\""),
            "bad.toml:3:22: nothing with a time is called \"clamped\" in the rack file\n");
}

TEST_F(CasesTest, AControllerThatEndsFailsWhatIsNotDecided) {
  EXPECT_EQ(
      Run("velmo-rack test --controller /bin/true pass/order.toml"),
      "TAP version 13\n1..2\n# pass/order.toml, 0.000 s of the machine\n"
      "not ok 1 - order: clamped on before motor 2.0 starts\n  ---\n"
      "  message: \"at 0.000 s, the controller has ended with status 0: motor 2.0 starts has not come\"\n"
      "  at: \"pass/order.toml:11\"\n  waveform: \"machine-order.vcd\"\n  ...\n"
      "not ok 2 - order: every event comes\n  ---\n"
      "  message: \"at 0.000 s, the controller has ended with status 0: the event \\\"start\\\" of line 4 "
      "was "
      "never reached (key Enter): its time has not come\"\n"
      "  at: \"pass/order.toml:4\"\n  waveform: \"machine-order.vcd\"\n  ...\n");
  EXPECT_EQ(shell.Status(), 1);
  EXPECT_EQ(Run("velmo-rack test --controller ./none pass/order.toml"),
            "velmo-rack: controller ./none: No such file or directory\n");
  EXPECT_EQ(shell.Status(), 1);
}

// The machine runs on for a moment before it is known that all is decided.
TEST_F(CasesTest, ADeadlockBehindTheEndChangesNothingThatWasDecided) {
  const auto test = [&](const std::string& end) {
    std::ofstream(shell.Folder() / "cases/bad.toml")
        << "machine = \"machine\"\n[[expect]]\nthat = \"output 0.0 on\"\nby = \"5 s\"\n"
        << end;
    return Run("velmo-rack test --controller " LOCKS_UP_PROGRAM " bad.toml 2> /dev/null");
  };
  EXPECT_EQ(test(""),
            "TAP version 13\n1..1\n# bad.toml, 0.100 s of the machine\nok 1 - bad: output 0.0 on by 5 s\n");
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(
      test("[end]\nwait = \"1 s\"\nhold = [\"output 0.0 on\"]\n"),
      testing::HasSubstr("not ok 1 - bad: output 0.0 on by 5 s\n  ---\n  message: \"deadlock at 0.150"));
  EXPECT_EQ(shell.Status(), 1);
}

// A program without a pause fills the journal several times while nobody reads it.
TEST_F(CasesTest, TimeStandsForAScenarioThatIsBehind) {
  std::ofstream(shell.Folder() / "cases/machine/rack.toml")
      << "[rack]\nbus_access_ns = 100\n[slots]\n2 = \"io\"\n";
  std::ofstream(shell.Folder() / "cases/machine/plc1/RESET.PLC")
      << "G_ST: 0\n#LE: 1\nOUT: 1, 1, 1\nOUT: 1, 1, 0\nGO: 1\n";
  std::ofstream(shell.Folder() / "cases/bad.toml")
      << "machine = \"machine\"\nlimit = \"50 ms\"\n[[expect]]\nnever = \"output 1.2 on\"\n";
  // The process that runs the scenario is held as soon as time goes, until time stands for it.
  const std::string said =
      Run("mkdir tmp; TMPDIR=$PWD/tmp velmo-rack test bad.toml > out.txt & run=$!\n"
          "show() { velmo-rack show --machine tmp/velmo-scenario-*/machine 2> /dev/null; }\n"
          "until show | grep -q '^task 1 .*OUT'; do sleep 0.01; ! gone $run || exit 1; done\n"
          "job=$(cat /proc/$run/task/$run/children); kill -STOP $job; looks=0\n"
          "until show | grep -q '^time stands: waits for test (process [0-9]*)'; do\n"
          "  sleep 0.01; looks=$((looks + 1)); [ $((looks % 50)) -ne 0 ] || { kill -CONT $job; sleep 0.01; "
          "kill -STOP $job; }\n"
          "  ! gone $run || exit 1; done\n"
          "kill -CONT $job; wait $run; cat out.txt");
  EXPECT_EQ(said,
            "TAP version 13\n1..1\n# bad.toml, 0.050 s of the machine\nok 1 - bad: never output 1.2 on\n");
}

TEST_F(CasesTest, WhatTheRackRefusesIsSaidInItsWords) {
  std::ofstream(shell.Folder() / "cases/bad.toml")
      << "machine = \"machine\"\n[[event]]\nat = \"1 s\"\nkey = \"RUN\"\n"
         "[[expect]]\nthat = \"guard on\"\nby = \"2 s\"\n";
  // The error is told of each expectation, and what comes behind runs.
  const std::string output = Run("velmo-rack test bad.toml pass/level.toml --junit results.xml");
  EXPECT_THAT(output, testing::StartsWith(
                          "TAP version 13\n1..5\n# bad.toml, 1.000 s of the machine\n"
                          "not ok 1 - bad: guard on by 2 s\n  ---\n"
                          "  message: \"key RUN: the CPU card has no function keys: the rack file gives it "
                          "none\"\n  at: \"bad.toml:6\"\n"));
  EXPECT_THAT(output, testing::HasSubstr("ok 5 - level: every event comes\n"));
  EXPECT_EQ(shell.Status(), 1);
  const std::string xml = ReadText(shell.Folder() / "cases/results.xml");
  EXPECT_THAT(xml, testing::HasSubstr("<testsuite name=\"bad\" tests=\"2\" failures=\"0\" errors=\"2\""));
  EXPECT_THAT(xml, testing::HasSubstr("<error message=\"key RUN: the CPU card"));
}

TEST_F(CasesTest, ProveCountsTheFailures) {
  const std::string output =
      Run("prove --norc -e 'velmo-rack test' pass/level.toml fail/order.toml fail/end.toml");
  EXPECT_THAT(output, testing::HasSubstr("Tests: 3 Failed: 2)"));
  EXPECT_THAT(output, testing::HasSubstr("Tests: 5 Failed: 2)"));
  EXPECT_THAT(output, testing::HasSubstr("Files=3, Tests=11,"));
}

TEST_F(CasesTest, WhatTheConsoleHoldsSpoilsNoReader) {
  std::ofstream(shell.Folder() / "cases/machine/plc1/FLOW.PLC")
      << "FL: \xFF\x1b[0m\x01<&\xC3\xA4\"]]>.PLC\nOUT: 1, 1, 1\nEXIT\n";
  const std::string output = Run("velmo-rack test fail/console.toml --junit results.xml");
  EXPECT_THAT(output, testing::HasSubstr("\\xff\\x1b[0m\\x01<&\xC3\xA4"));
  EXPECT_EQ(Run("xmllint --noout results.xml"), "");
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_EQ(Run("iconv -f UTF-8 -t UTF-8 results.xml | cmp - results.xml"), "");
}

TEST_F(CasesTest, AProgramThatSpinsIsNamedAndTheSuiteGoesOn) {
  std::ofstream(shell.Folder() / "cases/machine/plc1/FLOW.PLC") << "G_ST: 0\n#LE: 1\nOUT: 1, 1, 1\nGO: 1\n";
  const std::string output = Run("velmo-rack test pass/level.toml fail/dead-controller.toml");
  EXPECT_THAT(output, testing::ContainsRegex(
                          "# task 1 spins at plc1/FLOW.PLC:[1-4]: 200000 lines in a row without a pause"));
  EXPECT_THAT(output, testing::HasSubstr("ok 2 - level: clamped off at 1 s\n"));
  EXPECT_THAT(output, testing::HasSubstr("not ok 4 - dead-controller: key Enter"));
}

TEST_F(CasesTest, AMachineWithoutScenariosSaysSo) {
  EXPECT_EQ(Run("velmo-rack test machine"),
            "velmo-rack: machine: this machine has no scenarios: they stand in its folder \"scenarios\", "
            "files that "
            "end in .toml\n");
  EXPECT_EQ(shell.Status(), 2);
}

TEST_F(CasesTest, JobsChangeNothingAndTheFilterChooses) {
  const std::string one = Run("velmo-rack test pass --jobs 1");
  EXPECT_EQ(Run("velmo-rack test pass --jobs 4"), one);
  EXPECT_THAT(Run("velmo-rack test pass --filter evel --vcd"),
              testing::StartsWith("TAP version 13\n1..3\n# pass/level.toml"));
  EXPECT_THAT(ReadText(shell.Folder() / "cases/machine-level.vcd"),
              testing::HasSubstr("$enddefinitions $end\n#0\n"));
  EXPECT_EQ(Run("velmo-rack test pass --filter none"), "velmo-rack: no scenario has \"none\" in its name\n");
  EXPECT_EQ(shell.Status(), 2);
}

TEST_F(CasesTest, JunitHasEveryExpectation) {
  Run("velmo-rack test pass/level.toml fail/end.toml --junit results.xml");
  const std::string xml = ReadText(shell.Folder() / "cases/results.xml");
  EXPECT_THAT(
      xml,
      testing::StartsWith(
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n"
          "  <testsuite name=\"level\" tests=\"3\" failures=\"0\" errors=\"0\" skipped=\"0\" "
          "time=\"1.170\">\n"
          "    <testcase classname=\"level\" name=\"clamped on by 2 s\" file=\"pass/level.toml\" line=\"10\" "
          "time=\"1.170\" />\n"));
  EXPECT_THAT(xml,
              testing::HasSubstr("<failure message=\"at 2.991 s, the end: counter parts is 2 since 1.971 s\">"
                                 "fail/end.toml:17\n"));
  EXPECT_THAT(xml,
              testing::EndsWith(
                  "file=\"fail/end.toml\" line=\"4\" time=\"1.000\" />\n  </testsuite>\n</testsuites>\n"));
}

// Switches an input that no program reads, at times and after happenings drawn at random.
void AddUnrelatedEvents(const fs::path& scenario, std::minstd_rand& random) {
  constexpr const char* kMoments[] = {"line plc1/RESET.PLC:13", "key Enter", "plc1 prints CmdIdx: OUT"};
  std::ofstream file(scenario, std::ios::app);
  for (int i = 0; i < 12; ++i) {
    const std::string level = random() % 2 == 0 ? "on" : "off";
    file << "\n[[event]]\n";
    if (random() % 2 == 0) {
      file << "at = \"" << random() % 15'000 << " ms\"\n";
    } else {
      file << "after = \"" << kMoments[random() % std::size(kMoments)] << "\"\ndelay = \"" << random() % 900
           << " ms\"\n";
    }
    file << "input = \"1.15 " << level << "\"\n";
  }
}

TEST(DemoCell, UnrelatedEventsChangeNothing) {
  Shell shell;
  shell.Run("cp -r '" VELMO_SOURCE "/demo/cell' plain");
  shell.Run("cp -r plain cell");
  const std::string expected = shell.Run("velmo-rack test cell");
  ASSERT_EQ(shell.Status(), 0) << expected;
  for (unsigned seed = 1; seed <= 3; ++seed) {
    shell.Run("rm -rf cell && cp -r plain cell");
    std::minstd_rand random(seed);
    for (const char* const name : {"alarm", "good-day", "pulled-card", "restart", "silent-sensor"}) {
      AddUnrelatedEvents(shell.Folder() / "cell/scenarios" / (std::string(name) + ".toml"), random);
    }
    EXPECT_EQ(shell.Run("velmo-rack test cell"), expected) << "seed " << seed;
  }
}

TEST(DemoCell, NoCardProtestsInAGoodDay) {
  Shell shell;
  const std::string output = shell.Run(
      "cp -r '" VELMO_SOURCE
      "/demo/cell' . && echo '[[expect]]\nnever = \"a card protests\"' >> "
      "cell/scenarios/good-day.toml && sed -i '/^\\[end\\]/,/^\\]/d' cell/scenarios/good-day.toml && "
      "velmo-rack test cell/scenarios/good-day.toml");
  EXPECT_EQ(shell.Status(), 0) << output;
  EXPECT_THAT(output, testing::HasSubstr(" - good-day: never a card protests\n"));
}

TEST(DemoCell, ItsScenariosPass) {
  Shell shell;
  const std::string output = shell.Run("velmo-rack test '" VELMO_SOURCE "/demo/cell'");
  EXPECT_EQ(shell.Status(), 0) << output;
  for (const char* scenario : {"good-day", "alarm", "silent-sensor", "pulled-card", "restart"}) {
    EXPECT_THAT(output, testing::HasSubstr(std::string(" - ") + scenario + ": "));
  }
}

}  // namespace
