// The time that the controller's calls are answered with: real, scaled or virtual.
#pragma once

#include <sys/types.h>

#include <ctime>

#include "cards/card.h"

namespace rack {

// From now on the clocks run so many times as fast; 1: real time again.
void ScaleTime(double factor);
bool IsScaled();

// As clock_gettime; for a thread in its turn by virtual time, else by scaled time. REQUIRES: one of the two.
timespec ClockTime(clockid_t clock);
// A point of time of that clock, since power-on. Conditions and semaphores do not say which clock they mean:
// CLOCK_REALTIME stands for either then, as their times lie far apart.
Nanos PointOfTime(clockid_t clock, const timespec& time);
// Scaled time: the same point on the system's own clock.
timespec RealPoint(clockid_t clock, const timespec& time);
// Scaled time: how long this is in real time.
Nanos RealLength(Nanos length);

// CLOCK_MONOTONIC of the system, whatever the controller is shown.
Nanos RealMonotonic();

Nanos ToNanos(const timespec& time);
timespec ToTimespec(Nanos time);

}  // namespace rack
