#include "rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr int kIoSlot = 7;
constexpr int kStepperSlot = 8;
constexpr int kCylinderSlot = 9;
constexpr int kServoSlot = 10;
constexpr std::size_t kStepperEntry = 2;

const std::string kLongName = "A" + std::string(200, 'x');
const std::string kLongPath = "A" + std::string(194, 'x');

std::string Flow(const std::string& keyword, int slot, int channel, const std::string& parameter,
                 const std::string& comment = "") {
  return Line(keyword, slot, channel, parameter, "FLOW.PLC", comment);
}

std::string FlowAgain(const std::string& keyword, int slot, int channel, const std::string& parameter) {
  return Again(keyword, slot, channel, parameter, "FLOW.PLC");
}

// The line's number stays that of the line before, where END has none.
std::string End(int slot) {
  return Flow("END", slot, -1, "") + "SYN_END:0 \n";
}

// END behind the END of a block, an equal line.
std::string EndAgain(int slot) {
  return FlowAgain("END", slot, -1, "") + "SYN_END:0 \n";
}

// A wait that is not met: own is what the command logs itself.
std::string Waits(const std::string& keyword, int slot, int channel, const std::string& parameter,
                  const std::string& own) {
  const std::string again = FlowAgain(keyword, slot, channel, parameter) + own;
  return Flow(keyword, slot, channel, parameter) + own + again + again;
}

std::string Place(const char* channelWord, int slot, int channel, const std::string& parameter) {
  return std::to_string(slot) + channelWord + std::to_string(channel) + " " + parameter + "\n";
}

std::string MotResult(const char* result, int slot, int channel, const std::string& parameter) {
  return "SYN_MOT: SlotIdx:" + Place("  ChIdx:", slot, channel, parameter) + "Task_MOT " + result +
         ":SlotIDx:" + Place(", ChIdx:", slot, channel, parameter);
}

std::string Mot(int slot, int channel, const std::string& parameter, const char* result = "OK[1]") {
  return Flow("MOT", slot, channel, parameter) + MotResult(result, slot, channel, parameter);
}

// Levels that an output was given, in their order.
std::string LevelsOf(TestMachine& machine, int slot, int channel) {
  std::string levels;
  for (const rack::JournalRecord& record : machine.Journal()) {
    if (record.kind == rack::JournalKind::OutputChange && record.slot == slot && record.port == channel)
      levels += record.value == 0 ? "0" : "1";
  }
  return levels;
}

int MovesEnded(TestMachine& machine, int slot, int channel) {
  int count = 0;
  for (const rack::JournalRecord& record : machine.Journal()) {
    const bool isMotor = record.slot == slot && record.port == channel;
    if (record.kind == rack::JournalKind::MotorMove && isMotor && record.value == 0) ++count;
  }
  return count;
}

// When the task read this line of one of its programs for the first time.
rack::Nanos TimeOfLine(TestMachine& machine, int task, std::uint32_t line) {
  for (const rack::JournalRecord& record : machine.Journal()) {
    const bool isLine = record.kind == rack::JournalKind::ProgramLine;
    if (isLine && record.task == task && record.line == line) return record.time;
  }
  return 0;
}

Group SkippedLines() {
  const std::string out = Flow("OUT", 1, 3, "1");
  return {"SkippedLines",
          {
              {"unknown-keyword", nullptr, Then::Ends, End(0), ""},
              {"missing-colon", nullptr, Then::Ends, End(0), ""},
              {"too-few-fields", nullptr, Then::Ends, End(1), ""},
              {"line-too-long", nullptr, Then::Ends, End(0), ""},
              {"line-too-long", "OUT: 1, 3, 1(990 more characters)\nEND", Then::Ends, End(0), ""},
              {"line-split", nullptr, Then::Ends, out + End(1), "#7 5>00 #7 5<08 "},
              {"wrong-separator", nullptr, Then::Ends, End(0), ""},
              {"wrong-separator", "\xEF\xBB\xBFOUT: 1, 3, 1\nEND", Then::Ends, End(0), ""},
          }};
}

void KeepsItsPause(TestMachine& machine, int task) {
  EXPECT_GE(TimeOfLine(machine, task, 3) - TimeOfLine(machine, task, 2), 300 * rack::kMillisecond);
  EXPECT_GE(TimeOfLine(machine, task, 4) - TimeOfLine(machine, task, 3), 300 * rack::kMillisecond);
}

Group LooksOtherwise() {
  return {"LooksOtherwise",
          {
              {"line-too-long", "GO: 7\nOUT: 1, 3, 1\n#LE: 7 ;(999 more characters)\nEND", Then::Ends,
               Flow("GO", 7, -1, "") + End(7), ""},
              {"line-split", ";(1022 more characters)#LE: 7\nGO: 7", Then::Stays,
               Flow("#LE", 7, -1, "") + Flow("GO", 7, -1, "") + FlowAgain("GO", 7, -1, ""), ""},
              {"wrong-separator", "OUT: 1, \xEF\xBC\x93, 1\nOUT: 1, \xE2\x80\x8B\x33, 1\nEND", Then::Ends,
               Flow("OUT", 1, 0, "1") + Flow("OUT", 1, 0, "1") + End(1), nullptr},
              {"wrong-separator", "\xD0\x9E\x55T: 1, 3, 1\nEND", Then::Ends, End(0), ""},
          }};
}

Group NumbersAndTexts() {
  return {"NumbersAndTexts",
          {
              {"odd-number", nullptr, Then::Ends, Flow("DLY", 5, -1, "5OO") + End(5), ""},
              {"odd-number", "DLY: OO\nEND", Then::Ends, Flow("DLY", 0, -1, "OO") + End(0), ""},
              {"pause-range", nullptr, Then::Ends, Flow("DLY", -500, -1, "-500") + End(-500), ""},
              {"pause-range", "DLY: -2000000000\nEND", Then::Ends,
               Flow("DLY", -2000000000, -1, "-2000000000") + End(-2000000000), ""},
              {"pause-range", "DLY: 4294967297\nG_ST: 4294967298\nEND", Then::Ends,
               Flow("DLY", 1, -1, "4294967297") + Flow("G_ST", 2, -1, "4294967298") +
                   "SYN_G_ST: G_Delay:2ms 4294967298\n" + End(2),
               ""},
              {"pause-range", "G_ST: 300\nG_ST: -1\n#LE: 1\nEND", Then::Ends,
               Flow("G_ST", 300, -1, "300") + "SYN_G_ST: G_Delay:300ms 300\n" + Flow("G_ST", -1, -1, "-1") +
                   "SYN_G_ST: G_Delay:-1ms -1\n" + Flow("#LE", 1, -1, "") + End(1),
               "", KeepsItsPause},
              {"lost-text", nullptr, Then::Ends, Flow("OUT", 1, 3, "1") + End(1), nullptr},
              {"lost-text", "OUT: 1, 3, 1:0 ; on ; off\nEND", Then::Ends,
               Flow("OUT", 1, 3, "1", "on") + End(1), nullptr},
          }};
}

void WasRepeatedAtTheEndOfTheFile(TestMachine& machine, int task) {
  EXPECT_TRUE(machine.Await([&] { return machine.Live().tasks[task].endReads >= 2; }));
}

Group LabelsAndBlocks() {
  const std::string lost = FlowAgain("GO", 2, -1, "");
  const std::string lostInBlock = Again("GO", 2, -1, "", "A.PLC");
  const std::string round = Flow("DLY", 100, -1, "100") + Flow("GO", 1, -1, "");
  const std::string label = Flow("#LE", 1, -1, "");
  const std::string twice = label + Flow("DLY", 100, -1, "100") + label + Flow("GO", 1, -1, "");
  return {"LabelsAndBlocks",
          {
              {"missing-label", nullptr, Then::Stays,
               label + Flow("DLY", 500, -1, "500") + Flow("GO", 2, -1, "") + lost + lost, ""},
              {"missing-label",
               "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\n#LE: 2\nFL: A.PLC\nEND\n"
               "== plc1/A.PLC\nGO: 2\nEND",
               Then::Stays,
               Flow("#LE", 2, -1, "") + Flow("FL", 0, -1, "A.PLC") + Line("GO", 2, -1, "", "A.PLC") +
                   lostInBlock + lostInBlock,
               ""},
              {"missing-block", nullptr, Then::Ends, Flow("FL", 0, -1, "drill.plc") + End(0), ""},
              {"missing-block",
               "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nOUT: 1, 3, 1\nEND\n"
               "== plc1/A.PLC\nFL: NONE.PLC\nEND",
               Then::Rests, Flow("FL", 0, -1, "A.PLC") + Line("FL", 0, -1, "NONE.PLC", "A.PLC"), ""},
              {"duplicate-label", nullptr, Then::Stays, twice + Flow("DLY", 100, -1, "100") + label, ""},
              {"open-end", nullptr, Then::Stays,
               Flow("OUT", 1, 3, "0") + Waits("LD", 1, 0, "1", "SYN_LD: SlotIdx:1  ChIdx:0 1\n"), nullptr,
               WasRepeatedAtTheEndOfTheFile},
              {"unreachable", nullptr, Then::Stays, label + round + round + round, ""},
              {"block-in-block", nullptr, Then::Ends,
               Flow("FL", 0, -1, "A.PLC") + Line("FL", 0, -1, "B.PLC", "A.PLC") +
                   Line("OUT", 1, 0, "1", "B.PLC") + Line("END", 1, -1, "", "B.PLC") + "SYN_END:1 \n" +
                   EndAgain(1),
               nullptr},
          }};
}

void QuitForGood(TestMachine& machine, int task) {
  machine.Press(kDec);
  const std::string number = std::to_string(task);
  EXPECT_EQ(machine.LinesWith("PLC" + number + ": "),
            "Load TaskPLC" + number +
                ".\nID:PROCESS, TID is THREAD, g_Flag: FLAG.\nRESET.PLC lost Task quit!\nLeave TaskPLC" +
                number + ".\n");
}

void StartsItsMoveAnew(TestMachine& machine, int task) {
  EXPECT_GE(CountOf(machine.Bus(task), "#8 24<01 "), 2);
  EXPECT_EQ(MovesEnded(machine, kStepperSlot, 0), 0);
}

Group FilesAndEnds() {
  const std::string condition = "1&" + kLongName + "&NUL";
  const std::string move = "4000&20&1";
  const std::string moveAgain = FlowAgain("MOT", 2, 0, move) + MotResult("OK[1]", 2, 0, move);
  const std::string outAgain = FlowAgain("OUT", 1, 17, "1");
  return {"FilesAndEnds",
          {
              {"empty-block",
               "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nEND\n== plc1/A.PLC\n; nothing",
               Then::Rests, Flow("FL", 0, -1, "A.PLC"), "", WasRepeatedAtTheEndOfTheFile},
              {"endless-action", nullptr, Then::Stays,
               Flow("OUT", 1, 3, "0") + Mot(2, 0, move) + moveAgain + moveAgain, nullptr, StartsItsMoveAnew},
              {"endless-action", "OUT: 1, 17, 1", Then::Stays, Flow("OUT", 1, 17, "1") + outAgain + outAgain,
               "#7 7>00 #7 7<02 #7 7>02 #7 7<02 #7 7>02 #7 7<02 "},
              {"no-reset", nullptr, Then::Own, "", "", QuitForGood},
              {"no-flow", nullptr, Then::Rests, " Failed!\n", ""},
              {"no-flow", "== plc1/RESET.PLC\n#LE: 1\nDLY: 10\nGO: 1", Then::Rests, " Failed!\n", ""},
              {"block-name", nullptr, Then::Ends, Flow("FL", 0, -1, kLongName) + End(0), ""},
              {"block-name",
               "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A(194 more characters)\nFL: B.PLC\nEND\n"
               "== plc1/A(194 more characters)\nEND\n"
               "== plc1/B.PLC\nIF: 1, 0, 1&A(200 more characters)&NUL\nEND",
               Then::Ends,
               Flow("FL", 0, -1, kLongPath) + Flow("FL", 0, -1, "B.PLC") +
                   Line("IF", 1, 0, condition, "B.PLC") + "SYN_IF: SlotIdx:1 ChIdx:0 " + condition + "\n" +
                   Line("END", 1, -1, "", condition.substr(0, 199)) + "SYN_END:1 \n" + EndAgain(1),
               ""},
          }};
}

Group SlotsAndChannels() {
  return {"SlotsAndChannels",
          {
              // Slot 7 has the I/O card of entry 1.
              {"no-such-slot", nullptr, Then::Stays, Waits("LD", 7, 0, "1", "SYN_LD: SlotIdx:7  ChIdx:0 1\n"),
               ""},
              {"no-such-slot", "LDG: 7, 0,\nEND", Then::Stays, Waits("LDG", 7, 0, "", ""), ""},
              {"no-such-slot", "LMOT: 7, 0,\nEND", Then::Stays, Waits("LMOT", 7, 0, "", ""), ""},
              {"no-such-slot", "ROW: 7, 0, 0\nEND", Then::Stays,
               Waits("ROW", 7, 0, "0", "SYN_ROW: SlotIdx:7 ChIdx:0 0\n"), ""},
              {"no-such-slot",
               "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nOUT: 7, 1, 1\nMOT: 7, 0, 1&2&3\nDG: 7, 0, 1\n"
               "IF: 7, 0, 1&A.PLC&A.PLC\nEND\n== plc1/A.PLC\nEND",
               Then::Ends,
               Flow("OUT", 7, 1, "1") + "Task_OUT Fail[-1]:SlotIDx:7, ChIdx:1 1\n" +
                   Mot(7, 0, "1&2&3", "Fail[-1]") + Flow("DG", 7, 0, "1") + "SYN_DG: SlotIdx:7 ChIdx:0 1\n" +
                   Flow("IF", 7, 0, "1&A.PLC&A.PLC") + "SYN_IF: SlotIdx:7 ChIdx:0 1&A.PLC&A.PLC\n" + End(7),
               ""},
              {"bad-channel", nullptr, Then::Ends, Flow("OUT", 1, 25, "1") + End(1), "#7 7>00 #7 7<02 "},
              {"bad-channel",
               "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nOUT: 0, -1, 1\nLD: 1, -1, 0\nDG: 3, 3, 5\n"
               "LDG: 3, 3,\nMOT: 2, 8, 1&2&0\nIF: 1, 16, 1&A.PLC&A.PLC\nEND\n== plc1/A.PLC\nEND",
               Then::Ends,
               Flow("OUT", 0, -1, "1") + Flow("LD", 1, -1, "0") + "SYN_LD: SlotIdx:1  ChIdx:-1 0\n" +
                   Flow("DG", 3, 3, "5") + "SYN_DG: SlotIdx:3 ChIdx:3 5\n" + Flow("LDG", 3, 3, "") +
                   Mot(2, 8, "1&2&0") + Flow("IF", 1, 16, "1&A.PLC&A.PLC") +
                   "SYN_IF: SlotIdx:1 ChIdx:16 1&A.PLC&A.PLC\n" + End(1),
               "#0 5>00 #0 5<00 #7 8>01 "},
              {"bad-channel", "ROW: 2, 8, 0\nEND", Then::Stays,
               Waits("ROW", 2, 8, "0", "SYN_ROW: SlotIdx:2 ChIdx:8 0\n"), ""},
          }};
}

void EndedWhileTheAxisMoves(TestMachine& machine, int) {
  EXPECT_EQ(MovesEnded(machine, kStepperSlot, 1), 0);
}

Group CardsAndParameters() {
  const std::string digits(200, '0');
  const std::string longField = "1&" + digits + "&1";
  const std::string ifLog = Flow("IF", 1, 0, "1&A.PLC") + "SYN_IF: SlotIdx:1 ChIdx:0 1&A.PLC\n" +
                            Flow("IF", 1, 0, "0&A.PLC") + "SYN_IF: SlotIdx:1 ChIdx:0 0&A.PLC\n";
  return {
      "CardsAndParameters",
      {
          {"wrong-card", nullptr, Then::Ends, Mot(1, 0, "4000&20&1") + Flow("LMOT", 1, 0, "") + End(1), ""},
          {"wrong-card", "ROW: 1, 0, 0\nEND", Then::Stays,
           Waits("ROW", 1, 0, "0", "SYN_ROW: SlotIdx:1 ChIdx:0 0\n"), ""},
          {"wrong-card",
           "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nIF: 2, 0, 1&A.PLC&NUL\nEND\n"
           "== plc1/1&A.PLC&NUL\n#LE: 5\nEND",
           Then::Ends,
           Flow("IF", 2, 0, "1&A.PLC&NUL") + "SYN_IF: SlotIdx:2 ChIdx:0 1&A.PLC&NUL\n" +
               Line("#LE", 5, -1, "", "1&A.PLC&NUL") + Line("END", 5, -1, "", "1&A.PLC&NUL") +
               "SYN_END:1 \n" + EndAgain(5),
           ""},
          {"two-field-wait", nullptr, Then::Ends, Mot(2, 1, "4000&20&1") + Flow("LMOT", 0, 1, "") + End(0),
           "#8 7<01 #8 8<80 #8 7<01 #8 9<14 #8 11<00 #8 10<14 #8 15<00 #8 14<00 #8 13<1F #8 12<40 "
           "#8 17<00 #8 16<14 #8 29<00 #8 28<00 #8 27<00 #8 26<00 #8 24<01 #8 24>01 ",
           EndedWhileTheAxisMoves},
          {"mot-fields", nullptr, Then::Ends, Mot(2, 0, "4000&20", "Fail[0]") + End(2), ""},
          {"mot-fields", "MOT: 4, 0, 1&(200 more characters)&1\nEND", Then::Ends,
           Mot(4, 0, "1&" + std::string(200, 'x') + "&1", "Fail[0]") + End(4), ""},
          {"if-fields",
           "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nIF: 1, 0, 1&A.PLC\nIF: 1, 0, 0&A.PLC\nEND\n"
           "== plc1/A.PLC\nEND",
           Then::Ends, ifLog + End(1), ""},
          {"dg-position", "DG: 3, 0, 16\nDG: 3, 0, 300\nLDG: 3, 0,\nEND", Then::Ends,
           Flow("DG", 3, 0, "16") + "SYN_DG: SlotIdx:3 ChIdx:0 16\n" + Flow("DG", 3, 0, "300") +
               "SYN_DG: SlotIdx:3 ChIdx:0 300\n" + Flow("LDG", 3, 0, "") + End(3),
           "#9 5<00 #9 6>10 #9 5<00 #9 6>10 "},
      }};
}

void SwitchesOffEachTime(TestMachine& machine, int) {
  EXPECT_EQ(LevelsOf(machine, kIoSlot, 5).substr(0, 6), "101010");
}

void CutsCountAndPosition(TestMachine& machine, int task) {
  EXPECT_THAT(machine.Bus(task), HasSubstr("#8 15<00 #8 14<00 #8 13<00 #8 12<02 "));
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Bus(task), "#9 6<35 ") > 0; })) << machine.Bus(task);
}

Group Values() {
  const std::string spill = "4000&20&0&0&0&0&2";
  const std::string stopInput = "4000&20&0&0&0&4&1";
  return {"Values",
          {
              {"mot-flag", "MOT: 2, 0, 4000&20&2\nEND", Then::Ends, Mot(2, 0, "4000&20&2") + End(2),
               "#8 7<00 #8 8<00 #8 7<00 #8 9<14 #8 11<00 #8 10<14 #8 15<00 #8 14<00 #8 13<1F #8 12<40 "
               "#8 17<00 #8 16<14 #8 29<00 #8 28<00 #8 27<00 #8 26<00 #8 24<01 #8 24>01 "},
              {"mot-flag", "MOT: 2, 3, 4000&20&0&0&0&0&2\nEND", Then::Ends, Mot(2, 3, spill) + End(2),
               "#8 7<03 #8 8<80 #8 7<03 #8 9<14 #8 11<00 #8 10<14 #8 15<00 #8 14<00 #8 13<1F #8 12<40 "
               "#8 17<00 #8 16<14 #8 29<00 #8 28<00 #8 27<00 #8 26<00 #8 24<01 #8 24>01 "},
              {"mot-flag", "MOT: 4, 0, 4000&20&0&0&0&4&1\nEND", Then::Ends, Mot(4, 0, stopInput) + End(4),
               "#10 5<00 #10 8<44 #10 5<00 #10 9<14 #10 15<00 #10 14<00 #10 13<1F #10 12<40 "
               "#10 29<00 #10 28<00 #10 27<00 #10 26<00 #10 24<01 #10 24>01 "},
              {"value-cut", "MOT: 2, 1, 2147483649&20&1\nDG: 3, 0, 261\nLDG: 3, 0,\nEND", Then::Ends,
               Mot(2, 1, "2147483649&20&1") + Flow("DG", 3, 0, "261") + "SYN_DG: SlotIdx:3 ChIdx:0 261\n",
               nullptr, CutsCountAndPosition},
              {"value-cut", "MOT: 2, 0, 4000&300&1\nEND", Then::Ends, Mot(2, 0, "4000&300&1") + End(2),
               "#8 7<00 #8 8<80 #8 7<00 #8 9<2C #8 11<00 #8 10<2C #8 15<00 #8 14<00 #8 13<1F #8 12<40 "
               "#8 17<00 #8 16<2C #8 29<00 #8 28<00 #8 27<00 #8 26<00 #8 24<01 #8 24>01 "},
              {"level-never", nullptr, Then::Stays, Waits("LD", 1, 0, "2", "SYN_LD: SlotIdx:1  ChIdx:0 2\n"),
               "#7 8>01 #7 8>01 #7 8>01 "},
              {"level-never",
               "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nIF: 1, 0, 2&A.PLC&B.PLC\nIF: 1, 1, "
               "2&A.PLC&B.PLC\nEND\n"
               "== plc1/A.PLC\nEND\n== plc1/B.PLC\nEND",
               Then::Ends,
               Flow("IF", 1, 0, "2&A.PLC&B.PLC") + "SYN_IF: SlotIdx:1 ChIdx:0 2&A.PLC&B.PLC\n" +
                   Line("END", 1, -1, "", "B.PLC") + "SYN_END:1 \n" + Flow("IF", 1, 1, "2&A.PLC&B.PLC") +
                   "SYN_IF: SlotIdx:1 ChIdx:1 2&A.PLC&B.PLC\n" + Line("END", 1, -1, "", "B.PLC") +
                   "SYN_END:1 \n" + EndAgain(1),
               "#7 8>01 #7 8>01 "},
              {"out-value",
               "OUT: 1, 5, 1\nOUT: 1, 5, ON\nOUT: 1, 5, 1\nOUT: 1, 5, 2\nOUT: 1, 5, 1\nOUT: 1, 5,\nEND",
               Then::Ends,
               Flow("OUT", 1, 5, "1") + Flow("OUT", 1, 5, "ON") + Flow("OUT", 1, 5, "1") +
                   Flow("OUT", 1, 5, "2") + Flow("OUT", 1, 5, "1") + Flow("OUT", 1, 5, "") + End(1),
               "#7 5>00 #7 5<20 #7 5>20 #7 5<00 #7 5>00 #7 5<20 #7 5>20 #7 5<00 #7 5>00 #7 5<20 #7 5>20 "
               "#7 5<00 ",
               SwitchesOffEachTime},
          }};
}

// The second move takes back what the first has done so far, and the rest of its own way.
void EndsBeforeItsStart(TestMachine& machine, int) {
  EXPECT_TRUE(machine.Await([&] { return MovesEnded(machine, kServoSlot, 0) > 0; }));
  const auto& journal = machine.Journal();
  int position = 0;
  for (const rack::JournalRecord& record : journal) {
    const bool isMotor = record.slot == kServoSlot && record.port == 0;
    if (isMotor && record.kind == rack::JournalKind::MotorPosition) position = record.value;
    if (isMotor && record.kind == rack::JournalKind::MotorMove && record.value == 0) break;
  }
  EXPECT_GT(position, 0);
}

// The bus shows no selection behind the second move, and channel 0 is the one that is asked for.
void AsksForChannelOne(TestMachine& machine, int task) {
  const std::string bus = machine.Bus(task);
  const std::size_t selection = bus.rfind(" 7<");
  ASSERT_NE(selection, bus.npos);
  EXPECT_EQ(bus.substr(selection, 7), " 7<01 #");
  EXPECT_THAT(bus, EndsWith("#8 24>01 #8 24>01 #8 24>01 "));
}

// The last access is the end of the command's own handshake.
void NothingAskedForThePosition(TestMachine& machine, int task) {
  EXPECT_THAT(machine.Bus(task), EndsWith("#9 5<01 #9 5>00 "));
}

void WasSetUpAgainAndAgain(TestMachine& machine, int task) {
  EXPECT_TRUE(machine.Await([&] {
    machine.Press(kDec);
    return CountOf(machine.Log(task), Again("DG", 3, 0, "-1")) > 0;
  })) << machine.Log(task);
}

Group MotionAndKeys() {
  const std::string forth = "4000&20&1";
  return {"MotionAndKeys",
          {
              {"unawaited-move", nullptr, Then::Own, "", nullptr, EndsBeforeItsStart},
              {"other-channel", nullptr, Then::Stays,
               Mot(2, 0, forth) + Mot(2, 1, forth) + Waits("LMOT", 2, 0, "", ""), nullptr, AsksForChannelOne},
              {"reset-first-line", nullptr, Then::Own, "", nullptr, WasSetUpAgainAndAgain},
              {"if-fields", nullptr, Then::Ends,
               Flow("IF", 1, 0, "1&NUL") + "SYN_IF: SlotIdx:1 ChIdx:0 1&NUL\n" + End(1), ""},
              {"dg-position", nullptr, Then::Ends,
               Flow("DG", 3, 0, "16") + "SYN_DG: SlotIdx:3 ChIdx:0 16\n" + Flow("LDG", 3, 0, "") + End(3),
               nullptr},
              {"out-value", nullptr, Then::Ends, Flow("OUT", 1, 3, "ON") + End(1), "#7 5>00 #7 5<00 "},
              {"no-action", nullptr, Then::Ends, Flow("LED", 0, 0, "1") + End(0), ""},
              {"two-field-wait", "DG: 3, 1, 15\nLDG: 1,\nEND", Then::Ends,
               Flow("DG", 3, 1, "15") + "SYN_DG: SlotIdx:3 ChIdx:1 15\n" + Flow("LDG", 0, 1, "") + End(0),
               nullptr, NothingAskedForThePosition},
          }};
}

void EndedWhileChannelZeroMoves(TestMachine& machine, int task) {
  machine.WaitForLog(End(2), task);
  EXPECT_EQ(MovesEnded(machine, kStepperSlot, 0), 0);
  EXPECT_THAT(machine.Bus(task), HasSubstr("#8 24>00 #8 19<01 #8 19<00 "));
}

void UndoEachOther(TestMachine& machine, int task) {
  EXPECT_TRUE(machine.Await([&] { return LevelsOf(machine, kIoSlot, 3).find("10") != std::string::npos; }));
  for (const int writer : {task, task + 1}) {
    EXPECT_THAT(machine.Log(writer), HasSubstr(Flow("OUT", 1, 3, writer == task ? "1" : "0")));
  }
}

void RunsNowhere(TestMachine& machine, int) {
  EXPECT_EQ(machine.LinesWith("PLC9: "), "");
  for (const auto& path : machine.Live().programFiles) EXPECT_THAT(path, Not(HasSubstr("plc9")));
}

Group TasksAndTheirCards() {
  return {"TasksAndTheirCards",
          {
              {"other-channel", "MOT: 2, 0, 4000&20&1\nMOT: 2, 1, 1&20&1\nLMOT: 2, 0,\nROCLR: 2, 0,\nEND",
               Then::Own, "", nullptr, EndedWhileChannelZeroMoves},
              {"shared-output", nullptr, Then::Own, "", nullptr, UndoEachOther},
              {"no-task-directory", nullptr, Then::Own, "", "", QuitForGood},
              {"idle-directory", nullptr, Then::Own, "", "", RunsNowhere},
          }};
}

bool HasStoodAt(TestMachine& machine, int channel, int position) {
  for (const rack::JournalRecord& record : machine.Journal()) {
    const bool isCylinder = record.slot == kCylinderSlot && record.port == channel;
    if (!isCylinder || record.kind != rack::JournalKind::CylinderState) continue;
    if ((record.value & 0xFF) == 0x10 && record.value >> 8 == position) return true;
  }
  return false;
}

void NeverComesToTheFirstPosition(TestMachine& machine, int task) {
  machine.WaitForLog(End(3), task);
  EXPECT_TRUE(HasStoodAt(machine, 0, 0));
  EXPECT_FALSE(HasStoodAt(machine, 0, 15));
}

void EndsWithOnePulse(TestMachine& machine, int) {
  EXPECT_TRUE(machine.Await([&] { return MovesEnded(machine, kStepperSlot, 0) > 0; }));
  EXPECT_EQ(machine.Picture().cards[kStepperEntry].motors[0].position, -1);
}

// When a move of the motor began, or ended, for the first time.
rack::Nanos TimeOfMove(TestMachine& machine, int slot, int channel, int value) {
  for (const rack::JournalRecord& record : machine.Journal()) {
    const bool isMotor = record.slot == slot && record.port == channel;
    if (record.kind == rack::JournalKind::MotorMove && isMotor && record.value == value) return record.time;
  }
  return 0;
}

void OneMoveReplacesTheOther(TestMachine& machine, int task) {
  EXPECT_TRUE(machine.Await([&] { return MovesEnded(machine, kServoSlot, 0) > 0; }));
  for (const int mover : {task, task + 1}) {
    EXPECT_EQ(CountOf(machine.Bus(mover), "#10 24<01 "), 1);
    EXPECT_LT(TimeOfLine(machine, mover, 1), TimeOfMove(machine, kServoSlot, 0, 0));
  }
}

void GoesOnWhileItsMotorMoves(TestMachine& machine, int task) {
  machine.WaitForLog(End(2), task);
  EXPECT_EQ(MovesEnded(machine, kStepperSlot, 1), 1);
  EXPECT_EQ(MovesEnded(machine, kStepperSlot, 0), 0);
}

// The lines behind the moves: the first wait, the one behind it, the second wait, the one behind it.
void WaitsForTheFirstCountOnly(TestMachine& machine, int task) {
  EXPECT_TRUE(machine.Await([&] { return TimeOfLine(machine, task, 6) > 0; }));
  EXPECT_GE(TimeOfLine(machine, task, 3) - TimeOfLine(machine, task, 2), 500 * rack::kMillisecond);
  EXPECT_LE(TimeOfLine(machine, task, 6) - TimeOfLine(machine, task, 5), 20 * rack::kMillisecond);
}

void StartsTheMovingMotorInEachRound(TestMachine& machine, int task) {
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Bus(task), "#8 24<01 ") >= 3; }));
  EXPECT_EQ(MovesEnded(machine, kStepperSlot, 0), 0);
}

void StartsAnewWhatTheResetProgramStarted(TestMachine& machine, int task) {
  machine.WaitForLog(Flow("MOT", 4, 1, "40000&20&0"), task);
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Bus(task), "#10 24<01 ") == 2; }));
  EXPECT_EQ(MovesEnded(machine, kServoSlot, 1), 0);
}

void SelectsChannelSeven(TestMachine& machine, int) {
  EXPECT_EQ(machine.Picture().cards[kStepperEntry].selectedChannel, 7);
}

void StartsOneWhileTheOtherMoves(TestMachine& machine, int) {
  EXPECT_TRUE(machine.Await([&] { return MovesEnded(machine, kServoSlot, 0) > 0; }));
  const rack::Nanos second = TimeOfMove(machine, kServoSlot, 1, 1);
  EXPECT_GT(second, 0);
  EXPECT_LT(second, TimeOfMove(machine, kServoSlot, 0, 0));
}

Group WaitsAndMoves() {
  const std::string move = "4000&20&1";
  return {
      "WaitsAndMoves",
      {
          {"unawaited-travel", nullptr, Then::Own, "", nullptr, NeverComesToTheFirstPosition},
          {"wait-without-move", nullptr, Then::Ends,
           Mot(4, 0, move) + Flow("LMOT", 4, 1, "") + Flow("LMOT", 4, 0, ""), nullptr},
          {"no-pulse", nullptr, Then::Stays, Mot(2, 0, "4000&0&1") + Waits("LMOT", 2, 0, "", ""), nullptr},
      }};
}

Group CountsAndTasks() {
  return {"CountsAndTasks",
          {
              {"shared-axis", nullptr, Then::Own, "", nullptr, OneMoveReplacesTheOther},
              {"count-stop", nullptr, Then::Own, "", nullptr, EndsWithOnePulse},
          }};
}

Group CardsOfTwoTasks() {
  return {"CardsOfTwoTasks",
          {
              {"shared-card", nullptr, Then::Own, "", nullptr, GoesOnWhileItsMotorMoves},
              {"stale-count", nullptr, Then::Own, "", nullptr, WaitsForTheFirstCountOnly},
          }};
}

// The driver writes a stop count that the control byte does not switch on; a stop input goes nowhere.
Group WaysOfAProgram() {
  const std::string count = "4000&20&1&0&0&0&0&0&0&0&70";
  const std::string input = "4000&20&1&0&1&3&1";
  return {
      "WaysOfAProgram",
      {
          {"unawaited-move", "MOT: 2, 0, 4000&20&1\nDLY: 10\nEND", Then::Own, "", nullptr,
           StartsTheMovingMotorInEachRound},
          {"unawaited-move",
           "== plc1/RESET.PLC\nMOT: 4, 1, 40000&20&1\nEXIT\n== plc1/FLOW.PLC\nMOT: 4, 1, 40000&20&0\n"
           "LMOT: 4, 1,\nEND",
           Then::Own, "", nullptr, StartsAnewWhatTheResetProgramStarted},
          {"lost-text", "MOT: 2, 5, 4000&20&1&0&0&0&0&0&0&0&70\nEND", Then::Ends, Mot(2, 5, count) + End(2),
           "#8 7<05 #8 8<80 #8 7<05 #8 9<14 #8 11<00 #8 10<14 #8 15<00 #8 14<00 #8 13<1F #8 12<40 "
           "#8 17<00 #8 16<14 #8 29<00 #8 28<00 #8 27<00 #8 26<8C #8 24<01 #8 24>01 "},
          {"lost-text", "MOT: 2, 6, 4000&20&1&0&1&3&1\nEND", Then::Ends, Mot(2, 6, input) + End(2),
           "#8 7<06 #8 8<C4 #8 7<06 #8 9<14 #8 11<00 #8 10<14 #8 15<00 #8 14<00 #8 13<1F #8 12<40 "
           "#8 17<00 #8 16<14 #8 29<00 #8 28<00 #8 27<00 #8 26<00 #8 24<01 #8 24>01 "},
      }};
}

Group FirstLinesAndBlocks() {
  return {"FirstLinesAndBlocks",
          {
              {"other-channel", "ROCLR: 2, 0,\nEND", Then::Ends,
               Flow("ROCLR", 2, 0, "") + "SYN_ROCLR: SlotIdx:2 ChIdx:0 \n" + End(2), "#8 19<01 #8 19<00 ",
               SelectsChannelSeven},
              {"left-moving", nullptr, Then::Own, "", nullptr, StartsOneWhileTheOtherMoves},
          }};
}

// Enter opens FLOW.PLC, but the task stays in the block.
void EnterStartsNothing(TestMachine& machine, int task) {
  const std::string opened = "Run: [" + DirectoryOf(task) + "/FLOW.PLC]";
  machine.Press(kEnter);
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Log(task), opened) > 1; }));
  machine.AwaitPolls();
  EXPECT_EQ(CountOf(machine.Log(task), "CmdIdx: FL "), 1) << machine.Log(task);
}

// The block that FLOW.PLC calls has replaced it: what stands behind the call is not executed.
void CameBackWithoutTheRest(TestMachine& machine, int task) {
  const std::string log = machine.Log(task);
  const std::string fromReset = log.substr(0, log.find("HKEY_Enter"));
  EXPECT_THAT(fromReset, HasSubstr(Line("FL", 0, -1, "FLOW.PLC") + Line("FL", 0, -1, "A.PLC", "FLOW.PLC") +
                                   Line("DLY", 100, -1, "100", "A.PLC") + Line("END", 100, -1, "", "A.PLC") +
                                   "SYN_END:1 \n" + Line("EXIT", 100, -1, "")));
}

void OutputIsOnWhileTheAxisMoves(TestMachine& machine, int) {
  EXPECT_EQ(LevelsOf(machine, kIoSlot, 3), "1");
  EXPECT_EQ(MovesEnded(machine, kStepperSlot, 0), 0);
}

Group CountsAndBranches() {
  const std::string move = "4000&20&0";
  const std::string row = "SYN_ROW: SlotIdx:2 ChIdx:0 ";
  const std::string log = "SYN_IF: SlotIdx:1 ChIdx:";
  return {"CountsAndBranches",
          {
              {"row-count", nullptr, Then::Stays,
               Mot(2, 0, move) + Flow("ROW", 2, 0, "-2000") + row + "-2000\n" + Flow("OUT", 1, 3, "1") +
                   Waits("LMOT", 2, 0, "", ""),
               nullptr, OutputIsOnWhileTheAxisMoves},
              {"row-count", "MOT: 4, 1, 4000&20&0\nROW: 4, 1, 0\nEND", Then::Ends,
               Mot(4, 1, move) + Flow("ROW", 4, 1, "0") + "SYN_ROW: SlotIdx:4 ChIdx:1 0\n" + End(4), nullptr},
              {"idle-if", "IF: 1, 0, 1&NUL&NUL\nIF: 1, 3, 1&NUL&NUL\nEND", Then::Ends,
               Flow("IF", 1, 0, "1&NUL&NUL") + log + "0 1&NUL&NUL\n" + Flow("IF", 1, 3, "1&NUL&NUL") + log +
                   "3 1&NUL&NUL\n" + End(1),
               "#7 8>01 #7 8>01 "},
          }};
}

Group Blocks() {
  const std::string start = Flow("FL", 0, -1, "DONE.PLC") + Line("DLY", 300, -1, "300", "DONE.PLC") +
                            Line("EXIT", 300, -1, "", "DONE.PLC");
  const std::string exitAgain = Again("EXIT", 300, -1, "", "DONE.PLC");
  return {
      "Blocks",
      {
          {"exit-in-block", nullptr, Then::Stays, start + exitAgain + exitAgain, nullptr, EnterStartsNothing},
          {"exit-in-block",
           "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: DONE.PLC\nEND\n"
           "== plc1/DONE.PLC\nDLY: 300\nEXIT\nOUT: 1, 3, 1\nEND",
           Then::Rests,
           start + Line("OUT", 1, 3, "1", "DONE.PLC") + Line("END", 1, -1, "", "DONE.PLC") + "SYN_END:1 \n",
           "#7 5>00 #7 5<08 "},
          {"exit-in-block",
           "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: DONE.PLC\nEND\n"
           "== plc1/DONE.PLC\nDLY: 300\nEXIT\n; the end",
           Then::Rests, start, "", EnterStartsNothing},
          {"main-as-block", nullptr, Then::Own, "", nullptr, CameBackWithoutTheRest},
      }};
}

std::string Ld(int channel, const std::string& level) {
  return "SYN_LD: SlotIdx:1  ChIdx:" + std::to_string(channel) + " " + level + "\n";
}

void TheOtherWaitsToo(TestMachine& machine, int task) {
  EXPECT_GE(CountOf(machine.Log(task + 1), FlowAgain("LD", 1, 8, "1") + Ld(8, "1")), 3);
  EXPECT_EQ(LevelsOf(machine, kIoSlot, 0) + LevelsOf(machine, kIoSlot, 1), "");
}

// Of the I/O card, when an output goes on for the first time: the level that another signal has then.
int LevelWhenOn(TestMachine& machine, int output, rack::JournalKind kind, int channel) {
  EXPECT_TRUE(machine.Await([&] { return !LevelsOf(machine, kIoSlot, output).empty(); }));
  int level = 0;
  for (const rack::JournalRecord& record : machine.Journal()) {
    if (record.slot != kIoSlot) continue;
    if (record.kind == rack::JournalKind::OutputChange && record.port == output && record.value != 0) break;
    if (record.kind == kind && record.port == channel) level = static_cast<int>(record.value);
  }
  return level;
}

void BothAreOn(TestMachine& machine, int) {
  EXPECT_EQ(LevelWhenOn(machine, 1, rack::JournalKind::OutputChange, 0), 1);
}

void TurnsUnclamped(TestMachine& machine, int) {
  EXPECT_EQ(LevelWhenOn(machine, 0, rack::JournalKind::InputEdge, 8), 0);
  EXPECT_EQ(LevelWhenOn(machine, 0, rack::JournalKind::OutputChange, 1), 1);
}

// Each in a machine of its own: nobody else gives what is waited for.
Group Lock() {
  return {"Lock",
          {{"handshake-lock", nullptr, Then::Stays, Waits("LD", 1, 9, "1", Ld(9, "1")), nullptr,
            TheOtherWaitsToo}}};
}

Group NeverMet() {
  const std::string met = Flow("OUT", 1, 0, "1") + Flow("LD", 1, 8, "1") + Ld(8, "1");
  return {"NeverMet",
          {{"wait-never-met", nullptr, Then::Stays,
            met + Flow("OUT", 1, 0, "0") + Waits("LD", 1, 8, "1", Ld(8, "1")), nullptr}}};
}

Group Opposed() {
  return {"Opposed", {{"opposed-outputs", nullptr, Then::Own, "", nullptr, BothAreOn}}};
}

Group BrokenRule() {
  return {"BrokenRule", {{"broken-rule", nullptr, Then::Own, "", nullptr, TurnsUnclamped}}};
}

// The output was off before production, and is on since the first round.
void ChangesInTheFirstRoundOnly(TestMachine& machine, int task) {
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Log(task), Flow("OUT", 1, 3, "1")) >= 3; }));
  EXPECT_EQ(LevelsOf(machine, kIoSlot, 3), "1");
}

void StaysOnBehindTheReset(TestMachine& machine, int task) {
  const int resets = CountOf(machine.Log(task), Line("EXIT", 1, -1, ""));
  EXPECT_TRUE(machine.Await([&] {
    machine.Press(kDec);
    return CountOf(machine.Log(task), Line("EXIT", 1, -1, "")) > resets;
  }));
  EXPECT_EQ(LevelsOf(machine, kIoSlot, 5), "1");
}

Group Outputs() {
  return {"Outputs",
          {
              {"output-left-on", nullptr, Then::Own, "", nullptr, ChangesInTheFirstRoundOnly},
              {"output-not-reset",
               "== plc1/RESET.PLC\nOUT: 1, 4, 0\nEXIT\n== plc1/FLOW.PLC\nOUT: 1, 5, 1\nLD: 1, 1, 1\n"
               "OUT: 1, 5, 0\nEND",
               Then::Own, "", nullptr, StaysOnBehindTheReset},
          }};
}

// The names of the rack file hold for all programs of a group.
Group Names() {
  return {"Names",
          {
              {"unnamed-signal", nullptr, Then::Stays,
               Waits("LD", 1, 15, "1", "SYN_LD: SlotIdx:1  ChIdx:15 1\n"), nullptr},
          }};
}

}  // namespace

const std::vector<Group>& Groups() {
  static const std::vector<Group> groups = {SkippedLines(),
                                            LooksOtherwise(),
                                            NumbersAndTexts(),
                                            LabelsAndBlocks(),
                                            FilesAndEnds(),
                                            SlotsAndChannels(),
                                            CardsAndParameters(),
                                            Values(),
                                            MotionAndKeys(),
                                            TasksAndTheirCards(),
                                            WaitsAndMoves(),
                                            CountsAndTasks(),
                                            CardsOfTwoTasks(),
                                            WaysOfAProgram(),
                                            FirstLinesAndBlocks(),
                                            CountsAndBranches(),
                                            Blocks(),
                                            Lock(),
                                            NeverMet(),
                                            Opposed(),
                                            BrokenRule(),
                                            Outputs(),
                                            Names()};
  return groups;
}
