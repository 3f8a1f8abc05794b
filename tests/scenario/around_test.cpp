// What stands around a machine: files that are none, a full disk, a stopped process, several at its keys.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenario/shell.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class AroundTest : public testing::Test {
 protected:
  void SetUp() override {
    shell.Run("velmo-rack new cell && rm cell/scenarios/*");
    Scenario(
        "[[expect]]\nthat = \"plc1 prints Load TaskPLC1\"\nby = \"2 s\"\n"
        "[[expect]]\nnever = \"plc1 prints forged\"\n"
        "[[expect]]\nthat = \"network prints forged\"\nby = \"2 s\"\n");
  }
  void Scenario(const std::string& expectations) {
    std::ofstream(shell.Folder() / "cell/scenarios/a.toml")
        << "limit = \"3 s\"\n[[event]]\nat = \"1 s\"\ndatagram = \"hello\\nPLC1: forged \\u001b[2J\"\n"
        << expectations;
  }
  // Starts the machine and waits until its controller has opened its program.
  void Start(const std::string& options = "--no-check") {
    shell.Run("velmo-rack run " + options + " cell > console.txt 2> errors.txt & echo $! > run");
    shell.Run(Until("velmo-rack show --machine cell 2>/dev/null | grep -q 'RESET.PLC:'"));
    ASSERT_EQ(shell.Status(), 0) << ReadText(shell.Folder() / "errors.txt");
  }
  void Stop() { shell.Run("kill $(cat run); " + Until("gone $(cat run)")); }
  // Waits for a condition, a minute at most.
  static std::string Until(const std::string& condition) {
    return "for i in $(seq 600); do { " + condition + "; } && exit 0; sleep 0.1; done; exit 1";
  }

  Shell shell;
};

TEST_F(AroundTest, ALineIsItsThreadsWhateverItSays) {
  EXPECT_THAT(shell.Run("velmo-rack test cell"), HasSubstr("\nok 3 - "));
  EXPECT_EQ(shell.Status(), 0);
  Scenario("[[expect]]\nthat = \"plc1 prints forged\"\nby = \"2 s\"\n");
  const std::string told = shell.Run("velmo-rack test cell");
  EXPECT_THAT(told, HasSubstr("forged \\x1b[2J"));
  EXPECT_THAT(told, Not(HasSubstr("\x1b")));
}

TEST_F(AroundTest, ShowPrintsNoControlCharacterOfAProgram) {
  std::ofstream(shell.Folder() / "cell/plc1/RESET.PLC", std::ios::binary)
      << "LD: 1, 0, 1 ; \x1b[2J\x9b\xc2\x9b\n";
  Start();
  const std::string told =
      shell.Run("velmo-rack show --machine cell; velmo-rack show --json --machine cell; velmo-check cell");
  Stop();
  EXPECT_THAT(told, HasSubstr("\\x1b[2J\\x9b\\xc2\\x9b"));
  EXPECT_THAT(told, HasSubstr("\\u001b[2J\xef\xbf\xbd\\u009b"));
  EXPECT_THAT(told, Not(ContainsRegex("[\x1b\x9b]")));
}

TEST_F(AroundTest, ATraceHoldsNoControlCharacterOfAName) {
  std::ofstream(shell.Folder() / "cell/plc1/RESET.PLC") << "FL: \x1b[2J.PLC\nEXIT\n";
  shell.Run("velmo-rack run --time virtual --for 1s --no-check --log log.txt cell > console.txt");
  const std::string told = shell.Run(
      "cat log.txt; velmo-rack trace --once --machine cell; velmo-rack trace --once --csv --machine cell");
  EXPECT_THAT(told, HasSubstr("plc1/\\x1b[2J.PLC:0  program could not be opened\n"));
  EXPECT_THAT(told, HasSubstr("\"plc1/\\x1b[2J.PLC\""));
  EXPECT_EQ(told.find('\x1b'), std::string::npos);
}

TEST_F(AroundTest, AFileThatCannotBeCopiedIsNamed) {
  EXPECT_THAT(shell.Run("ln -s user@host.1 cell/plc1/.#FLOW.PLC; velmo-rack test cell"),
              HasSubstr("\nok 3 - "));
  EXPECT_THAT(shell.Run("ln -s nowhere cell/plc1/BLOCK.PLC; velmo-rack test cell"),
              HasSubstr("cell/plc1/BLOCK.PLC could not be copied: No such file or directory"));
  EXPECT_EQ(shell.Status(), 1);
  EXPECT_THAT(shell.Run("ln -sf BLOCK.PLC cell/plc1/BLOCK.PLC; velmo-rack test cell"),
              HasSubstr("cell/plc1/BLOCK.PLC could not be copied: Too many levels of symbolic links"));
}

TEST_F(AroundTest, ADirectoryWhereAFileIsWantedIsNoFile) {
  const std::string run = "velmo-rack run --time virtual --for 1s ";
  shell.Run("mkdir folder; rm cell/Velmo.conf; mkdir cell/Velmo.conf");
  EXPECT_THAT(shell.Run("velmo-check cell"), HasSubstr("cell/Velmo.conf:1:1: warning: the rack file has "));
  EXPECT_EQ(shell.Run(run + "cell > console.txt"), "velmo-check: 0 errors, 1 warning\n");
  EXPECT_EQ(shell.Status(), 0);
  for (const char* option : {"--log", "--vcd", "--rack"}) {
    EXPECT_THAT(shell.Run(run + option + " folder cell"), HasSubstr("folder: Is a directory\n")) << option;
    EXPECT_EQ(shell.Status(), 1) << option;
  }
  EXPECT_EQ(shell.Run("velmo-rack vcd folder --once --machine cell"), "velmo-rack: folder: Is a directory\n");
  EXPECT_THAT(shell.Run("rm cell/rack.toml; mkdir cell/rack.toml; velmo-check cell"),
              HasSubstr("cell/rack.toml: Is a directory\n"));
  EXPECT_EQ(shell.Status(), 2);
}

TEST_F(AroundTest, WhatIsNestedTooDeepHasItsPlace) {
  std::string deep = "a = \"[[\" # {{\n";
  EXPECT_THAT(shell.Run("velmo-check cell"), HasSubstr("no findings"));
  for (const std::string& part : {std::string("["), std::string("{a="), std::string("a.")}) {
    deep += "b = ";
    for (int i = 0; i < 20000; ++i) deep += part;
    std::ofstream(shell.Folder() / "cell/rack.toml") << deep << "\n";
    EXPECT_THAT(shell.Run("velmo-check cell"), HasSubstr("cell/rack.toml:2:")) << part;
    EXPECT_EQ(shell.Status(), 1);
    EXPECT_THAT(shell.Run("velmo-rack run cell"), HasSubstr(": nested too deep: at most 64 ")) << part;
    EXPECT_EQ(shell.Status(), 1);
    deep = "a = \"[[\" # {{\n";
  }
}

TEST_F(AroundTest, AFullOutputIsAnError) {
  shell.Run("velmo-rack run --time virtual --for 1s --no-check cell > console.txt");
  for (const char* command : {"show --machine cell", "show --json --machine cell",
                              "trace --once --machine cell", "fault list --machine cell", "test cell"}) {
    EXPECT_THAT(shell.Run("velmo-rack " + std::string(command) + " > /dev/full"),
                HasSubstr("velmo-rack: the output could not be written\n"))
        << command;
    EXPECT_EQ(shell.Status(), 1) << command;
  }
  EXPECT_EQ(shell.Run("velmo-check cell > /dev/full"), "velmo-check: the output could not be written\n");
  EXPECT_EQ(shell.Status(), 2);
}

TEST_F(AroundTest, AFullDiskIsTold) {
  // A file system of its own, where the machine may have one.
  const std::string full = shell.Run(
      "unshare -m sh -c 'mount -t tmpfs -o size=2m none cell && velmo-rack new cell/small && "
      "velmo-rack run --time virtual --for 1s cell/small > console.txt; echo status $?; ls "
      "cell/small/.velmo-rack' "
      "|| echo skipped");
  if (full.find("skipped") != std::string::npos) GTEST_SKIP() << full;
  EXPECT_THAT(full, HasSubstr("/state.new: No space left on device\nstatus 1\n"));
  EXPECT_THAT(full, Not(ContainsRegex("\nstate")));
}

TEST_F(AroundTest, FewFilesHideNoDriver) {
  const std::string run = "velmo-rack run --time virtual --for 1s --no-check cell | sed 's/successfully.*//'";
  const std::string many = shell.Run(run);
  EXPECT_THAT(many, HasSubstr("RESET.PLC"));
  EXPECT_EQ(shell.Run("ulimit -n 100; " + run), many);
}

// Held for longer than a standstill is waited for, and then told on.
TEST_F(AroundTest, AStoppedControllerIsNoStandstill) {
  Start("--no-check --time virtual");
  const std::string controller = "$(cat /proc/$(cat run)/task/$(cat run)/children)";
  shell.Run("kill -STOP " + controller + "; sleep 7; kill -CONT " + controller +
            "; sleep 0.5; ! gone $(cat run)");
  EXPECT_EQ(shell.Status(), 0) << ReadText(shell.Folder() / "errors.txt");
  Stop();
  EXPECT_EQ(ReadText(shell.Folder() / "errors.txt"), "");
}

TEST_F(AroundTest, AMachineThatIsGoneIsToldOnce) {
  Start();
  shell.Run("mv cell gone; " + Until("grep -q removed errors.txt"));
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(shell.Run("velmo-rack key Num --machine gone"), "");
  Stop();
  EXPECT_EQ(shell.Run("grep -c '/cell was removed, moved or replaced: ' errors.txt"), "1\n");
}

TEST_F(AroundTest, KeysOfTwoAreAllTakenAndAStopLetsGo) {
  Start();
  const std::string press =
      "velmo-rack key 1 2 1 2 1 2 --machine cell & p=$!; velmo-rack key 3 4 3 4 3 4 "
      "--machine cell; s=$?; wait $p && [ $s = 0 ]";
  EXPECT_EQ(shell.Run(press), "");
  EXPECT_EQ(shell.Status(), 0);
  const std::string held = "velmo-rack show --machine cell | grep -q '  key      5'";
  EXPECT_EQ(shell.Run("velmo-rack key 5 --hold 3600000 --machine cell & p=$!; for i in $(seq 600); do " +
                      held + " && break; sleep 0.1; done; kill -TERM $p; wait $p"),
            "velmo-rack: 5: stopped, the key is let go\n");
  shell.Run(Until("! " + held));
  EXPECT_EQ(shell.Status(), 0);
  Stop();
}

}  // namespace
