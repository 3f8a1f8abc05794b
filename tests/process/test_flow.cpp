// Program lines through the whole controller: what each command logs and which line comes next.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "machine.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Block {
  const char* name;
  const char* text;
};

enum class Ends { Yes, No };

struct FlowCase {
  const char* name;
  std::string program;
  std::vector<Block> blocks;
  std::string log;  // whole when the task comes to rest, else its beginning
  Ends rest = Ends::Yes;
};

// The CPU card is entry 0, a stepper card entry 1; all inputs are off. Eight cases run at once, one per task.
void RunCases(const std::vector<FlowCase>& cases) {
  ASSERT_LE(cases.size(), 8U);
  TestMachine machine("[slots]\n4 = \"stepper\"\n");
  for (size_t i = 0; i < cases.size(); ++i) {
    const std::string directory = "plc" + std::to_string(i + 1) + "/";
    machine.Write(directory + "RESET.PLC", cases[i].program);
    for (const Block& block : cases[i].blocks) machine.Write(directory + block.name, block.text);
  }
  machine.Start({"--tasks", std::to_string(cases.size())});
  for (size_t i = 0; i < cases.size(); ++i) {
    const int task = static_cast<int>(i) + 1;
    machine.Await([&] { return machine.Log(task).size() >= cases[i].log.size(); });
  }
  machine.AwaitPolls();  // what a case logs beyond its expectation shows
  for (size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].name);
    const std::string log = machine.Log(static_cast<int>(i) + 1);
    EXPECT_EQ(cases[i].rest == Ends::Yes ? log : log.substr(0, cases[i].log.size()), cases[i].log);
  }
  EXPECT_EQ(machine.Errors(), "");
}

const std::string kExit = Line("EXIT", 0, -1, "");

TEST(Flow, EndExitAndBlocks) {
  RunCases({
      {"END of the main program begins again",
       "OUT: 0, 1, 1 ; on\nEND\n",
       {},
       Line("OUT", 0, 1, "1", "RESET.PLC", "on") + Line("END", 0, -1, "") + "SYN_END:0 \n" +
           Line("OUT", 0, 1, "1", "RESET.PLC", "on") + Line("END", 0, -1, ""),
       Ends::No},
      {"EXIT ends the program",
       "DLY: 7\nexit ; done\nOUT: 0, 2, 1\n",
       {},
       Line("DLY", 7, -1, "7") + Line("EXIT", 7, -1, "", "RESET.PLC", "done")},
      {"END of a block goes on behind its call",
       "FL: 7SUB.PLC\nOUT: 0, 2, 1\nEXIT\n",
       {{"7SUB.PLC", "OUT: 0, 1, 1\nEND\n"}},
       Line("FL", 7, -1, "7SUB.PLC") + Line("OUT", 0, 1, "1", "7SUB.PLC") +
           Line("END", 0, -1, "", "7SUB.PLC") + "SYN_END:1 \n" + Line("OUT", 0, 2, "1") + kExit},
      {"a block that cannot be opened is passed over",
       "FL: NONE.PLC\nEXIT\n",
       {},
       Line("FL", 0, -1, "NONE.PLC") + kExit},
      {"a call in a block replaces it",
       "FL: A.PLC\nOUT: 0, 3, 1\nEXIT\n",
       {{"A.PLC", "OUT: 0, 1, 1\nFL: B.PLC\nOUT: 0, 9, 1\nEND\n"}, {"B.PLC", "OUT: 0, 2, 1\nEND\n"}},
       Line("FL", 0, -1, "A.PLC") + Line("OUT", 0, 1, "1", "A.PLC") + Line("FL", 0, -1, "B.PLC", "A.PLC") +
           Line("OUT", 0, 2, "1", "B.PLC") + Line("END", 0, -1, "", "B.PLC") + "SYN_END:1 \n" +
           Line("OUT", 0, 3, "1") + kExit},
      {"a lost block in a block leaves nothing to read",
       "FL: A.PLC\nOUT: 0, 3, 1\nEXIT\n",
       {{"A.PLC", "FL: NONE.PLC\nOUT: 0, 9, 1\nEND\n"}},
       Line("FL", 0, -1, "A.PLC") + Line("FL", 0, -1, "NONE.PLC", "A.PLC")},
      {"EXIT in a block lets the block go on",
       "FL: A.PLC\nOUT: 0, 3, 1\n",
       {{"A.PLC", "EXIT\nOUT: 0, 1, 1\nEND\n"}},
       Line("FL", 0, -1, "A.PLC") + Line("EXIT", 0, -1, "", "A.PLC") + Line("OUT", 0, 1, "1", "A.PLC") +
           Line("END", 0, -1, "", "A.PLC") + "SYN_END:1 \n"},
      {"a directory is no block", "FL: .\nEXIT\n", {}, Line("FL", 0, -1, ".") + kExit},
  });
}

TEST(Flow, LabelsRepeatsAndEndsOfFiles) {
  RunCases({
      {"GO goes on behind the first label of its number",
       "GO: 3\nOUT: 0, 1, 1\n#le: 3 ; loop\nOUT: 0, 2, 1\nEXIT\n#LE: 3\nOUT: 0, 4, 1\n",
       {},
       Line("GO", 3, -1, "") + Line("OUT", 0, 2, "1") + kExit},
      {"GO searches from the top",
       "#LE: 1\nIF: 0, 0, 0&NUL&NUL\nDLY: 1\nGO: 1\n",
       {},
       Line("#LE", 1, -1, "") + Line("IF", 0, 0, "0&NUL&NUL") + "SYN_IF: SlotIdx:0 ChIdx:0 0&NUL&NUL\n" +
           Line("DLY", 1, -1, "1") + Line("GO", 1, -1, "") + Line("IF", 0, 0, "0&NUL&NUL"),
       Ends::No},
      {"GO without a label is repeated",
       "GO: 5\n#LE: 3\nEXIT\n",
       {},
       Line("GO", 5, -1, "") + Again("GO", 5, -1, "") + Again("GO", 5, -1, ""),
       Ends::No},
      {"GO stays in its block",
       "FL: A.PLC\n#LE: 2\nOUT: 0, 9, 1\nEXIT\n",
       {{"A.PLC", "GO: 2\nOUT: 0, 8, 1\n#LE: 2\nOUT: 0, 1, 1\nEXIT\n"}},
       Line("FL", 0, -1, "A.PLC") + Line("GO", 2, -1, "", "A.PLC") + Line("OUT", 0, 1, "1", "A.PLC") +
           Line("EXIT", 0, -1, "", "A.PLC") + Again("EXIT", 0, -1, "", "A.PLC"),
       Ends::No},
      {"equal lines are marked, comment included and letter case not",
       "OUT: 0,1,1 ; x\nout: 0,1,1 ; X\nOUT: 0,1,1\nEXIT\n",
       {},
       Line("OUT", 0, 1, "1", "RESET.PLC", "x") + Again("OUT", 0, 1, "1", "RESET.PLC", "X") +
           Line("OUT", 0, 1, "1") + kExit},
      {"the last line is repeated at the end of the file",
       "OUT: 0, 1, 1\n#LE: 4",
       {},
       Line("OUT", 0, 1, "1") + Line("#LE", 4, -1, "") + Again("#LE", 4, -1, "") + Again("#LE", 4, -1, ""),
       Ends::No},
      {"END without a line end",
       "LED: 0, 0, 1\nEND",
       {},
       Line("LED", 0, 0, "1") + Line("END", 0, -1, "") + "SYN_END:0 \n" + Line("LED", 0, 0, "1"),
       Ends::No},
      {"G_ST takes zero and refuses less",
       "G_ST: 0\nG_ST: -1\nDLY: -5\nEXIT\n",
       {},
       Line("G_ST", 0, -1, "0") + "SYN_G_ST: G_Delay:0ms 0\n" + Line("G_ST", -1, -1, "-1") +
           "SYN_G_ST: G_Delay:-1ms -1\n" + Line("DLY", -5, -1, "-5") + Line("EXIT", -5, -1, "")},
  });
}

TEST(Flow, Conditions) {
  const std::vector<Block> blocks = {{"A.PLC", "OUT: 0, 1, 1\nEXIT\nEND\n"},
                                     {"B.PLC", "OUT: 0, 2, 1\nEXIT\nEND\n"}};
  const auto called = [](const std::string& name, const std::string& channel) {
    return Line("OUT", 0, std::stoi(channel), "1", name) + Line("EXIT", 0, -1, "", name) +
           Line("END", 0, -1, "", name) + "SYN_END:1 \n";
  };
  RunCases({
      {"first block if the level is there", "IF: 0, 3, 0&A.PLC&B.PLC\n", blocks,
       Line("IF", 0, 3, "0&A.PLC&B.PLC") + "SYN_IF: SlotIdx:0 ChIdx:3 0&A.PLC&B.PLC\n" +
           called("A.PLC", "1")},
      {"second block otherwise", "IF: 0, 3, 1&A.PLC&B.PLC\n", blocks,
       Line("IF", 0, 3, "1&A.PLC&B.PLC") + "SYN_IF: SlotIdx:0 ChIdx:3 1&A.PLC&B.PLC\n" +
           called("B.PLC", "2")},
      {"no block, no field, no channel, no entry",
       "IF: 0, 3, 0&nul&B.PLC\nIF: 0, 3, 0&A.PLC\nIF: 0, 16, 0&A.PLC&B.PLC\nIF: 0, -1, 0&A.PLC&B.PLC\n"
       "IF: 2, 3, 0&A.PLC&B.PLC\nEXIT\n",
       blocks,
       Line("IF", 0, 3, "0&nul&B.PLC") + "SYN_IF: SlotIdx:0 ChIdx:3 0&nul&B.PLC\n" +
           Line("IF", 0, 3, "0&A.PLC") + "SYN_IF: SlotIdx:0 ChIdx:3 0&A.PLC\n" +
           Line("IF", 0, 16, "0&A.PLC&B.PLC") + "SYN_IF: SlotIdx:0 ChIdx:16 0&A.PLC&B.PLC\n" +
           Line("IF", 0, -1, "0&A.PLC&B.PLC") + "SYN_IF: SlotIdx:0 ChIdx:-1 0&A.PLC&B.PLC\n" +
           Line("IF", 2, 3, "0&A.PLC&B.PLC") + "SYN_IF: SlotIdx:2 ChIdx:3 0&A.PLC&B.PLC\n" +
           Line("EXIT", 2, -1, "")},
      {"a card without IF names a block like the condition", "IF: 1, 3, 0&A.PLC&B.PLC\nEXIT\n", blocks,
       Line("IF", 1, 3, "0&A.PLC&B.PLC") + "SYN_IF: SlotIdx:1 ChIdx:3 0&A.PLC&B.PLC\n" +
           Line("EXIT", 1, -1, "")},
      {"in a block the condition takes the place of its name",
       "FL: C.PLC\nEXIT\n",
       {{"C.PLC", "IF: 0, 3, 0&NUL&NUL\nOUT: 0, 7, 1\nEND\n"}},
       Line("FL", 0, -1, "C.PLC") + Line("IF", 0, 3, "0&NUL&NUL", "C.PLC") +
           "SYN_IF: SlotIdx:0 ChIdx:3 0&NUL&NUL\n" + Line("OUT", 0, 7, "1", "0&NUL&NUL") +
           Line("END", 0, -1, "", "0&NUL&NUL") + "SYN_END:1 \n" + kExit},
      {"a condition of over 199 characters is whole", "IF: 0, 3, 1&" + std::string(195, 'A') + "&B.PLC\n",
       blocks,
       Line("IF", 0, 3, "1&" + std::string(195, 'A') + "&B.PLC") + "SYN_IF: SlotIdx:0 ChIdx:3 1&" +
           std::string(195, 'A') + "&B.PLC\n" + called("B.PLC", "2")},
      {"a true condition with a lost block goes on",
       "IF: 0, 3, 0&NONE.PLC&NUL\nEXIT\n",
       {},
       Line("IF", 0, 3, "0&NONE.PLC&NUL") + "SYN_IF: SlotIdx:0 ChIdx:3 0&NONE.PLC&NUL\n" + kExit},
  });
}

// With "plcN/" in front.
TEST(Flow, PathsUpTo199Characters) {
  const std::string longest = std::string(190, 'L') + ".PLC";
  const std::vector<Block> blocks = {{longest.c_str(), "OUT: 0, 1, 1\nEND\n"}};
  RunCases({FlowCase{"it fits", "FL: " + longest + "\nEXIT\n", blocks,
                     Line("FL", 0, -1, longest) + Line("OUT", 0, 1, "1", longest) +
                         Line("END", 0, -1, "", longest) + "SYN_END:1 \n" + kExit},
            FlowCase{"it is not cut", "FL: " + longest + "X\nEXIT\n", blocks,
                     Line("FL", 0, -1, longest + "X") + kExit}});
}

TEST(Flow, CommandsOnCardsThatDoNotKnowThem) {
  const auto waits = [](const std::string& keyword, int slot, int channel, const std::string& parameter,
                        const std::string& own) {
    return Line(keyword, slot, channel, parameter) + own + Again(keyword, slot, channel, parameter) + own +
           Again(keyword, slot, channel, parameter);
  };
  RunCases({
      {"done at once on the CPU card",
       "LD: 0, 15, 0\nDG: 0, 1, 5\nLDG: 0, 1,\nLDG: 1, \nMOT: 0, 0, 1&2&3\nLMOT: 0, 1, x\nLMOT: 3,\nROCLR: "
       "0, 2,\nEXIT\n",
       {},
       Line("LD", 0, 15, "0") + "SYN_LD: SlotIdx:0  ChIdx:15 0\n" + Line("DG", 0, 1, "5") +
           "SYN_DG: SlotIdx:0 ChIdx:1 5\n" + Line("LDG", 0, 1, "") + Line("LDG", 0, 1, "") +
           Line("MOT", 0, 0, "1&2&3") + "SYN_MOT: SlotIdx:0  ChIdx:0 1&2&3\n" +
           "Task_MOT OK[1]:SlotIDx:0, ChIdx:0 1&2&3\n" + Line("LMOT", 0, 1, "x") + Line("LMOT", 0, 3, "") +
           Line("ROCLR", 0, 2, "") + "SYN_ROCLR: SlotIdx:0 ChIdx:2 \n" + kExit},
      {"OUT and MOT tell of an entry that is not there",
       "OUT: 2, 1, 1\nOUT: -1, 1, 1\nMOT: 9, 0, 1&2&3\nDG: 2, 0, 1\nROCLR: 2, 0,\nEXIT\n",
       {},
       Line("OUT", 2, 1, "1") + "Task_OUT Fail[-1]:SlotIDx:2, ChIdx:1 1\n" + Line("OUT", -1, 1, "1") +
           "Task_OUT Fail[-1]:SlotIDx:-1, ChIdx:1 1\n" + Line("MOT", 9, 0, "1&2&3") +
           "SYN_MOT: SlotIdx:9  ChIdx:0 1&2&3\nTask_MOT Fail[-1]:SlotIDx:9, ChIdx:0 1&2&3\n" +
           Line("DG", 2, 0, "1") + "SYN_DG: SlotIdx:2 ChIdx:0 1\n" + Line("ROCLR", 2, 0, "") +
           "SYN_ROCLR: SlotIdx:2 ChIdx:0 \n" + Line("EXIT", 2, -1, "")},
      {"ROW on the CPU card waits",
       "ROW: 0, 0, 0\nEXIT\n",
       {},
       waits("ROW", 0, 0, "0", "SYN_ROW: SlotIdx:0 ChIdx:0 0\n"),
       Ends::No},
      {"LD waits for the level",
       "LD: 0, 3, 1\nEXIT\n",
       {},
       waits("LD", 0, 3, "1", "SYN_LD: SlotIdx:0  ChIdx:3 1\n"),
       Ends::No},
      {"LD is never met with another number",
       "LD: 0, 3, 2\nEXIT\n",
       {},
       waits("LD", 0, 3, "2", "SYN_LD: SlotIdx:0  ChIdx:3 2\n"),
       Ends::No},
      {"LD of an entry that is not there",
       "LD: 2, 3, 0\nEXIT\n",
       {},
       waits("LD", 2, 3, "0", "SYN_LD: SlotIdx:2  ChIdx:3 0\n"),
       Ends::No},
      {"LDG of an entry that is not there", "LDG: 2, 3,\nEXIT\n", {}, waits("LDG", 2, 3, "", ""), Ends::No},
      {"LMOT of an entry that is not there",
       "LMOT: -1, 3,\nEXIT\n",
       {},
       waits("LMOT", -1, 3, "", ""),
       Ends::No},
  });
}

TEST(Flow, KeywordsWithoutActionAndWrongLines) {
  const char* keywords[] = {"PARAM", "RLY", "MFL0",   "MFL1", "MFL2", "MFL0END", "MFL1END", "MFL2END",
                            "SMOT",  "MOZ", "RSTMOZ", "LMOZ", "LED",  "DGO",     "LDGI",    "OUTE"};
  std::string program;
  std::string log;
  for (const char* keyword : keywords) {
    program += std::string(keyword) + ": 1, 2, on&3 ; " + keyword + "\n";
    log += Line(keyword, 1, 2, "on&3", "RESET.PLC", keyword);
  }
  const std::string longest = "OUT: 0, 3, 1;" + std::string(986, 'c');
  RunCases({
      {"keywords without action",
       program + "RSTMOT: 1, 2, x\nEXIT\n",
       {},
       log + Line("RSTMOT", 1, 2, "x") + Line("EXIT", 1, -1, "")},
      {"wrong lines are passed over",
       "\n; comment\n \t\nLDX: 1,2,3\nOUT 0,1,1\nOUT: 0, 1\nLDG: 1\nEND OF\nGO\nDLY\nNUL: 1,2,3\n"
       "  out :0,2,1,9:8 ; a ; b\r\nEXIT\n",
       {},
       Line("OUT", 0, 2, "1", "RESET.PLC", "a") + kExit},
      {"999 characters are a line, 1000 are none",
       longest + "\n" + longest + "c\nEXIT\n",
       {},
       Line("OUT", 0, 3, "1", "RESET.PLC", std::string(986, 'c')) + kExit},
      {"a line of more than 1023 bytes is read in pieces",
       std::string(1023, ' ') + "OUT: 0, 4, 1\n" + longest + std::string(24, 'd') + "OUT: 0, 5, 1\nEXIT\n",
       {},
       Line("OUT", 0, 4, "1") + Line("OUT", 0, 5, "1") + kExit},
      {"a missing parameter is one with nothing in it",
       "OUT: 0, 1,\nEXIT\n",
       {},
       Line("OUT", 0, 1, "") + kExit},
  });
}

// Pauses of a program, from the times at which its lines were read.
TEST(Flow, Pauses) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", "LED: 0,0,1\nDLY: 100\nG_ST: 300\nFL: A.PLC\nFL: NONE.PLC\nEXIT\n");
  machine.Write("plc1/A.PLC", "END\n");
  machine.StartUntil("EXIT");
  std::vector<rack::Nanos> times;
  for (const rack::JournalRecord& record : machine.Journal()) {
    if (record.kind == rack::JournalKind::ProgramLine) times.push_back(record.time);
  }
  ASSERT_EQ(times.size(), 7U);
  const int least[] = {10, 110, 300, 0, 1000, 300};
  for (size_t i = 0; i + 1 < times.size(); ++i) {
    const double millis = static_cast<double>(times[i + 1] - times[i]) / 1e6;
    EXPECT_GE(millis, least[i]) << "after line " << i + 1;
  }
  EXPECT_LT(times[4] - times[3], 300 * rack::kMillisecond) << "a call makes no pause";
}

// No pause follows a call, so that an empty block is called again at full speed.
TEST(Flow, AnEmptyBlockRepeatsItsCall) {
  TestMachine machine("", rack::TimeMode::Real);
  machine.Write("plc1/RESET.PLC", "FL: E.PLC\nEXIT\n");
  machine.Write("plc1/E.PLC", "");
  const int console = machine.StartOnPipe();
  const std::string repeat = "PLC1: " + Again("FL", 0, -1, "E.PLC", "E.PLC");
  std::string text;
  char part[512];
  ssize_t count;
  while (CountOf(text, repeat) < 3 && (count = read(console, part, sizeof part)) > 0) {
    text.append(part, static_cast<size_t>(count));
  }
  EXPECT_THAT(text, HasSubstr("PLC1: " + Line("FL", 0, -1, "E.PLC")));
  EXPECT_GE(CountOf(text, repeat), 3);
  machine.Stop();
  close(console);
}

// Its opener would wait for the other end, and with it every task that opens a file.
TEST(Programs, APipeIsNoProgramFile) {
  TestMachine machine("[rack]\ntask_count = 2\n");
  machine.Write("plc2/RESET.PLC", "FL: PIPE.PLC\nOUT: 0, 1, 1\nEXIT\n");
  std::filesystem::create_directory(machine.Path("plc1"));
  ASSERT_EQ(mkfifo(machine.Path("plc1/RESET.PLC").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(machine.Path("plc2/PIPE.PLC").c_str(), 0600), 0);
  machine.Start();
  EXPECT_TRUE(machine.WaitForLog("EXIT", 2));
  EXPECT_EQ(machine.Log(2), Line("FL", 0, -1, "PIPE.PLC") + Line("OUT", 0, 1, "1") + Line("EXIT", 0, -1, ""));
  EXPECT_EQ(CountOf(machine.LinesWith("PLC1: "), "RESET.PLC lost Task quit!\nLeave TaskPLC1.\n"), 1);
}

}  // namespace
