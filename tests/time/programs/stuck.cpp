// In the controller's place: cannot go on in virtual time, in the way that the argument names.
#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <thread>

std::mutex Door;
std::mutex Window;
std::shared_mutex Plan;

namespace {

void Epoll() {
  epoll_event event{};
  epoll_wait(epoll_create1(0), &event, 1, 1000);
}

void Timer() {
  timerfd_create(CLOCK_MONOTONIC, 0);
}

void Flock() {
  flock(open("lock", O_RDWR | O_CREAT, 0644), LOCK_EX);
}

void Number() {
  syscall(SYS_ppoll, nullptr, 0, nullptr, nullptr, 0);
}

// Waits inside the C library, where nothing is answered.
void Inside() {
  int ends[2];
  if (pipe(ends) == 0) getc(fdopen(ends[0], "r"));
}

// Takes the two in opposite order, while a third thread sleeps on.
void Circle() {
  std::thread other([] {
    const std::lock_guard window(Window);
    usleep(1000);
    const std::lock_guard door(Door);
  });
  std::thread([] {
    for (;;) sleep(3600);
  }).detach();
  const std::lock_guard door(Door);
  usleep(2000);
  const std::lock_guard window(Window);
  other.join();
}

// Waits for the writer that waits until this reader, one of two, has left.
void Readers() {
  Plan.lock_shared();
  std::thread writer([] {
    Door.lock();
    Plan.lock();
  });
  std::thread([] {
    Plan.lock_shared();
    for (;;) sleep(3600);
  }).detach();
  usleep(1000);
  Door.lock();
  writer.join();
}

void Self() {
  std::mutex nameless;
  nameless.lock();
  nameless.lock();
}

struct Way {
  const char* name;
  void (*run)();
};
constexpr Way kWays[] = {{"epoll", Epoll},   {"timer", Timer},   {"flock", Flock},     {"number", Number},
                         {"inside", Inside}, {"circle", Circle}, {"readers", Readers}, {"self", Self}};

}  // namespace

int main(int count, char** words) {
  for (const Way& way : kWays) {
    if (count > 1 && std::strcmp(words[1], way.name) == 0) way.run();
  }
  Circle();  // in a scenario, whose argument is the number of tasks
}
