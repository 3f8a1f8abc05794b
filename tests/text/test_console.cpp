// A console that stands still for a while.
#include "console.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "drvlib.h"
#include "support/capture.h"

namespace {

// What standard output takes, for a test: so many bytes at once, and so many in all.
std::size_t takesAtOnce = SIZE_MAX;
std::size_t takes = SIZE_MAX;

}  // namespace

// In the C library's place.
extern "C" ssize_t write(int descriptor, const void* data, std::size_t size) {
  static auto* const next =
      reinterpret_cast<ssize_t (*)(int, const void*, std::size_t)>(dlsym(RTLD_NEXT, "write"));
  if (descriptor != STDOUT_FILENO || takes == SIZE_MAX)
    return next(descriptor, data, std::min(size, takesAtOnce));
  if (takes == 0) {
    errno = EAGAIN;
    return -1;
  }
  const ssize_t count = next(descriptor, data, std::min({size, takes, takesAtOnce}));
  if (count > 0) takes -= static_cast<std::size_t>(count);
  return count;
}

namespace {

constexpr std::size_t kPipe = 4096;
constexpr std::size_t kKept = 65536;
constexpr std::size_t kHead = 12;  // that is kept with each line

// Standard output is a pipe of 4,096 bytes that nobody waits for, to the end of the scope: what is expected is said behind
// it.
class StandingConsole {
 public:
  StandingConsole() : saved_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
    EXPECT_EQ(fcntl(ends[1], F_SETPIPE_SZ, static_cast<int>(kPipe)), static_cast<int>(kPipe));
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    reader_ = ends[0];
  }
  ~StandingConsole() {
    ReadAll();
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    close(reader_);
  }
  StandingConsole(const StandingConsole&) = delete;
  StandingConsole& operator=(const StandingConsole&) = delete;

  // Fills the pipe to its last byte.
  void Stand() const { PrintLine(std::string(kPipe, '.').c_str(), kPipe, kNoTask); }
  std::string ReadWhatIsThere() const {
    std::string text;
    char part[kPipe];
    for (ssize_t count; (count = read(reader_, part, sizeof part)) > 0;) {
      text.append(part, static_cast<std::size_t>(count));
    }
    return text;
  }
  // The console goes on: all that comes, without the line of Stand.
  std::string ReadAll() const {
    std::string text = ReadWhatIsThere();
    for (bool isEmpty = false; !isEmpty;) {
      isEmpty = OfferConsole();
      text += ReadWhatIsThere();
    }
    return text.compare(0, 1, ".") == 0 ? text.substr(kPipe) : text;
  }

 private:
  int saved_;
  int reader_ = -1;
};

TEST(StandingConsoleTest, EveryLineComesWholeAndInOrderWhenItGoesOn) {
  std::string first;
  std::string rest;
  std::string later;
  std::string expected = std::string(4000, '-') + "\n";
  {
    const StandingConsole console;
    Console("%s\n", std::string(4000, '-').c_str());
    for (int i = 0; i < 50; ++i) {
      Wprintf(1 + i % 8, "line %d\n", i);
      expected += "PLC" + std::to_string(1 + i % 8) + ": line " + std::to_string(i) + "\n";
    }
    first = console.ReadWhatIsThere();
    Console("last\n");  // brings what it finds room for
    rest = console.ReadAll();
    Console("at once\n");
    later = console.ReadWhatIsThere();
  }
  EXPECT_GT(first.size(), 4001U);
  EXPECT_LE(first.size(), kPipe);
  EXPECT_EQ(first + rest, expected + "last\n");
  EXPECT_EQ(later, "at once\n");
}

TEST(Console, TheRestOfAShortWriteFollows) {
  std::vector<std::string> writes;
  {
    Capture console(STDOUT_FILENO);
    takesAtOnce = 5;
    Wprintf(3, "%s\n", "no byte twice");
    takesAtOnce = SIZE_MAX;
    writes = console.Writes();
  }
  EXPECT_THAT(writes, testing::ElementsAre("PLC3:", " no b", "yte t", "wice\n"));
}

TEST(Console, AnErrorIsOneWriteAndCutWhereItIsTooLong) {
  std::vector<std::string> writes;
  {
    Capture console(STDERR_FILENO);
    errno = ENOENT;
    PrintError("Open dir error...");
    PrintError(std::string(5000, 'x').c_str());
    writes = console.Writes();
  }
  EXPECT_THAT(writes,
              testing::ElementsAre("Open dir error...: No such file or directory\n", std::string(4095, 'x')));
}

TEST(StandingConsoleTest, TheRestOfALineGoesOutBeforeAnyOther) {
  std::string text;
  {
    const StandingConsole console;
    takes = 7;
    for (int i = 1; i <= 3; ++i) {
      const RepeatedTry mark(1, true);
      Wprintf(1, "try %d\n", i);
    }
    takes = 3;
    Wprintf(2, "behind\n");
    takes = SIZE_MAX;
    text = console.ReadAll();
  }
  EXPECT_EQ(text, "PLC1: try 1\n-- 1 lines not shown --\nPLC1: try 3\nPLC2: behind\n");
}

// Sixty-four lines of 1,000 bytes are kept, two are not. Then the first one goes out, and one more has room.
TEST(StandingConsoleTest, WhereALineHasGoneANewOneIsKept) {
  constexpr std::size_t kLine = 1000;
  const auto line = [](int number) {
    std::string text = std::to_string(number);
    return text + std::string(kLine - 1 - text.size(), '.') + "\n";
  };
  std::string text;
  {
    const StandingConsole console;
    takes = 0;
    for (int i = 0; i < 66; ++i) Console("%s", line(i).c_str());
    takes = kLine;
    Console("%s", line(66).c_str());
    Console("%s", line(67).c_str());
    takes = SIZE_MAX;
    text = console.ReadAll();
  }
  std::string expected;
  for (int i = 0; i < 64; ++i) expected += line(i);
  EXPECT_EQ(text, expected + "-- 2 lines not shown --\n" + line(66) + "-- 1 lines not shown --\n");
}

TEST(StandingConsoleTest, ARepeatedTryTakesThePlaceOfTheOneBefore) {
  std::string text;
  {
    const StandingConsole console;
    console.Stand();
    Wprintf(1, "first try\n");
    for (int i = 1; i <= 3; ++i) {
      for (const int task : {1, 2}) {
        const RepeatedTry mark(task, true);
        Wprintf(task, "try %d\n", i);
        Console("plain %d of %d\n", i, task);
        Wprintf(task, "SYN %d\n", i);
      }
    }
    Wprintf(1, "met\n");
    const RepeatedTry mark(1, false);
    Wprintf(1, "next line\n");
    text = console.ReadAll();
  }
  EXPECT_EQ(text,
            "PLC1: first try\n"
            "-- 1 lines not shown --\nplain 1 of 1\n-- 2 lines not shown --\nplain 1 of 2\n"
            "-- 2 lines not shown --\nplain 2 of 1\n-- 2 lines not shown --\nplain 2 of 2\n"
            "-- 1 lines not shown --\n"
            "PLC1: try 3\nplain 3 of 1\nPLC1: SYN 3\nPLC2: try 3\nplain 3 of 2\nPLC2: SYN 3\n"
            "PLC1: met\nPLC1: next line\n");
}

TEST(StandingConsoleTest, TasksThatWaitForEverKeepTheirLastTry) {
  std::string text;
  {
    const StandingConsole console;
    console.Stand();
    for (int i = 1; i <= 100'000; ++i) {
      const RepeatedTry mark(1 + i % 8, true);
      Wprintf(1 + i % 8, "try\n");
    }
    text = console.ReadAll();
  }
  std::string expected = "-- 99992 lines not shown --\n";
  for (int i = 99'993; i <= 100'000; ++i) expected += "PLC" + std::to_string(1 + i % 8) + ": try\n";
  EXPECT_EQ(text, expected);
}

// Sixteen lines of 4,000 bytes, one that fills what is left, and two more. One head stays free for the gap.
TEST(StandingConsoleTest, WhatDoesNotFitIsCounted) {
  const std::size_t fits = kKept - kHead - 16 * (4000 + kHead) - kHead;
  for (const std::size_t length : {fits, fits + 1}) {
    std::string text;
    {
      const StandingConsole console;
      console.Stand();
      for (int i = 0; i < 16; ++i) PrintLine((std::string(3999, 'x') + "\n").c_str(), 4000, kNoTask);
      PrintLine((std::string(length - 1, 'y') + "\n").c_str(), length, kNoTask);
      for (int i = 0; i < 2; ++i) PrintLine("z\n", 2, kNoTask);
      text = console.ReadAll();
    }
    const std::string end = length == fits ? std::string(length - 1, 'y') + "\n-- 2 lines not shown --\n"
                                           : "x\n-- 1 lines not shown --\nz\nz\n";
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
    EXPECT_EQ(text.size(), 64'000 + end.size() - (length == fits ? 0 : 2));
  }
}

}  // namespace
