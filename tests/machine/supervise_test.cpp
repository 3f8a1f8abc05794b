// The start of the controller's process, as a program of several threads makes it.
#include "machine/supervise.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

namespace {

constexpr int kHeapUsed = 99;
bool behindFork = false;  // in the child only

void* Take(std::size_t size) {
  if (behindFork) _exit(kHeapUsed);
  return std::malloc(size);
}

}  // namespace

// Another thread may hold the heap's lock at the fork, for ever as the child sees it.
void* operator new(std::size_t size) {
  void* const memory = Take(size);
  if (memory == nullptr) std::abort();
  return memory;
}
void operator delete(void* memory) noexcept {
  if (behindFork) _exit(kHeapUsed);
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}

namespace {

TEST(RunControllerTest, TouchesNoHeapBetweenForkAndProgram) {
  ASSERT_EQ(pthread_atfork(nullptr, nullptr, [] { behindFork = true; }), 0);
  rack::Launch launch;
  launch.controller = "/bin/sh";
  launch.arguments = {"-c", "[ \"$VELMO_TEST_WORD\" = word ] && [ $(pwd) = / ] && exit 7"};
  launch.environment = {"VELMO_TEST_WORD=word"};
  launch.directory = "/";
  launch.output = "/dev/null";
  const auto watch = [] { return std::string(); };
  const rack::RunEnd end = rack::RunController(launch, watch);
  EXPECT_EQ(end.error, "");
  EXPECT_TRUE(end.started);
  EXPECT_EQ(end.status, 7);

  launch.directory = "/no/such/folder";
  EXPECT_EQ(rack::RunController(launch, watch).error, "/no/such/folder: No such file or directory");
  launch.directory = "/";
  launch.controller = "/no/such/program";
  const rack::RunEnd none = rack::RunController(launch, watch);
  EXPECT_EQ(none.error, "/no/such/program: No such file or directory");
  EXPECT_FALSE(none.started);
}

TEST(RestartWatchTest, FiveRestartsWithinASecondAreTooMany) {
  rack::RestartWatch slow;
  for (int i = 0; i < 20; ++i) EXPECT_EQ(slow(i * rack::kSecond / 4), "");
  rack::RestartWatch fast;
  fast(0);  // long before the others
  for (int i = 0; i < 4; ++i) EXPECT_EQ(fast(9 * rack::kSecond + i), "");
  EXPECT_EQ(fast(10 * rack::kSecond - 1),
            "the controller has restarted the machine 5 times within a second: it is not started again");
}

}  // namespace
