// C++ libraries wait by the kernel's futex: a latch, an atomic's wait, a local static that two threads come to at once.
#include "time/system_calls.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iterator>

#include "preload/next.h"
#include "time/locks.h"
#include "time/scheduler.h"
#include "time/shown_time.h"

namespace rack {
namespace {

// They neither wait nor tell the time.
constexpr long kPassedOn[] = {
    SYS_getrandom,
    SYS_membarrier,
    SYS_memfd_create,
    SYS_getppid,
    SYS_getuid,
    SYS_geteuid,
    SYS_prctl,
    SYS_capget,
    SYS_capset,
    SYS_madvise,
    SYS_getcpu,
    SYS_exit_group,
    SYS_sched_getaffinity,
    SYS_statx,
};

template <class Value>
Value* Pointer(long argument) {
  return reinterpret_cast<Value*>(argument);
}

bool WaitsOnFutex(long operation) {
  return operation == FUTEX_WAIT || operation == FUTEX_WAIT_BITSET;
}

clockid_t ClockOfFutex(long operation) {
  return (operation & FUTEX_CLOCK_REALTIME) != 0 ? CLOCK_REALTIME : CLOCK_MONOTONIC;
}

long AnswerFutex(const long (&arguments)[6]) {
  auto* const word = Pointer<const std::uint32_t>(arguments[0]);
  const auto value = static_cast<std::uint32_t>(arguments[2]);
  const auto* const time = Pointer<const timespec>(arguments[3]);
  const bool anyBit = static_cast<std::uint32_t>(arguments[5]) == FUTEX_BITSET_MATCH_ANY;
  const long operation = arguments[1] & FUTEX_CMD_MASK;
  if (operation == FUTEX_WAIT) {
    return WaitFutex(word, value, time == nullptr ? kForEver : VirtualNow() + ToNanos(*time));
  }
  if (operation == FUTEX_WAIT_BITSET && anyBit) {
    return WaitFutex(word, value,
                     time == nullptr ? kForEver : PointOfTime(ClockOfFutex(arguments[1]), *time));
  }
  if (operation == FUTEX_WAKE || (operation == FUTEX_WAKE_BITSET && anyBit)) {
    return WakeFutex(word, static_cast<int>(value));
  }
  char call[48];
  std::snprintf(call, sizeof call, "syscall: futex, operation %ld", operation);
  Refuse(call);
}

long FromError(int error) {
  errno = error;
  return error == 0 ? 0 : -1;
}

// The calls of the clock, as the functions of the same names answer them.
bool AnswerClockCall(long number, const long (&arguments)[6], long& result) {
  switch (number) {
    case SYS_nanosleep:
      result = nanosleep(Pointer<const timespec>(arguments[0]), Pointer<timespec>(arguments[1]));
      return true;
    case SYS_clock_nanosleep:
      result =
          FromError(clock_nanosleep(static_cast<clockid_t>(arguments[0]), static_cast<int>(arguments[1]),
                                    Pointer<const timespec>(arguments[2]), Pointer<timespec>(arguments[3])));
      return true;
    case SYS_clock_gettime:
      result = clock_gettime(static_cast<clockid_t>(arguments[0]), Pointer<timespec>(arguments[1]));
      return true;
  }
  return false;
}

}  // namespace

void RefuseIfItWaits(int descriptor) {
  struct stat status = {};
  if (fstat(descriptor, &status) != 0) return;
  if (S_ISFIFO(status.st_mode)) Refuse("read of a pipe");
  if (S_ISSOCK(status.st_mode)) Refuse("read of a socket");
  if (isatty(descriptor) == 1) Refuse("read of a terminal");
}

bool ScaleSystemCall(long number, const long (&arguments)[6], long& result) {
  static Next next(calls::syscall);
  if (AnswerClockCall(number, arguments, result)) return true;
  const long operation = arguments[1] & FUTEX_CMD_MASK;
  if (number != SYS_futex || !WaitsOnFutex(operation) || arguments[3] == 0) return false;
  const timespec& time = *Pointer<const timespec>(arguments[3]);
  const timespec real = operation == FUTEX_WAIT ? ToTimespec(RealLength(ToNanos(time)))
                                                : RealPoint(ClockOfFutex(arguments[1]), time);
  result = next(number, arguments[0], arguments[1], arguments[2], &real, arguments[4], arguments[5]);
  return true;
}

bool AnswerSystemCall(long number, const long (&arguments)[6], long& result) {
  if (AnswerClockCall(number, arguments, result)) return true;
  switch (number) {
    case SYS_futex:
      result = AnswerFutex(arguments);
      return true;
    case SYS_sched_yield:
      result = sched_yield();
      return true;
    case SYS_gettid:
      result = gettid();
      return true;
    case SYS_getpid:
      result = getpid();
      return true;
  }
  if (std::find(std::begin(kPassedOn), std::end(kPassedOn), number) != std::end(kPassedOn)) return false;
  char call[48];
  std::snprintf(call, sizeof call, "syscall with the number %ld", number);
  Refuse(call);
}

}  // namespace rack
