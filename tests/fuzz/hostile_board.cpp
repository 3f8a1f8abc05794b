#include "hostile_board.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>

namespace fuzz {
namespace {

constexpr int kDevice = 1000;
constexpr long kSecondsPerAccess = 3;  // a wait of a minute is twenty polls

// Only the thread that tries an input sees it: the fuzzer has others.
thread_local HostileBoard* Current = nullptr;

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void CountCall() {
  if (--Current->left <= 0) throw RunOver();
}

void CountAccess() {
  CountCall();
  ++Current->ticks;
  Current->seconds += kSecondsPerAccess;
}

void CheckSelection() {
  const bool isRight = Current->slot < 0 || (Current->isSelected && Current->selected == Current->slot);
  Current->isSelected = false;
  Require(isRight, "each access of a card follows the selection of its slot");
}

ssize_t ReadBus(unsigned char* exchange, std::size_t size) {
  Require(size == 1, "a bus read is of one byte");
  CountAccess();
  CheckSelection();
  exchange[0] = Current->bus.Byte(0xFF);
  if (exchange[0] != HostileBoard::kReadFails) return 1;
  errno = EIO;
  return -1;
}

ssize_t WriteBus(const unsigned char* exchange, std::size_t size) {
  Require(size == 2, "a bus write is of two bytes");
  CountAccess();
  if (exchange[1] != 0 || Current->isSelected) {
    CheckSelection();
    return 2;
  }
  Current->selected = exchange[0];
  Current->isSelected = Current->slot >= 0;
  return 2;
}

ssize_t WriteConsole(const char* text, std::size_t size) {
  CountCall();
  enum { Taken, InPart, NotAtAll, Interrupted };
  const int answer = Current->console.Byte(Taken) % 4;
  if (answer == NotAtAll || answer == Interrupted) {
    errno = answer == NotAtAll ? EAGAIN : EINTR;
    return -1;
  }
  const std::size_t part = answer == InPart ? std::max<std::size_t>(1, size / 3) : size;
  Current->printed.append(text, part);
  return static_cast<ssize_t>(part);
}

}  // namespace

HostileBoard::HostileBoard() {
  Current = this;
}
HostileBoard::~HostileBoard() {
  Current = nullptr;
}

}  // namespace fuzz

using fuzz::Current;
using fuzz::Next;

extern "C" {

int open(const char* path, int flags, ...) {
  if (std::strcmp(path, "/dev/em_isa") == 0) return fuzz::kDevice;
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = va_arg(arguments, unsigned);
  va_end(arguments);
  return Next<int(const char*, int, ...)>("open")(path, flags, mode);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
  if (descriptor == fuzz::kDevice && Current != nullptr)
    return fuzz::ReadBus(static_cast<unsigned char*>(buffer), size);
  return Next<ssize_t(int, void*, size_t)>("read")(descriptor, buffer, size);
}

ssize_t write(int descriptor, const void* buffer, size_t size) {
  if (descriptor == fuzz::kDevice && Current != nullptr) {
    return fuzz::WriteBus(static_cast<const unsigned char*>(buffer), size);
  }
  if (descriptor == STDOUT_FILENO && Current != nullptr) {
    return fuzz::WriteConsole(static_cast<const char*>(buffer), size);
  }
  return Next<ssize_t(int, const void*, size_t)>("write")(descriptor, buffer, size);
}

int nanosleep(const timespec* length, timespec* rest) {
  if (Current == nullptr) return Next<int(const timespec*, timespec*)>("nanosleep")(length, rest);
  fuzz::CountCall();
  Current->ticks += length->tv_nsec / 1000;
  Current->seconds += length->tv_sec;
  if (Current->onPause) Current->onPause();
  return 0;
}

// Wakes for no reason, as it may. What happens meanwhile takes the lock.
int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  if (Current == nullptr) {
    return Next<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait")(condition, mutex);
  }
  fuzz::CountCall();
  pthread_mutex_unlock(mutex);
  if (Current->onPause) Current->onPause();
  pthread_mutex_lock(mutex);
  return 0;
}

clock_t clock() noexcept {
  return Current == nullptr ? Next<clock_t()>("clock")() : Current->ticks;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const int result = Next<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  if (Current != nullptr && clock == CLOCK_MONOTONIC) time->tv_sec += Current->seconds;
  return result;
}
}
