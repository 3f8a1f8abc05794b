#include "cli/stop_signals.h"

#include <ctime>
#include <initializer_list>

namespace rack::cli {

StopSignals::StopSignals() {
  sigemptyset(&taken_);
  for (const int signal : {SIGINT, SIGTERM, SIGQUIT, SIGHUP}) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    // One that is ignored, as under nohup, would be found all the same once it is blocked.
    if (action.sa_handler != SIG_IGN) sigaddset(&taken_, signal);
  }
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
