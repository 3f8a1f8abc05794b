// What is written while a machine runs, and what can be read of it afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenario/shell.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class RecordingsTest : public testing::Test {
 protected:
  void SetUp() override {
    shell.Run("mkdir -p cell/plc1 && printf '[slots]\\n2 = \"io\"\\n4 = \"cylinder\"\\n' > cell/rack.toml");
  }
  void Program(const std::string& text) { shell.Run("printf '" + text + "' > cell/plc1/RESET.PLC"); }
  std::string Run(const std::string& options = "") {
    return shell.Run("velmo-rack run --no-check --time virtual --for 2s " + options + " cell > console.txt");
  }
  std::string Trace(const std::string& options) {
    return shell.Run("velmo-rack trace --once --machine cell 2>/dev/null " + options);
  }

  Shell shell;
};

TEST_F(RecordingsTest, ARunWritesItsTraceAndItsWaveformMeanwhile) {
  Program("DG: 2, 0, -1\\nDG: 2, 0, 3\\nLDG: 2, 0,\\nOUT: 1, 3, 1\\nEXIT\\n");
  EXPECT_EQ(Run("--log run.txt --vcd run.vcd"), "");
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_EQ(shell.Run("velmo-rack trace --once --machine cell 2>/dev/null | cmp - run.txt"), "");
  EXPECT_EQ(shell.Run("velmo-rack vcd after.vcd --once --machine cell 2>/dev/null; cmp after.vcd run.vcd"),
            "");
  EXPECT_THAT(ReadText(shell.Folder() / "run.gtkw"), testing::StartsWith("[dumpfile] \"run.vcd\"\n"));
  EXPECT_THAT(ReadText(shell.Folder() / "run.vcd"), HasSubstr("\nsplc1/RESET.PLC "));
  EXPECT_EQ(Run("--log run.csv"), "");
  EXPECT_EQ(shell.Run("velmo-rack trace --csv --once --machine cell 2>/dev/null | cmp - run.csv"), "");
  EXPECT_EQ(Run("--log nowhere/run.txt"), "velmo-rack: nowhere/run.txt: No such file or directory\n");
  EXPECT_EQ(shell.Status(), 1);
}

// A setup asks for the status some hundred thousand times.
TEST_F(RecordingsTest, AStartWithASetupIsHeldWholeAndThePollIsOneLine) {
  Program("DG: 2, 0, -1\\nEXIT\\n");
  Run();
  const std::string trace = Trace("");
  EXPECT_THAT(trace, testing::StartsWith("    0.000000  main  -  device opened\n"));
  EXPECT_THAT(trace,
              testing::ContainsRegex("plc1/RESET.PLC:1  again: slot 4 cylinder: status reads 97 \\(0x61\\)"
                                     "  x 1[0-9][0-9],[0-9]+ until 0.5[0-9]+ s\n"));
  EXPECT_EQ(shell.Run("[ $(velmo-rack trace --once --machine cell 2>/dev/null | wc -l) -lt 200 ]"), "");
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(Trace("--csv --kind repeats --entry 2"),
              HasSubstr(",plc1,\"plc1/RESET.PLC\",1,4,6,97,\"again: "));
}

// The keypad is looked at every tenth of a second: nothing is missing up to there. Polls are told of once a second.
TEST_F(RecordingsTest, AControllerThatIsKilledLosesNoPoll) {
  Program("EXIT\\n");
  const std::string said = shell.Run(
      "velmo-rack run --no-check --time virtual --for 24h cell > console.txt 2>&1 & run=$!\n"
      "show() { velmo-rack show --json --machine cell 2> /dev/null | sed -n \"s/^  .$1.: "
      "\\([0-9]*\\).*/\\1/p\"; }\n"
      "until [ 0$(show seconds) -ge 3 ]; do sleep 0.01; ! gone $run || exit 1; done\n"
      "kill -9 $(show process); wait $run; echo $?; tail -n 1 console.txt\n"
      "velmo-rack trace --once --csv --machine cell 2> /dev/null | tail -n 1 > last; cut -d , -f 2,3 last\n"
      "velmo-rack show --json --machine cell | awk -F '[ ,]+' '/^  .seconds/ {\n"
      "  now = $3 * 1e9; getline < \"last\"; print now - $1 < 2e8 ? \"whole\" : now - $1 }'");
  EXPECT_EQ(said, "137\nvelmo-rack: the controller has died by SIGKILL\nrepeats,key\nwhole\n");
}

TEST_F(RecordingsTest, ATraceShowsWhatIsAskedFor) {
  Program("OUT: 1, 3, 1\\nDG: 2, 0, 1\\nLDG: 2, 0,\\nOUT: 1, 3, 0\\nEXIT\\n");
  Run();
  EXPECT_EQ(Trace("--kind output --csv | cut -d, -f 2-8"),
            "kind,task,file,line,slot,port,value\noutput,plc1,\"plc1/RESET.PLC\",1,2,3,1\n"
            "output,plc1,\"plc1/RESET.PLC\",4,2,3,0\n");
  EXPECT_EQ(Trace("--signal 1.3 | wc -l"), "2\n");
  EXPECT_EQ(Trace("--signal 1.4 | wc -l"), "0\n");
  EXPECT_THAT(Trace("--entry 2"), Not(HasSubstr("slot 2")));
  EXPECT_THAT(Trace("--entry 2 --kind write --task 1"), HasSubstr("slot 4 cylinder: command = 49 (0x31)\n"));
  EXPECT_EQ(Trace("--task 2 | wc -l"), "0\n");
  EXPECT_THAT(Trace(""), Not(HasSubstr("to the console")));
  EXPECT_THAT(Trace("--kind console"), HasSubstr("plc1/RESET.PLC:1  71 bytes to the console\n"));
  EXPECT_EQ(Trace("--from 1s --to 2s --task 1 | wc -l"), "0\n");
  for (const char* wrong : {"--kind writ", "--task 9", "--signal none", "--entry 7", "--from soon"}) {
    shell.Run(std::string("velmo-rack trace --once --machine cell ") + wrong);
    EXPECT_EQ(shell.Status(), 2) << wrong;
  }
}

// A name stands for its signal wherever one is wanted, whatever characters it has.
TEST_F(RecordingsTest, NamesWithDotsBlanksAndBracketsAreNamesEverywhere) {
  shell.Run(
      "cat >> cell/rack.toml <<'END'\n[inputs]\n\"door 1.left\" = \"0.2\"\n\"nest[3]\" = \"0.3\"\n"
      "[outputs]\n\"lamp [red] 2.0\" = \"0.8\"\n[[counter]]\nname = \"parts [a] 1.0\"\n"
      "when_input = \"door 1.left\"\n[[rule]]\nname = \"a\"\nnever_together = [\"nest[3] on\", \"lamp [red] "
      "2.0 on\"]\n"
      "[explore]\ngoes_on = \"counter parts [a] 1.0\"\nEND\n"
      "mkdir cell/scenarios; cat > 'cell/scenarios/door 1.[left].toml' <<'END'\nlimit = \"5 s\"\n"
      "[[event]]\nname = \"open\"\nat = \"1 s\"\ninput = \"door 1.left on\"\n"
      "[[event]]\nname = \"hangs\"\nat = \"2 s\"\nfault = \"stuck nest[3] on\"\n"
      "[[event]]\nname = \"sticks\"\nat = \"3 s\"\nfault = \"stuck door 1.left off\"\n"
      "[[event]]\nname = \"free\"\nat = \"4 s\"\nclear = \"stuck door 1.left\"\n"
      "[[expect]]\nthat = \"lamp [red] 2.0 on\"\nafter = \"door 1.left on\"\nwithin = \"500 ms\"\n"
      "[[expect]]\nthat = \"counter parts [a] 1.0 1..9\"\nby = \"2 s\"\n"
      "[[expect]]\nthat = \"door 1.left off\"\nafter = \"sticks\"\nwithin = \"1 s\"\n"
      "[end]\nhold = [\"door 1.left on\", \"nest[3] on\"]\nEND\n"
      "cp cell/scenarios/door* cell/scenarios/other.toml");
  Program("LD: 0, 2, 1\\nOUT: 0, 8, 1\\nEXIT\\n");
  const std::string tap = shell.Run("velmo-rack test --vcd --filter '1.[left]' cell");
  EXPECT_EQ(shell.Status(), 0) << tap;
  EXPECT_THAT(tap, HasSubstr("1..6\n"));
  EXPECT_THAT(tap, HasSubstr("ok 1 - door 1.[left]: lamp [red] 2.0 on within 500 ms after door 1.left on\n"));
  shell.Run("cp \"$(find . -name '*.vcd')\" run.vcd; cp \"$(find . -name '*.gtkw')\" run.gtkw");
  for (const char* wire :
       {"in2_door_1_left", "in3_nest_3_", "out8_lamp__red__2_0", "parts__a__1_0", "in3_nest_3__by_hand"}) {
    EXPECT_EQ(shell.Run(std::string("grep -c ' ") + wire + "\\( .*\\)\\? $end' run.vcd"), "1\n") << wire;
  }
  EXPECT_EQ(shell.Run("grep -c '^machine\\.slot0_cpu\\.out8_lamp__red__2_0$' run.gtkw"), "1\n")
      << shell.Run("cat run.gtkw");
  Run();
  EXPECT_THAT(shell.Run("velmo-rack show --machine cell 'nest[3]' 'door 1.left'"),
              testing::AllOf(HasSubstr("nest[3] (0.3) is off"), HasSubstr("door 1.left (0.2) is off")));
  for (const char* name : {"door 1.left", "lamp [red] 2.0", "nest[3]"}) {
    Trace(std::string("--signal '") + name + "'");
    EXPECT_EQ(shell.Status(), 0) << name;
  }
}

// A program without a pause fills the journal several times in a second of the machine.
TEST_F(RecordingsTest, TimeStandsForAReaderThatIsBehindAndGoesOnWithoutOneThatIsGone) {
  Program("G_ST: 0\n#LE: 1\nOUT: 0, 0, 1\nOUT: 0, 0, 0\nGO: 1\n");
  const std::string start =
      "rm -rf cell/.velmo-rack; velmo-rack run --no-check --time virtual --stopped --for 400ms cell > "
      "console.txt & "
      "run=$!\n"
      "until velmo-rack show --machine cell 2>&1 | grep -q '^time stands'; do sleep 0.02; ! gone $run || "
      "exit 1; "
      "done; mkfifo pipe\n"
      "velmo-rack trace --csv --from-start --machine cell > pipe 2> told.txt & trace=$!\n"
      "exec 3< pipe; velmo-rack go --machine cell\n"
      "until velmo-rack show --machine cell | grep -q '^time stands: waits for trace (process [0-9]*)'; do "
      "sleep 0.02; ! gone $run || exit 1; done\n";
  EXPECT_EQ(shell.Run(start + "cat <&3 > trace.csv; wait $run; wait $trace; grep -o complete told.txt"),
            "complete\n");
  EXPECT_EQ(shell.Run("[ $(wc -l < trace.csv) -gt 300000 ]"), "");
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(shell.Run("rm pipe\n" + start + "kill -9 $trace; wait $run; echo $?"),
              testing::EndsWith("0\n"));
}

TEST(ShowTest, ShowsTheBytesOfAProgramLineInsteadOfSendingThemToTheTerminal) {
  Shell shell;
  shell.Run(
      "velmo-rack new machine && printf 'DLY: 500000 ; \\033[2J\\377 gr\\303\\274n\\n' > "
      "machine/plc1/RESET.PLC");
  shell.Run("velmo-rack run --time virtual --for 1s machine");
  EXPECT_THAT(shell.Run("velmo-rack show --machine machine"),
              testing::HasSubstr("plc1/RESET.PLC:1  DLY: 500000 ; \\x1b[2J\\xff gr\xC3\xBCn\n"));
}

TEST_F(RecordingsTest, LineNumbersAreRightBehindAZeroByteAndInManyFiles) {
  Program("OUT: 0, 0, 1;\\000 a\\nOUT: 0, 1, 1\\n\\000\\nOUT: 0, 2, 1\\nEXIT\\n");
  Run();
  EXPECT_EQ(Trace("--kind line --csv | cut -d, -f 5 | tr '\\n' ' '"), "line 1 2 3 4 5 ");
  EXPECT_EQ(Trace("--kind output --csv | cut -d, -f 5 | tr '\\n' ' '"), "line 1 2 4 ");
  shell.Run(
      "for i in $(seq 300); do printf 'OUT: 0, 3, 1\\nEND\\n' > cell/plc1/B$i.PLC; echo \"FL: B$i.PLC\"; "
      "done > cell/plc1/RESET.PLC; echo EXIT >> cell/plc1/RESET.PLC");
  shell.Run("velmo-rack run --no-check --time virtual --for 400s cell > console.txt");
  EXPECT_EQ(Trace("--kind line | grep -c 'plc1/B255.PLC:1  line read'"), "1\n");
  EXPECT_THAT(Trace("--kind line"), HasSubstr("(beyond 256 program files):1  line read\n"));
  EXPECT_THAT(Trace("--kind line"), HasSubstr("plc1/RESET.PLC:301  line read\n"));
}

}  // namespace
