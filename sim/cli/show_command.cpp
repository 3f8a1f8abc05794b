// velmo-rack show and watch
#include <unistd.h>

#include <cstdio>

#include "cli/commands.h"
#include "cli/display.h"
#include "cli/stop_signals.h"
#include "machine/machine.h"

namespace rack::cli {

namespace {

constexpr int kRefreshMillis = 200;

void Print(const ShowOptions& options, const Snapshot& snapshot) {
  const std::string text = options.json ? JsonOf(snapshot) : TextOf(snapshot);
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace

int Show(const ShowOptions& options) {
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  Print(options, machine.Take());
  return kDone;
}

int Watch(const ShowOptions& options) {
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  const StopSignals stop;
  const bool terminal = isatty(STDOUT_FILENO) == 1;
  for (;;) {
    const Snapshot snapshot = machine.Take();
    // Cursor home, the picture, and away with what the last one had below it.
    if (terminal) std::fputs("\x1b[H\x1b[J", stdout);
    Print(options, snapshot);
    if (!snapshot.running || machine.Replaced()) return kDone;
    if (stop.Within(kRefreshMillis)) return kDone;
  }
}

}  // namespace rack::cli
