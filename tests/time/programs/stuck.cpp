// In the controller's place: cannot go on in virtual time, in the way that the argument names.
#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
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

void EpollInNanos() {
  epoll_event event{};
  const timespec limit = {1, 0};
  epoll_pwait2(epoll_create1(0), &event, 1, &limit, nullptr);
}

void Timer() {
  timerfd_create(CLOCK_MONOTONIC, 0);
}

void Flock() {
  flock(open("lock", O_RDWR | O_CREAT, 0644), LOCK_EX);
}

void RecordLock() {
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  fcntl(open("lock", O_RDWR | O_CREAT, 0644), F_SETLKW, &whole);
}

// A regular file does not wait.
void Pipe() {
  int ends[2];
  char byte = 0;
  const bool written = pipe(ends) == 0 && write(open("file", O_RDWR | O_CREAT, 0644), &byte, 1) == 1;
  if (written && read(open("file", O_RDONLY), &byte, 1) == 1 && read(ends[0], &byte, 1) < 0)
    std::perror("read");
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

// Without end, on a thread's own stack; another thread's lies somewhere below.
int Deep(int depth) {
  volatile char room[2000] = {};
  return depth == 0 ? 0 : Deep(depth + 1) + room[0];
}

void Overflow() {
  std::thread([] {
    for (;;) sleep(1);
  }).detach();
  std::thread([] { Deep(1); }).join();
}

// Prints, and is killed with the last lines on their way.
void Lines() {
  for (int i = 0; i < 3000; ++i) {
    char line[40];
    const int length = std::snprintf(line, sizeof line, "line %d\n", i);
    if (write(STDOUT_FILENO, line, static_cast<std::size_t>(length)) != length) return;
    if (i == 1000 && write(STDERR_FILENO, "an error\n", 9) != 9) return;
    if (i == 2000) usleep(1000);
  }
  std::raise(SIGKILL);
}

void Kill() {
  pthread_kill(pthread_self(), 0);
}

// Reads the next line of a task's program, as its runner does: always at the same place of the code.
[[gnu::noinline]] void ReadLine(FILE* program) {
  char line[100];
  if (program == nullptr || fgets(line, sizeof line, program) == nullptr) std::abort();
}

// A task stands at its first line and waits for the lock.
std::thread Waiting(const char* path, std::mutex& lock) {
  return std::thread([path, &lock] {
    ReadLine(std::fopen(path, "rt"));
    const std::lock_guard wait(lock);
  });
}

// Task 2 holds a lock over its second line, a thread that has ended and the main thread hold one each, and so three tasks
// wait.
void Holders() {
  std::mutex nameless;
  const std::lock_guard hold(nameless);
  std::thread([] { Window.lock(); }).join();
  std::thread holder([] {
    FILE* const program = std::fopen("plc2/RESET.PLC", "rt");
    ReadLine(program);
    const std::lock_guard door(Door);
    sleep(5);
    ReadLine(program);
    for (;;) sleep(3600);
  });
  usleep(1000);
  std::thread waiting[] = {Waiting("plc1/RESET.PLC", Door), Waiting("plc3/RESET.PLC", Window),
                           Waiting("plc4/RESET.PLC", nameless)};
  holder.join();
  for (std::thread& each : waiting) each.join();
}

struct Way {
  const char* name;
  void (*run)();
};
constexpr Way kWays[] = {{"epoll", Epoll},     {"nanos", EpollInNanos}, {"timer", Timer},
                         {"flock", Flock},     {"record", RecordLock},  {"pipe", Pipe},
                         {"number", Number},   {"inside", Inside},      {"circle", Circle},
                         {"readers", Readers}, {"self", Self},          {"overflow", Overflow},
                         {"kill", Kill},       {"holders", Holders},    {"lines", Lines}};

}  // namespace

int main(int count, char** words) {
  for (const Way& way : kWays) {
    if (count > 1 && std::strcmp(words[1], way.name) == 0) way.run();
  }
  Circle();  // in a scenario, whose argument is the number of tasks
}
