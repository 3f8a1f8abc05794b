#include "waits.h"

#include <cerrno>

void PauseMicros(long long micros) {
  if (micros <= 0) return;
  timespec rest = {static_cast<time_t>(micros / 1000000), static_cast<long>(micros % 1000000) * 1000};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

bool ProcessorTicks::Over() const {
  // Ticks of 32 bits run over within the hour: a signed difference would be undefined then.
  const clock_t passed =
      static_cast<clock_t>(static_cast<unsigned long>(clock()) - static_cast<unsigned long>(Start));
  return (passed < 0 ? -passed : passed) > Limit;
}

RealSeconds::RealSeconds(int limit) : Limit(limit), Start() {
  clock_gettime(CLOCK_MONOTONIC, &Start);
}

bool RealSeconds::Over() const {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  const long long seconds =
      static_cast<long long>(now.tv_sec) - Start.tv_sec - (now.tv_nsec < Start.tv_nsec ? 1 : 0);
  return seconds >= Limit;
}
