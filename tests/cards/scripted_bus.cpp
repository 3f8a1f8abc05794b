#include "scripted_bus.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "drvlib.h"

namespace {
constexpr int kFirstHandle = 1000;
const char* const kDevices[] = {"/dev/em_isa", "/dev/em335x_isa"};

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool IsDriver(int fd) {
  return fd == kFirstHandle || fd == kFirstHandle + 1;
}
}  // namespace

ScriptedBus& ScriptedBus::Get() {
  static ScriptedBus bus;
  return bus;
}

void ScriptedBus::Reset() {
  if (!Started) StartText = Text;
  Started = true;
  DeviceThere = {true, true};
  FailReads = false;
  Yield = false;
  TicksPerAccess = 1;
  SecondsPerAccess = 0;
  OnRead = nullptr;
  Selected = 0;
  Answers.clear();
  Latches.clear();
  LastWritten.clear();
  Entries.clear();
  Text.clear();
}

void ScriptedBus::Answer(int slot, int port, std::vector<int> values) {
  Answers[{slot, port}] = std::move(values);
}
void ScriptedBus::ReadBack(int slot, int port, int value) {
  Latches[{slot, port}] = value;
}

int ScriptedBus::Written(int slot, int port) {
  const std::lock_guard hold(Lock);
  return LastWritten[{slot, port}];
}

std::string ScriptedBus::Log() {
  std::string log;
  for (const std::string& entry : Entries) log += (log.empty() ? "" : " ") + entry;
  Entries.clear();
  return log;
}

std::string ScriptedBus::Log(int slot) {
  char select[8];
  std::snprintf(select, sizeof select, "0<%x", slot);
  std::string log;
  bool selected = false;
  for (const std::string& entry : Entries) {
    if (!selected && entry == select) {
      selected = true;
      continue;
    }
    if (!selected && entry[0] != '~') log += " UNSELECTED";
    log += (log.empty() ? "" : " ") + entry;
    selected = false;
  }
  Entries.clear();
  return log;
}

std::string ScriptedBus::Console() {
  return std::exchange(Text, "");
}

void ScriptedBus::Note(const std::string& entry) {
  Entries.push_back(entry);
  TickCount += TicksPerAccess;
  SecondCount += SecondsPerAccess;
}

int ScriptedBus::Open(const std::string& path) {
  for (size_t i = 0; i < 2; i++) {
    if (path == kDevices[i]) return DeviceThere[i] ? kFirstHandle + static_cast<int>(i) : -1;
  }
  return -2;
}

long ScriptedBus::Read(unsigned char* exchange, size_t length) {
  if (Yield) sched_yield();
  const std::lock_guard hold(Lock);
  const int port = exchange[0];
  const std::pair<int, int> key(Selected, port);
  int value = 0xFF;
  if (auto dynamic = OnRead ? OnRead(Selected, port) : std::nullopt) {
    value = *dynamic;
  } else if (auto latch = Latches.find(key); latch != Latches.end()) {
    value = latch->second;
  } else if (auto answers = Answers.find(key); answers != Answers.end()) {
    value = answers->second.front();
    if (answers->second.size() > 1) answers->second.erase(answers->second.begin());
  }
  char entry[32];
  std::snprintf(entry, sizeof entry, length == 1 ? "%d>%02x" : "%d>%02x(wrong length)", port,
                FailReads ? -1 : value);
  if (FailReads) std::snprintf(entry, sizeof entry, "%d>failed", port);
  Note(entry);
  if (FailReads) return -1;
  exchange[0] = static_cast<unsigned char>(value);
  return 1;
}

long ScriptedBus::Write(const unsigned char* exchange, size_t length) {
  if (Yield) sched_yield();
  const std::lock_guard hold(Lock);
  const int value = exchange[0];
  const int port = exchange[1];
  if (port == 0) Selected = value;
  const std::pair<int, int> key(Selected, port);
  LastWritten[key] = value;
  if (auto latch = Latches.find(key); latch != Latches.end()) latch->second = value;
  char entry[32];
  std::snprintf(entry, sizeof entry, length == 2 ? "%d<%x" : "%d<%x(wrong length)", port, value);
  Note(entry);
  return 2;
}

void ScriptedBus::Print(const char* text, size_t length) {
  const std::lock_guard hold(Lock);
  Text.append(text, length);
}

void ScriptedBus::Pause(long long micros) {
  const std::lock_guard hold(Lock);
  Entries.push_back("~" + std::to_string(micros));
}

long ScriptedBus::Ticks() {
  const std::lock_guard hold(Lock);
  return TickCount;
}

long ScriptedBus::SecondsAhead() {
  const std::lock_guard hold(Lock);
  return SecondCount;
}

CardTest::CardTest() : bus(ScriptedBus::Get()) {
  bus.Reset();
  pthread_mutex_init(&HardLock, nullptr);
  pthread_mutex_init(&DispLock, nullptr);
}

// The system calls of the controller, which the test program answers in the C library's place.
extern "C" {

int open(const char* path, int flags, ...) {
  const int scripted = ScriptedBus::Get().Open(path);
  if (scripted != -2) return scripted;
  va_list arguments;
  va_start(arguments, flags);
  const unsigned int mode = va_arg(arguments, unsigned int);
  va_end(arguments);
  return Next<int(const char*, int, ...)>("open")(path, flags, mode);
}

ssize_t read(int fd, void* buffer, size_t length) {
  if (IsDriver(fd)) return ScriptedBus::Get().Read(static_cast<unsigned char*>(buffer), length);
  return Next<ssize_t(int, void*, size_t)>("read")(fd, buffer, length);
}

ssize_t write(int fd, const void* buffer, size_t length) {
  if (IsDriver(fd)) return ScriptedBus::Get().Write(static_cast<const unsigned char*>(buffer), length);
  if (fd != 1) return Next<ssize_t(int, const void*, size_t)>("write")(fd, buffer, length);
  ScriptedBus::Get().Print(static_cast<const char*>(buffer), length);
  return static_cast<ssize_t>(length);
}

int close(int fd) {
  if (fd < 0 || IsDriver(fd)) return 0;
  return Next<int(int)>("close")(fd);
}

int nanosleep(const timespec* time, timespec*) {
  ScriptedBus::Get().Pause(static_cast<long long>(time->tv_sec) * 1000000 + time->tv_nsec / 1000);
  return 0;
}

clock_t clock() noexcept {
  return ScriptedBus::Get().Ticks();
}

int clock_gettime(clockid_t clockId, timespec* time) noexcept {
  const int result = Next<int(clockid_t, timespec*)>("clock_gettime")(clockId, time);
  if (result == 0 && clockId == CLOCK_MONOTONIC) time->tv_sec += ScriptedBus::Get().SecondsAhead();
  return result;
}
}
