#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <thread>

#include "drvlib.h"
#include "waits.h"

namespace {

long long MicrosOf(long long pause) {
  const auto begin = std::chrono::steady_clock::now();
  PauseMicros(pause);
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin)
      .count();
}

TEST(Waits, APauseLastsItsTimeAndANegativeOneNone) {
  EXPECT_GE(MicrosOf(20000), 20000);
  EXPECT_LT(MicrosOf(LLONG_MIN), 1000000);
  EXPECT_LT(MicrosOf(0), 1000000);
}

// Number of polls until the wait is given up, or until the poll that is met.
int Polls(int limit, int metAt, bool expected) {
  int polls = 0;
  EXPECT_EQ(PollUntil(Attempts(limit), kNoPause, [&] { return ++polls == metAt; }), expected);
  return polls;
}

TEST(Waits, AConditionIsPolledUntilItIsMetOrTheLimitIsOver) {
  EXPECT_EQ(Polls(5, 0, false), 5);
  EXPECT_EQ(Polls(5, 5, true), 5);
  EXPECT_EQ(Polls(5, 1, true), 1);
  EXPECT_EQ(Polls(0, 0, false), 1);
  EXPECT_EQ(Polls(INT_MIN + 1, 1, true), 1);
}

TEST(Waits, LimitsOfTimeAreOverAfterTheirTime) {
  // Counts processor time: sleeping does not use it up.
  const ProcessorTicks ticks(20000);
  PauseMicros(40000);
  EXPECT_FALSE(ticks.Over());
  EXPECT_FALSE(PollUntil(ProcessorTicks(20000), kNoPause, [] { return false; }));
  EXPECT_TRUE(ticks.Over());

  EXPECT_TRUE(RealSeconds(0).Over());
  const RealSeconds second(1);
  EXPECT_FALSE(second.Over());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(PollUntil(RealSeconds(1), 1000, [] { return false; }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_TRUE(second.Over());
}

// A mutex that is freed and taken again at once is nearly always taken by the same thread.
TEST(Bus, WhoPollsGivesWayToWhoWaits) {
  constexpr int kRounds = 60;
  int gaveWay = 0;
  for (int round = 0; round < kRounds; ++round) {
    std::atomic<bool> asked{false};
    bool had = false;  // under HardLock
    std::thread other;
    {
      const ScopedBus bus;
      other = std::thread([&] {
        asked = true;
        const ScopedBus its;
        had = true;
      });
      while (!asked) std::this_thread::yield();
      PauseMillis(2);  // until it waits, nearly always
    }
    GiveWayOnBus();
    {
      const ScopedBus bus;
      if (had) ++gaveWay;
    }
    other.join();
    EXPECT_TRUE(had);
  }
  EXPECT_GT(gaveWay, kRounds / 2);
}

}  // namespace
