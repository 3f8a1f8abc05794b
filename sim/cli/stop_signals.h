// How a command that goes on for long is told to end.
#pragma once

#include <csignal>

namespace rack::cli {

// While it lives, SIGINT, SIGTERM, SIGQUIT and SIGHUP no longer end the process but are found by Within.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // Waits up to this long for a signal to stop; true when one has come.
  bool Within(int millis) const;

 private:
  sigset_t taken_;
  sigset_t before_;
};

}  // namespace rack::cli
