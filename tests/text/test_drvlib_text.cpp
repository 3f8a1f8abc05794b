#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <csignal>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "drvlib.h"
#include "support/capture.h"

namespace {

TEST(Console, OneCallIsOneWriteWithThePrefixOfItsTask) {
  Capture console(STDOUT_FILENO);
  EXPECT_EQ(Wprintf(0, "KeyPad=%x\n", 18u), -1);
  Wprintf(9, "%s", "net\r");
  Wprintf(3, "three\n");
  Wprintf(12, "no such task\n");
  Console("plain %d\n", 5);
  Wprintf(1, "%s", std::string(5000, 'x').c_str());
  const std::vector<std::string> writes = console.Writes();
  ASSERT_EQ(writes.size(), 6u);
  EXPECT_EQ(writes[0], "PLCKey: KeyPad=12\n");
  EXPECT_EQ(writes[1], "PLCNet: net\r");
  EXPECT_EQ(writes[2], "PLC3: three\n");
  EXPECT_EQ(writes[3], "PLC12: no such task\n");
  EXPECT_EQ(writes[4], "plain 5\n");
  EXPECT_EQ(writes[5].size(), 4095u);
}

TEST(Console, ALineReadsAsTheCLibraryWouldPrintIt) {
  Capture console(STDOUT_FILENO);
  Console("%d%d %s|%s|%%\n", INT_MIN, INT_MAX, "", "two words");
  Console("%d %s %5d[%-3s]%x %u %lld\n", -1, "a", 42, "b", 255u, 7u, -5LL);
  // A number, a text and what is printed by the library, each at the end of the room.
  const std::string nearly(4093, 'x');
  Console("%s%d", nearly.c_str(), -123);
  Console("%s%s", nearly.c_str(), "abc");
  Console("%sabc", nearly.c_str());
  Console("%s%x", nearly.c_str(), 0xabcu);
  const std::vector<std::string> writes = console.Writes();
  ASSERT_EQ(writes.size(), 6u);
  EXPECT_EQ(writes[0], "-21474836482147483647 |two words|%\n");
  EXPECT_EQ(writes[1], "-1 a    42[b  ]ff 7 -5\n");
  EXPECT_EQ(writes[2], nearly + "-1");
  EXPECT_EQ(writes[3], nearly + "ab");
  EXPECT_EQ(writes[4], nearly + "ab");
  EXPECT_EQ(writes[5], nearly + "ab");
}

TEST(Console, LinesOfTwoThreadsStayWholeAndALostConsoleIsBorne) {
  Capture console(STDOUT_FILENO);
  const auto talk = [](int task) {
    for (int i = 0; i < 50; ++i) Wprintf(task, "line %d\n", i);
  };
  std::thread other(talk, 1);
  talk(2);
  other.join();
  int next[3] = {};
  for (const std::string& line : console.Writes()) {
    const int task = line[3] - '0';
    ASSERT_TRUE(task == 1 || task == 2) << line;
    EXPECT_EQ(line, "PLC" + std::to_string(task) + ": line " + std::to_string(next[task]++) + "\n");
  }
  EXPECT_EQ(next[1], 50);
  EXPECT_EQ(next[2], 50);

  const auto before = std::signal(SIGPIPE, SIG_IGN);
  close(STDOUT_FILENO);
  EXPECT_EQ(Wprintf(1, "nobody hears\n"), -1);
  std::signal(SIGPIPE, before);
}

TEST(Stricmp, ComparesWithoutLetterCase) {
  EXPECT_EQ(stricmp("ld", "LD"), 0);
  EXPECT_EQ(stricmp("LD", "LDG"), -1);
  EXPECT_EQ(stricmp("LDG", "LD"), 1);
  EXPECT_EQ(stricmp("A", "B"), -1);
  EXPECT_EQ(stricmp("[", "a"), '[' - 'A');
  EXPECT_EQ(stricmp("\xE4", "\xC4"), 0x20);
  EXPECT_EQ(stricmp("\xE4", "z"), 0xE4 - 'Z');
  EXPECT_EQ(stricmp("", ""), 0);
  EXPECT_EQ(stricmp(nullptr, "A"), -1);
  EXPECT_EQ(stricmp(nullptr, nullptr), 0);
  EXPECT_EQ(stricmp("A", nullptr), 1);
}

TEST(MidValueFilter, TakesMediansOfTheUnfilteredSamples) {
  std::vector<unsigned long> samples = {5, 1, 9, 3, 7};
  EXPECT_EQ(MidValueFilter(samples.data(), 5), 4);
  EXPECT_THAT(samples, testing::ElementsAre(5, 5, 3, 7, 7));
  samples = {4000000000u, 1, 3000000000u};
  EXPECT_EQ(MidValueFilter(samples.data(), 3), 2);
  EXPECT_THAT(samples, testing::ElementsAre(3000000000u, 3000000000u, 3000000000u));
  samples = {5, 1};
  EXPECT_EQ(MidValueFilter(samples.data(), 2), 1);
  EXPECT_EQ(MidValueFilter(samples.data(), 0), -1);
  EXPECT_THAT(samples, testing::ElementsAre(5, 1));
}

TEST(Sort, OrdersAscendingAndMovesNoNan) {
  std::vector<float> values = {3.0f, -1.0f, 2.0f};
  EXPECT_EQ(Sort(values.data(), 3), 3);
  EXPECT_THAT(values, testing::ElementsAre(-1.0f, 2.0f, 3.0f));
  values = {3.0f, NAN, 1.0f};
  EXPECT_EQ(Sort(values.data(), 3), 3);
  EXPECT_EQ(values[0], 1.0f);
  EXPECT_TRUE(std::isnan(values[1]));
  EXPECT_EQ(values[2], 3.0f);
  EXPECT_EQ(Sort(values.data(), 0), 0);
}

double ProcessorSecondsOf(int delay) {
  timespec begin;
  timespec end;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
  FastDelay(delay);
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
  return static_cast<double>(end.tv_sec - begin.tv_sec) +
         1e-9 * static_cast<double>(end.tv_nsec - begin.tv_nsec);
}

TEST(FastDelay, CountsAndReturnsAtOnceForNothingToCount) {
  EXPECT_GT(ProcessorSecondsOf(100000000), 0.005);  // no processor counts faster than 20 per ns
  EXPECT_LT(ProcessorSecondsOf(0), 0.005);
  EXPECT_LT(ProcessorSecondsOf(INT_MIN), 0.005);
}

}  // namespace
