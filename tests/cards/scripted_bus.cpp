#include "scripted_bus.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "drvlib.h"
#include "files.h"

namespace {

constexpr int kFirstHandle = 1000;

// The bus is used before main and by several threads; the two clocks never run backwards.
struct Driver {
  std::recursive_mutex lock;
  ScriptedBus bus;
  std::string startText;
  long ticks = 0;
  long secondsAhead = 0;
};

Driver& TheDriver() {
  static Driver driver;
  return driver;
}

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool IsDriver(int fd) {
  return fd == kFirstHandle || fd == kFirstHandle + 1;
}

// Records an access; one of a wrong length shows as such.
void Note(int port, char direction, const char* value, bool rightLength) {
  Driver& driver = TheDriver();
  driver.bus.entries.push_back(std::to_string(port) + direction + value + (rightLength ? "" : "(length)"));
  driver.ticks += driver.bus.ticksPerAccess;
  driver.secondsAhead += driver.bus.secondsPerAccess;
}

int NextAnswer(ScriptedBus& bus, int port) {
  if (bus.onRead) {
    if (const auto value = bus.onRead(bus.selected, port)) return *value;
  }
  const auto answers = bus.answers.find({bus.selected, port});
  if (answers == bus.answers.end()) return 0xFF;
  const int value = answers->second.front();
  if (answers->second.size() > 1) answers->second.erase(answers->second.begin());
  return value;
}

ssize_t ReadPort(unsigned char* exchange, size_t length) {
  ScriptedBus& bus = TheDriver().bus;
  if (bus.yield) sched_yield();
  const std::lock_guard hold(TheDriver().lock);
  const int port = exchange[0];
  char value[8] = "failed";
  if (bus.readResult > 0) {
    exchange[0] = static_cast<unsigned char>(NextAnswer(bus, port));
    std::snprintf(value, sizeof value, "%02x", exchange[0]);
  }
  Note(port, '>', value, length == 1);
  return bus.readResult;
}

ssize_t WritePort(const unsigned char* exchange, size_t length) {
  ScriptedBus& bus = TheDriver().bus;
  if (bus.yield) sched_yield();
  const std::lock_guard hold(TheDriver().lock);
  const int port = exchange[1];
  if (port == 0) bus.selected = exchange[0];
  bus.written[{bus.selected, port}] = exchange[0];
  char value[8];
  std::snprintf(value, sizeof value, "%x", exchange[0]);
  Note(port, '<', value, length == 2);
  return 2;
}

}  // namespace

std::string ScriptedBus::Log() {
  std::string log;
  for (const std::string& entry : entries) log += (log.empty() ? "" : " ") + entry;
  entries.clear();
  return log;
}

std::string ScriptedBus::Log(int slot) {
  char select[8];
  std::snprintf(select, sizeof select, "0<%x", slot);
  std::string log;
  bool isSelected = false;
  for (const std::string& entry : entries) {
    const bool selects = !isSelected && entry == select;
    if (!selects) {
      log +=
          (log.empty() ? "" : " ") + std::string(isSelected || entry[0] == '~' ? "" : "UNSELECTED ") + entry;
    }
    isSelected = selects;
  }
  entries.clear();
  return log;
}

const std::string& ConsoleAtStart() {
  return TheDriver().startText;
}

CardTest::CardTest() : bus(TheDriver().bus) {
  static const std::string startText = TheDriver().startText = bus.text;
  bus = ScriptedBus();
  pthread_mutex_init(&HardLock, nullptr);
  pthread_mutex_init(&DispLock, nullptr);
  pthread_mutex_init(&FileLock, nullptr);
}

// The system calls of the controller, which the test program answers in the C library's place.
extern "C" {

int open(const char* path, int flags, ...) {
  const std::string name = path;
  for (int i = 0; i < 2; i++) {
    if (name == (i == 0 ? "/dev/em_isa" : "/dev/em335x_isa")) {
      return TheDriver().bus.deviceThere[static_cast<size_t>(i)] ? kFirstHandle + i : -1;
    }
  }
  va_list arguments;
  va_start(arguments, flags);
  const unsigned int mode = va_arg(arguments, unsigned int);
  va_end(arguments);
  return Next<int(const char*, int, ...)>("open")(path, flags, mode);
}

ssize_t read(int fd, void* buffer, size_t length) {
  if (IsDriver(fd)) return ReadPort(static_cast<unsigned char*>(buffer), length);
  return Next<ssize_t(int, void*, size_t)>("read")(fd, buffer, length);
}

ssize_t write(int fd, const void* buffer, size_t length) {
  if (IsDriver(fd)) return WritePort(static_cast<const unsigned char*>(buffer), length);
  if (fd != 1) return Next<ssize_t(int, const void*, size_t)>("write")(fd, buffer, length);
  const std::lock_guard hold(TheDriver().lock);
  TheDriver().bus.text.append(static_cast<const char*>(buffer), length);
  return static_cast<ssize_t>(length);
}

int close(int fd) {
  return fd < 0 || IsDriver(fd) ? 0 : Next<int(int)>("close")(fd);
}

int nanosleep(const timespec* time, timespec*) {
  if (TheDriver().bus.onPause) TheDriver().bus.onPause();
  const std::lock_guard hold(TheDriver().lock);
  TheDriver().bus.entries.push_back("~" + std::to_string(time->tv_sec * 1000000 + time->tv_nsec / 1000));
  return 0;
}

clock_t clock() noexcept {
  const std::lock_guard hold(TheDriver().lock);
  return TheDriver().ticks;
}

int clock_gettime(clockid_t clockId, timespec* time) noexcept {
  const int result = Next<int(clockid_t, timespec*)>("clock_gettime")(clockId, time);
  const std::lock_guard hold(TheDriver().lock);
  if (clockId == CLOCK_MONOTONIC) time->tv_sec += TheDriver().secondsAhead;
  return result;
}
}
