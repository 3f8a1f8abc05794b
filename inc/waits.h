// The one way to pause and the one way to wait for hardware.
#pragma once

#include <ctime>

// Sleeps at least the given time. 0 or less returns at once. A signal does not shorten it.
void PauseMicros(long long micros);
inline void PauseMillis(long long millis) {
  PauseMicros(millis * 1000);
}

// Limits of a wait. Each counts from its construction; Over() is asked once after every poll that was not met.

// Processor time of the whole process, in ticks of clock() (microseconds on the board): over when more have passed.
class ProcessorTicks {
 public:
  explicit ProcessorTicks(clock_t limit) : Limit(limit), Start(clock()) {}
  bool Over() const;

 private:
  clock_t Limit;
  clock_t Start;
};

// Real time, in seconds.
class RealSeconds {
 public:
  explicit RealSeconds(int limit);
  bool Over() const;

 private:
  int Limit;
  timespec Start;
};

// A number of polls.
class Attempts {
 public:
  explicit Attempts(int limit) : Left(limit) {}
  bool Over() { return --Left <= 0; }

 private:
  int Left;
};

constexpr long long kNoPause = 0;

// Polls until the condition is met (true) or the limit is over (false), with the given pause between two polls.
// The condition is asked at least once, whatever the limit.
template <class Limit, class Condition>
bool PollUntil(Limit limit, long long pauseMicros, Condition met) {
  for (;;) {
    if (met()) return true;
    if (limit.Over()) return false;
    PauseMicros(pauseMicros);
  }
}
