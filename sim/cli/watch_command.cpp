// velmo-rack watch
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/commands.h"
#include "cli/display.h"
#include "cli/keypad.h"
#include "cli/screen.h"
#include "cli/stop_signals.h"
#include "machine/machine.h"
#include "machine/overview.h"
#include "toml/characters.h"

namespace rack::cli {

namespace {

constexpr int kRefreshMillis = 200;
// A typed key does not wait for the next picture.
constexpr int kTypedMillis = 20;
// A screen so high leaves a row to the keys.
constexpr int kRowsWithKeys = 4;

// A picture again and again as plain text: for pipes, and terminals that cannot place the cursor.
int WatchPlain(Machine& machine, const StopSignals& stop) {
  for (;;) {
    const Snapshot snapshot = machine.Take();
    std::fputs(TextOf(snapshot).c_str(), stdout);
    std::fflush(stdout);
    if (!snapshot.running || machine.Replaced()) return kDone;
    if (stop.Within(kRefreshMillis)) return kDone;
  }
}

class Watching {
 public:
  Watching(Machine& machine, Screen& screen, const ShowOptions& options)
      : machine_(machine), screen_(screen), overview_(options.names), keypad_(machine), all_(options.all) {}

  // Until the machine, a person or a signal ends it.
  void Follow(const StopSignals& stop) {
    do {
      for (int typed = screen_.Typed(); typed != Screen::kNothing; typed = screen_.Typed()) {
        if (typed == 'q') return;
        Take(typed);
      }
      keypad_.Advance();
      if (MonotonicNow() >= nextDraw_ && !Draw()) return;
    } while (!stop.Within(kTypedMillis) && !screen_.Gone());
  }

 private:
  void Take(int typed) {
    nextDraw_ = 0;
    switch (typed) {
      case 'a':
        all_ = !all_;
        return;
      case Screen::kUp:
        skipped_ = std::max(0, skipped_ - 1);
        return;
      case Screen::kDown:
        skipped_ = std::min(skipped_ + 1, kMostRows);
        return;
      case Screen::kResized:
        return;
      default:
        keypad_.Type(typed);
    }
  }

  // False when the machine has ended.
  bool Draw() {
    nextDraw_ = MonotonicNow() + kRefreshMillis * kMillisecond;
    const Snapshot snapshot = machine_.Take();
    ScreenSize size = screen_.Size();
    const bool keys = size.rows >= kRowsWithKeys;
    if (keys) --size.rows;
    std::vector<ScreenRow> rows = overview_.Rows(snapshot, size, all_, skipped_);
    if (keys) {
      rows.resize(static_cast<std::size_t>(size.rows));
      rows.push_back({{Printable(keypad_.Line(snapshot))}});
    }
    screen_.Draw(rows);
    return snapshot.running && !machine_.Replaced();
  }

  // More than any machine has.
  static constexpr int kMostRows = 1000;

  Machine& machine_;
  Screen& screen_;
  Overview overview_;
  Keypad keypad_;
  bool all_;
  int skipped_ = 0;
  Nanos nextDraw_ = 0;
};

// Whether the output is a terminal that can place the cursor.
bool IsScreen() {
  const char* kind = std::getenv("TERM");
  const bool dumb = kind == nullptr || *kind == '\0' || std::strcmp(kind, "dumb") == 0;
  return isatty(STDOUT_FILENO) == 1 && !dumb;
}

}  // namespace

int Watch(const ShowOptions& options) {
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  const std::string unknown = Overview(options.names).Unknown(machine.Take());
  if (!unknown.empty()) return Complain(kWrongUse, unknown);
  const StopSignals stop;
  if (!IsScreen()) return WatchPlain(machine, stop);
  {
    Screen screen;
    if (!screen.Opened()) return WatchPlain(machine, stop);
    Watching(machine, screen, options).Follow(stop);
  }
  if (!machine.Running())
    std::printf("the machine in %s does not run\n", Printable(machine.Directory()).c_str());
  return kDone;
}

}  // namespace rack::cli
