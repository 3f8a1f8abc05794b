// C++ libraries wait by the kernel's futex: a latch, an atomic's wait, a local static that two threads come to at once.
#include "time/system_calls.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iterator>

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

long AnswerFutex(const long (&arguments)[6]) {
  auto* const word = Pointer<const std::uint32_t>(arguments[0]);
  const auto value = static_cast<std::uint32_t>(arguments[2]);
  const auto* const time = Pointer<const timespec>(arguments[3]);
  const bool anyBit = static_cast<std::uint32_t>(arguments[5]) == FUTEX_BITSET_MATCH_ANY;
  const clockid_t clock = (arguments[1] & FUTEX_CLOCK_REALTIME) != 0 ? CLOCK_REALTIME : CLOCK_MONOTONIC;
  const long operation = arguments[1] & FUTEX_CMD_MASK;
  if (operation == FUTEX_WAIT) {
    return WaitFutex(word, value, time == nullptr ? kForEver : VirtualNow() + ToNanos(*time));
  }
  if (operation == FUTEX_WAIT_BITSET && anyBit) {
    return WaitFutex(word, value, time == nullptr ? kForEver : PointOfTime(clock, *time));
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

}  // namespace

bool AnswerSystemCall(long number, const long (&arguments)[6], long& result) {
  switch (number) {
    case SYS_futex:
      result = AnswerFutex(arguments);
      return true;
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
