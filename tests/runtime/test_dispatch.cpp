#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "drvlib.h"
#include "kova_man.h"
#include "plctask.h"
#include "support/capture.h"
#include "support/scratch.h"
#include "synx.h"

namespace {

// Notes what it is asked and answers each command with a number of its own.
class FakeCard : public CkOVA_MANAGER {
 public:
  int Cmd_OUT(int ChIdx, void* pArgc) override { return Note("OUT", ChIdx, pArgc, 11); }
  int Cmd_LD(int ChIdx, void* pArgc) override { return Note("LD", ChIdx, pArgc, 12); }
  int Cmd_MOT(int ChIdx, void* pArgc) override { return Note("MOT", ChIdx, pArgc, 13); }
  int Cmd_LMOT(int ChIdx, void* pArgc) override { return Note("LMOT", ChIdx, pArgc, 14); }
  int Cmd_DG(int ChIdx, void* pArgc) override { return Note("DG", ChIdx, pArgc, 15); }
  int Cmd_LDG(int ChIdx, void* pArgc) override { return Note("LDG", ChIdx, pArgc, 16); }
  int Cmd_ROW(int ChIdx, void* pArgc) override { return Note("ROW", ChIdx, pArgc, 17); }
  int Cmd_ROCLR(int ChIdx, void* pArgc) override { return Note("ROCLR", ChIdx, pArgc, 18); }
  int Cmd_IF(int ChIdx, void* pArgc, char* pOutParameter) override {
    std::snprintf(pOutParameter, 1000, "block.plc");
    return Note("IF", ChIdx, pArgc, 19);
  }

  std::vector<std::string> calls;

 private:
  int Note(const char* command, int channel, const void* parameter, int result) {
    const char* text = parameter == nullptr ? "-" : static_cast<const char*>(parameter);
    calls.push_back(std::string(command) + " " + std::to_string(channel) + " " + text);
    return result;
  }
};

TEST(Dispatch, GivesTheCommandToTheCardOfTheEntryAndNoOther) {
  FakeCard cards[2];
  kOVA_CardMan[0] = &cards[0];
  kOVA_CardMan[1] = &cards[1];
  kOVA_CardMan[2] = &cards[1];
  CardInfo.CardNum = 2;
  char parameter[] = "p";
  char block[1000] = "";
  EXPECT_EQ(Task_OUT(1, 1, parameter), 11);
  EXPECT_EQ(Task_LD(1, 2, parameter), 12);
  EXPECT_EQ(Task_MOT(1, 3, parameter), 13);
  EXPECT_EQ(Task_LMOT(1, 4, nullptr), 14);
  EXPECT_EQ(Task_DG(1, 5, parameter), 15);
  EXPECT_EQ(Task_LDG(1, 6, nullptr), 16);
  EXPECT_EQ(Task_ROW(1, 7, parameter), 17);
  EXPECT_EQ(Task_ROCLR(1, 8, nullptr), 18);
  EXPECT_EQ(Task_IF(1, 9, parameter, block), 19);
  EXPECT_STREQ(block, "block.plc");
  EXPECT_THAT(cards[1].calls, testing::ElementsAre("OUT 1 p", "LD 2 p", "MOT 3 p", "LMOT 4 -", "DG 5 p",
                                                   "LDG 6 -", "ROW 7 p", "ROCLR 8 -", "IF 9 p"));
  cards[1].calls.clear();
  EXPECT_EQ(Task_OUT(0, -1, parameter), 11);
  for (int entry : {-1, 2, 12}) {
    for (auto task : {Task_OUT, Task_LD, Task_MOT, Task_LMOT, Task_DG, Task_LDG, Task_ROW, Task_ROCLR}) {
      EXPECT_EQ(task(entry, 1, parameter), -1);
    }
    EXPECT_EQ(Task_IF(entry, 1, parameter, block), -1);
  }
  EXPECT_THAT(cards[0].calls, testing::ElementsAre("OUT -1 p"));
  EXPECT_THAT(cards[1].calls, testing::IsEmpty());
  CardInfo.CardNum = 0;
  for (auto& card : kOVA_CardMan) card = nullptr;
}

TEST(StepGate, HoldsOnlyInStepModeAfterGatedCommandsWithoutReleaseKey) {
  const std::set<int> gated = {1, 2, 5, 8, 9, 12, 23, 25, 26, 27, 33};
  const std::set<int> release = {1, 2, 3};
  for (int command = 0; command < 34; ++command) {
    for (int key = 0; key <= 20; ++key) {
      SYNXIDX index = static_cast<SYNXIDX>(command);
      EXPECT_EQ(FilterStep(static_cast<HKEY>(key), 0, &index), 0);
      const int expected = gated.count(command) == 1 && release.count(key) == 0 ? 1 : 0;
      EXPECT_EQ(FilterStep(static_cast<HKEY>(key), 1, &index), expected) << command << " key " << key;
    }
  }
  SYNXIDX beyond = static_cast<SYNXIDX>(34);
  EXPECT_EQ(FilterStep(HKEY_NUL, 1, &beyond), 0);
}

// The line that would be read next after a GO to the number; "-" at the end of the file.
std::string LineAfterGo(const std::string& program, int number, int expected) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::tmpfile(), std::fclose);
  std::fwrite(program.data(), 1, program.size(), file.get());
  EXPECT_EQ(GoFileLine(file.get(), number), expected) << program;
  char line[1024];
  return std::fgets(line, sizeof line, file.get()) == nullptr ? "-" : line;
}

TEST(GoFileLine, StandsBehindTheFirstLabelOfThatNumber) {
  EXPECT_EQ(LineAfterGo("a\n#LE: 3\nfirst\n#LE: 3\nsecond\n", 3, 1), "first\n");
  EXPECT_EQ(LineAfterGo(" #le :4x ; loop: 5\r\nb\n", 4, 1), "b\n");
  EXPECT_EQ(LineAfterGo("\t \r#LE\t: 4\nb\n", 4, 1), "b\n");
  EXPECT_EQ(LineAfterGo("#LE\n#LE: 30\n#LEX: 3\n#LE: -3:3\nb\n", 3, 0), "-");
  EXPECT_EQ(LineAfterGo("#LE: 3", 3, 1), "-");
  EXPECT_EQ(LineAfterGo("#LE:\nb\n", 0, 1), "b\n");
  EXPECT_EQ(LineAfterGo("#LE\nb\n", 0, 0), "-");  // no label, so none with the number 0
  EXPECT_EQ(LineAfterGo(std::string(900, ' ') + "#LE:3\nb\n", 3, 1), "b\n");
  EXPECT_EQ(LineAfterGo(std::string(900, 'x') + ":3\n#LE:3\nb\n", 3, 1), "b\n");
  EXPECT_EQ(LineAfterGo(std::string(1023, 'x') + "#LE:3\nb\n", 3, 1), "b\n");
  EXPECT_EQ(GoFileLine(nullptr, 3), 0);
}

TEST(KeyMailbox, AKeyWakesWhoeverWaitsForOneInThatEntry) {
  KeyEntry entries[2];
  HKEY seen[2] = {};
  const auto wait = [&](int i) {
    entries[i].WaitForKey();
    seen[i] = entries[i];
  };
  std::thread first(wait, 0);
  std::thread second(wait, 1);
  for (KeyEntry& entry : entries) entry = HKEY_NUL;
  EXPECT_EQ(entries[1] = HKEY_Enter, HKEY_Enter);
  second.join();
  entries[0] = HKEY_Dec;
  first.join();
  EXPECT_EQ(seen[0], HKEY_Dec);
  EXPECT_EQ(seen[1], HKEY_Enter);
  // At once while the entry holds one, and not after it has gone.
  entries[0].WaitForKey();
  entries[0] = HKEY_NUL;
  EXPECT_EQ(entries[0].load(), HKEY_NUL);
}

using TaskPlc = ScratchTest;

TEST_F(TaskPlc, EndsWithoutResetProgram) {
  Capture console(STDOUT_FILENO);
  TaskPLC(3);
  EXPECT_EQ(console.Text(), "PLC3: RESET.PLC lost Task quit!\n");
  std::filesystem::create_directories("plc3/RESET.PLC");
  TaskPLC(3);
  EXPECT_EQ(console.Text(), "PLC3: RESET.PLC lost Task quit!\n");
}

}  // namespace
