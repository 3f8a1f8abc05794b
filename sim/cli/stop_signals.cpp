#include "cli/stop_signals.h"

#include <ctime>

namespace rack::cli {

StopSignals::StopSignals() {
  sigemptyset(&taken_);
  sigaddset(&taken_, SIGINT);
  sigaddset(&taken_, SIGTERM);
  sigprocmask(SIG_BLOCK, &taken_, &before_);
}

StopSignals::~StopSignals() {
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool StopSignals::Within(int millis) const {
  const timespec limit = {millis / 1000, static_cast<long>(millis % 1000) * 1'000'000};
  return sigtimedwait(&taken_, nullptr, &limit) > 0;
}

}  // namespace rack::cli
