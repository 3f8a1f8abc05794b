// Where the preloaded library has its time from.
#pragma once

#include "cards/card.h"

namespace rack {

class Clock {
 public:
  virtual ~Clock() = default;
  // On the scale of CLOCK_MONOTONIC.
  virtual Nanos Now() = 0;
};

// The system's clock, until UseClock puts another in its place (null: the system's again).
Clock& CurrentClock();
void UseClock(Clock* clock);

}  // namespace rack
