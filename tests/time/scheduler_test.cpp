// Threads of the test take turns in virtual time, by the calls that the controller's threads make.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "time/scheduler.h"
#include "virtual_time.h"

namespace {

using rack::kSecond;
using testing::ElementsAre;
using Seconds = std::chrono::seconds;

long long MonotonicMillis() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

// With real threads and with fibres.
class VirtualTimeTest : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override { VirtualTime::AsFibres = GetParam(); }
  void TearDown() override { VirtualTime::AsFibres = false; }
};
using VirtualTimeDeathTest = VirtualTimeTest;

std::string KindName(const testing::TestParamInfo<bool>& kind) {
  return kind.param ? "Fibres" : "RealThreads";
}

#ifdef VELMO_SANITIZED
const auto kKinds = testing::Values(false);
#else
const auto kKinds = testing::Bool();
#endif
INSTANTIATE_TEST_SUITE_P(Kinds, VirtualTimeTest, kKinds, KindName);
INSTANTIATE_TEST_SUITE_P(Kinds, VirtualTimeDeathTest, kKinds, KindName);

TEST_P(VirtualTimeTest, SleepsTakeNoRealTimeAndAllClocksShowThem) {
  const auto before = MonotonicMillis();
  {
    const VirtualTime time;
    const long long start = MonotonicMillis();
    const clock_t busy = clock();
    sleep(3600);
    usleep(500'000);
    const timespec length = {1, 250'000'000};
    nanosleep(&length, nullptr);
    const timespec point = {1000 + 3700, 0};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &point, nullptr);
    EXPECT_EQ(MonotonicMillis() - start, 3700 * 1000LL);
    timeval day{};
    gettimeofday(&day, nullptr);
    EXPECT_EQ(day.tv_sec, 1577836800 + 3700);
    EXPECT_EQ(::time(nullptr), 1577836800 + 3700);
    EXPECT_LT(clock() - busy, 20);
    for (int i = 0; i < 50; ++i) rack::SpendAccess();
    EXPECT_GE(clock() - busy, 50);
    pollfd none{};
    EXPECT_EQ(poll(&none, 0, 2000), 0);
    EXPECT_EQ(MonotonicMillis() - start, 3702 * 1000LL);
  }
  EXPECT_LT(MonotonicMillis() - before, 60'000);
}

TEST_P(VirtualTimeTest, ThreadsWakeInTheOrderOfTimeAndBusyOnesHandOver) {
  const VirtualTime time;
  TurnLog order;
  const auto sleeper = [&](int millis, char name) {
    usleep(static_cast<useconds_t>(millis) * 1000);
    order.Add({name});
  };
  std::thread late(sleeper, 20, 'c');
  std::thread early(sleeper, 10, 'a');
  std::thread same(sleeper, 10, 'b');
  late.join();
  early.join();
  same.join();
  EXPECT_EQ(order.Take(), "abc");

  const auto busy = [&](char name) {
    for (int i = 0; i < 250; ++i) {
      rack::SpendAccess();
      if (order.Last() != name) order.Add({name});
    }
  };
  std::thread first(busy, '1');
  std::thread second(busy, '2');
  first.join();
  second.join();
  EXPECT_EQ(order.Take(), "121212");
}

TEST_P(VirtualTimeTest, AFreedMutexIsHandedOnInTheOrderOfArrival) {
  const VirtualTime time;
  std::mutex mutex;
  std::string order;
  const auto user = [&](int comesAt, char name) {
    usleep(static_cast<useconds_t>(comesAt));
    for (int i = 0; i < 2; ++i) {
      const std::lock_guard hold(mutex);
      order += name;
      usleep(1000);  // set aside with the lock held
    }
  };
  std::thread a(user, 100, 'a');
  std::thread b(user, 200, 'b');
  std::thread c(user, 300, 'c');
  usleep(500);
  EXPECT_FALSE(mutex.try_lock());
  pthread_mutex_t* const plain = mutex.native_handle();
  const timespec soon = {1000, 700'000};  // on CLOCK_MONOTONIC, as no date lies there
  EXPECT_EQ(pthread_mutex_timedlock(plain, &soon), ETIMEDOUT);
  a.join();
  b.join();
  c.join();
  EXPECT_EQ(order, "abcabc");
}

TEST_P(VirtualTimeTest, ConditionsSemaphoresAndTheirLimits) {
  const VirtualTime time;
  std::mutex mutex;
  std::condition_variable ready;
  int goods = 0;
  std::vector<int> taken;
  const auto taker = [&](int name) {
    std::unique_lock hold(mutex);
    ready.wait(hold, [&] { return goods > 0; });
    --goods;
    taken.push_back(name);
  };
  std::thread one(taker, 1);
  std::thread two(taker, 2);
  usleep(10);
  for (int i = 0; i < 2; ++i) {
    const std::lock_guard hold(mutex);
    ++goods;
    ready.notify_one();
  }
  one.join();
  two.join();
  EXPECT_THAT(taken, ElementsAre(1, 2));
  {
    std::unique_lock hold(mutex);
    const long long start = MonotonicMillis();
    EXPECT_EQ(ready.wait_for(hold, Seconds(5)), std::cv_status::timeout);
    EXPECT_EQ(MonotonicMillis() - start, 5000);
  }
  sem_t semaphore;
  sem_init(&semaphore, 0, 0);
  std::thread poster([&] {
    sleep(3);
    sem_post(&semaphore);
  });
  timespec limit{};
  clock_gettime(CLOCK_REALTIME, &limit);
  limit.tv_sec += 1;
  EXPECT_EQ(sem_timedwait(&semaphore, &limit), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(sem_wait(&semaphore), 0);
  poster.join();

  pthread_rwlock_t shared = PTHREAD_RWLOCK_INITIALIZER;
  pthread_rwlock_rdlock(&shared);
  pthread_rwlock_rdlock(&shared);
  std::thread writer([&] {
    pthread_rwlock_wrlock(&shared);
    taken.push_back(3);
    pthread_rwlock_unlock(&shared);
  });
  usleep(10);
  EXPECT_EQ(taken.size(), 2U);
  pthread_rwlock_unlock(&shared);
  pthread_rwlock_unlock(&shared);
  writer.join();
  EXPECT_THAT(taken, ElementsAre(1, 2, 3));
}

TEST_P(VirtualTimeTest, AReceiverWaitsWithoutStoppingTime) {
  VirtualTime time;
  const int socketFile = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in any{};
  any.sin_family = AF_INET;
  any.sin_port = htons(1);  // a port that no ordinary program gets
  ASSERT_EQ(bind(socketFile, reinterpret_cast<sockaddr*>(&any), sizeof any), 0);
  TurnLog received;
  std::thread receiver([&] {
    char data[4];
    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t count =
        recvfrom(socketFile, data, sizeof data, 0, reinterpret_cast<sockaddr*>(&from), &length);
    received.Add(std::string(data, static_cast<size_t>(count)) + ":" + std::to_string(ntohs(from.sin_port)));
    sendto(socketFile, "reply", 5, 0, reinterpret_cast<sockaddr*>(&from), length);
  });
  sleep(60);
  EXPECT_EQ(received.Take(), "");
  ASSERT_TRUE(rack::Post(*time.control, "hello"));
  usleep(1000);
  receiver.join();
  EXPECT_EQ(received.Take(), "hell:40000");
  EXPECT_EQ(time.control->replies, 1U);
  close(socketFile);
}

TEST_P(VirtualTimeTest, NumbersThatDifferFromRunToRunAreShownAsFixedOnes) {
  const VirtualTime time;
  pid_t second = 0;
  std::thread([&] { second = gettid(); }).join();
  char directory[100];
  EXPECT_EQ(getpid(), 1000);
  EXPECT_EQ(gettid(), 1000);
  EXPECT_EQ(second, 1001);
  EXPECT_STREQ(getcwd(directory, sizeof directory), ".");
}

TEST_P(VirtualTimeTest, TimeStandsWhereItIsToldUntilTheNextCommand) {
  const auto control = std::make_unique<rack::TimeControl>();
  control->setup.accessNanos = 1000;
  rack::TimeCommand command{};
  command.holdAt = 5 * kSecond;
  rack::OrderAtStart(*control, command);
  std::vector<long long> stands;
  std::thread tool([&] {
    for (std::uint32_t number = 0; number < 2; ++number) {
      while (!rack::Stands(*control, number)) std::this_thread::yield();
      stands.push_back(static_cast<long long>(number));
      rack::TimeCommand next{};
      if (number == 0) next.holdAt = 7 * kSecond;
      rack::Order(*control, next);
    }
  });
  {
    const VirtualTime time(*control);
    rack::SleepUntil(6 * kSecond);
    EXPECT_EQ(control->answered, 1U);
    rack::SleepUntil(8 * kSecond);
    EXPECT_EQ(control->answered, 2U);
    EXPECT_EQ(rack::VirtualNow(), 8 * kSecond);
  }
  tool.join();
  EXPECT_THAT(stands, ElementsAre(0, 1));
}

// Eight threads that work under two locks; what they did and when, as text.
std::string RunOfEight(unsigned seed) {
  const VirtualTime time(seed);
  std::mutex mutexes[2];
  TurnLog log;
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 20; ++i) {
        const std::lock_guard hold(mutexes[(thread + i) % 2]);
        for (int access = 0; access < 5 + thread; ++access) rack::SpendAccess();
        log.Add(std::to_string(thread) + "@" + std::to_string(rack::VirtualNow()) + " ");
        if (i % 5 == thread % 5) usleep(100);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return log.Take();
}

TEST_P(VirtualTimeTest, TheSameSeedGivesTheSameRunAndAnotherOneAnother) {
  const std::string unseeded = RunOfEight(0);
  const std::string seeded = RunOfEight(7);
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(RunOfEight(0), unseeded);
    ASSERT_EQ(RunOfEight(7), seeded);
  }
  EXPECT_NE(seeded, unseeded);
  EXPECT_NE(RunOfEight(8), seeded);
}

TEST_P(VirtualTimeDeathTest, ThreadsThatWaitForEachOtherEndTheRunWithAMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const VirtualTime time;
        std::mutex mutex;
        mutex.lock();
        std::thread([&] { mutex.lock(); }).join();
      },
      testing::ExitedWithCode(86),
      "deadlock at 0.00000. s: thread 1 waits for lock no. 1, held by the main thread; the main thread waits "
      "for "
      "the end of thread 1");
  EXPECT_EXIT(
      {
        const VirtualTime time;
        std::mutex mutex;
        std::condition_variable never;
        std::unique_lock hold(mutex);
        never.wait(hold);
      },
      testing::ExitedWithCode(86), "every thread waits for another one, at 0.00000. s");
}

}  // namespace
