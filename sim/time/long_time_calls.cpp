// The calls of a controller that is built for times of 64 bits on a processor of 32: the names that the C library has
// for them beside the usual ones. A time of the machine has room in 32 bits, so the usual ones answer.
#include "preload/answered_calls.h"

#if RACK_HAS_LONG_TIMES

#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <limits>

#include "preload/next.h"
#include "time/scheduler.h"
#include "time/shown_time.h"

namespace rack {
namespace {

bool IsControlled() {
  return InTurn() || IsScaled();
}

// A time beyond what fits is as far away as can be told.
time_t Narrow(std::int64_t seconds) {
  using Limits = std::numeric_limits<time_t>;
  return static_cast<time_t>(std::clamp<std::int64_t>(seconds, Limits::min(), Limits::max()));
}

timespec Narrow(const LongTimespec& time) {
  return {Narrow(time.seconds), static_cast<long>(time.nanos)};
}

LongTimespec Widen(const timespec& time) {
  return {time.tv_sec, static_cast<std::int32_t>(time.tv_nsec), 0};
}

}  // namespace
}  // namespace rack

using rack::IsControlled;
using rack::LongTimespec;
using rack::LongTimeval;
using rack::Narrow;
using rack::Next;
using rack::Widen;

// A wait up to a point of time, `until`; `point` is the same for the usual call.
#define RACK_LONG_WAIT(name, parameters, passed, narrowed)       \
  int __##name##64 parameters {                                  \
    static Next next(rack::calls::__##name##64);                 \
    if (!IsControlled() || until == nullptr) return next passed; \
    const timespec point = Narrow(*until);                       \
    return name narrowed;                                        \
  }

extern "C" {

RACK_LONG_WAIT(pthread_mutex_timedlock, (pthread_mutex_t * mutex, const LongTimespec* until) noexcept,
               (mutex, until), (mutex, &point))
RACK_LONG_WAIT(pthread_mutex_clocklock,
               (pthread_mutex_t * mutex, clockid_t clock, const LongTimespec* until) noexcept,
               (mutex, clock, until), (mutex, clock, &point))
RACK_LONG_WAIT(pthread_cond_timedwait,
               (pthread_cond_t * condition, pthread_mutex_t* mutex, const LongTimespec* until),
               (condition, mutex, until), (condition, mutex, &point))
RACK_LONG_WAIT(pthread_cond_clockwait,
               (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock,
                const LongTimespec* until),
               (condition, mutex, clock, until), (condition, mutex, clock, &point))
RACK_LONG_WAIT(pthread_rwlock_timedrdlock, (pthread_rwlock_t * lock, const LongTimespec* until) noexcept,
               (lock, until), (lock, &point))
RACK_LONG_WAIT(pthread_rwlock_timedwrlock, (pthread_rwlock_t * lock, const LongTimespec* until) noexcept,
               (lock, until), (lock, &point))
RACK_LONG_WAIT(pthread_rwlock_clockrdlock,
               (pthread_rwlock_t * lock, clockid_t clock, const LongTimespec* until) noexcept,
               (lock, clock, until), (lock, clock, &point))
RACK_LONG_WAIT(pthread_rwlock_clockwrlock,
               (pthread_rwlock_t * lock, clockid_t clock, const LongTimespec* until) noexcept,
               (lock, clock, until), (lock, clock, &point))
RACK_LONG_WAIT(sem_timedwait, (sem_t * semaphore, const LongTimespec* until), (semaphore, until),
               (semaphore, &point))
RACK_LONG_WAIT(sem_clockwait, (sem_t * semaphore, clockid_t clock, const LongTimespec* until),
               (semaphore, clock, until), (semaphore, clock, &point))

int __nanosleep64(const LongTimespec* length, LongTimespec* rest) {
  static Next next(rack::calls::__nanosleep64);
  if (!IsControlled()) return next(length, rest);
  const timespec plain = Narrow(*length);
  timespec left = {};
  const int result = nanosleep(&plain, &left);
  if (result != 0 && rest != nullptr) *rest = Widen(left);
  return result;
}

int __clock_nanosleep_time64(clockid_t clock, int flags, const LongTimespec* time, LongTimespec* rest) {
  static Next next(rack::calls::__clock_nanosleep_time64);
  if (!IsControlled()) return next(clock, flags, time, rest);
  const timespec plain = Narrow(*time);
  timespec left = {};
  const int result = clock_nanosleep(clock, flags, &plain, &left);
  if (result != 0 && rest != nullptr) *rest = Widen(left);
  return result;
}

int __clock_gettime64(clockid_t clock, LongTimespec* time) noexcept {
  static Next next(rack::calls::__clock_gettime64);
  if (!IsControlled()) return next(clock, time);
  *time = Widen(rack::ClockTime(clock));
  return 0;
}

int __gettimeofday64(LongTimeval* time, void* zone) noexcept {
  static Next next(rack::calls::__gettimeofday64);
  if (!IsControlled()) return next(time, zone);
  const timespec now = rack::ClockTime(CLOCK_REALTIME);
  *time = {now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

std::int64_t __time64(std::int64_t* place) noexcept {
  static Next next(rack::calls::__time64);
  if (!IsControlled()) return next(place);
  const std::int64_t now = rack::ClockTime(CLOCK_REALTIME).tv_sec;
  if (place != nullptr) *place = now;
  return now;
}

int __select64(int count, fd_set* read, fd_set* write, fd_set* except, LongTimeval* limit) {
  static Next next(rack::calls::__select64);
  if (!IsControlled()) return next(count, read, write, except, limit);
  if (limit == nullptr) return select(count, read, write, except, nullptr);
  timeval plain = {Narrow(limit->seconds), static_cast<suseconds_t>(limit->micros)};
  return select(count, read, write, except, &plain);
}

// The argument is taken also where the caller has given none.
[[gnu::no_sanitize_address]] int __fcntl_time64(int descriptor, int command, ...) {
  va_list rest;
  va_start(rest, command);
  const long argument = va_arg(rest, long);
  va_end(rest);
  return fcntl64(descriptor, command, argument);
}

}  // extern "C"

RACK_ARE_DEFINED(RACK_LONG_TIME_CALLS)

#endif
