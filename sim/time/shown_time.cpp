#include "time/shown_time.h"

#include <atomic>
#include <cerrno>

#include "preload/next.h"
#include "time/scheduler.h"

namespace rack {
namespace {

// What CLOCK_REALTIME shows at power-on in virtual time: the same in every run.
constexpr Nanos kVirtualDate = 1'577'836'800 * kSecond;

// Written before the controller's first thread starts.
double Factor = 1;
Nanos MonotonicStart = 0;
Nanos RealtimeStart = 0;

Nanos SystemTime(clockid_t clock) {
  static Next next(calls::clock_gettime);
  timespec now{};
  next(clock, &now);
  return ToNanos(now);
}

bool IsDate(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

bool IsProcessorTime(clockid_t clock) {
  return clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID;
}

// Where scaled time begins on this clock.
Nanos ScaledStart(clockid_t clock) {
  if (IsProcessorTime(clock)) return 0;
  return IsDate(clock) ? RealtimeStart : MonotonicStart;
}

Nanos VirtualClock(clockid_t clock) {
  if (IsProcessorTime(clock)) return BusyTime();
  return VirtualNow() + (IsDate(clock) ? kVirtualDate : kVirtualPowerOn);
}

}  // namespace

Nanos ToNanos(const timespec& time) {
  return time.tv_sec * kSecond + time.tv_nsec;
}

timespec ToTimespec(Nanos time) {
  return {static_cast<time_t>(time / kSecond), static_cast<long>(time % kSecond)};
}

void ScaleTime(double factor) {
  Factor = factor;
  MonotonicStart = SystemTime(CLOCK_MONOTONIC);
  RealtimeStart = SystemTime(CLOCK_REALTIME);
}

bool IsScaled() {
  return Factor != 1;
}

timespec ClockTime(clockid_t clock) {
  if (InTurn()) {
    SpendCall();
    return ToTimespec(VirtualClock(clock));
  }
  const Nanos start = ScaledStart(clock);
  const auto passed = static_cast<double>(SystemTime(clock) - start);
  return ToTimespec(start + static_cast<Nanos>(passed * Factor));
}

Nanos PointOfTime(clockid_t clock, const timespec& time) {
  const Nanos point = ToNanos(time);
  return point - (IsDate(clock) && point >= kVirtualDate ? kVirtualDate : kVirtualPowerOn);
}

timespec RealPoint(clockid_t clock, const timespec& time) {
  const Nanos start = ScaledStart(clock);
  return ToTimespec(start + RealLength(ToNanos(time) - start));
}

Nanos RealMonotonic() {
  return SystemTime(CLOCK_MONOTONIC);
}

Nanos RealLength(Nanos length) {
  return static_cast<Nanos>(static_cast<double>(length) / Factor);
}

}  // namespace rack
