// velmo-rack step, until and go
#include <cstdio>

#include "cli/commands.h"
#include "cli/stop_signals.h"
#include "machine/machine.h"
#include "machine/time_words.h"

namespace rack::cli {

namespace {

constexpr int kLookMillis = 2;

// Gives a command and, when it is to stand again, waits until it does.
int Command(const std::string& directory, const TimeCommand& command) {
  Machine machine;
  const std::string unopened = machine.Open(directory);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  if (machine.State().time.setup.mode != TimeMode::Virtual) {
    return Complain(
        kFailed, "time is not under control here: start the machine with \"velmo-rack run --time virtual\"");
  }
  if (!machine.Running()) return Complain(kFailed, "the machine in " + machine.Directory() + " does not run");
  const std::uint32_t number = machine.Give(command);
  const bool stands = command.holdLine != 0 || command.step != 0;
  const StopSignals stop;
  TimeControl& time = machine.State().time;
  while (stands && !Stands(time, number)) {
    if (!machine.Running()) return Complain(kFailed, "the run ended before time stood");
    if (stop.Within(kLookMillis)) return kFailed;
  }
  if (stands) std::printf("%s\n", StandText(machine.State()).c_str());
  return kDone;
}

}  // namespace

int Step(const StepOptions& options) {
  TimeCommand command{};
  command.step = 1;
  const std::string wrong = ParseTask(options.task, command.holdTask);
  return wrong.empty() ? Command(options.machine, command) : Complain(kWrongUse, wrong);
}

int Until(const UntilOptions& options) {
  TimeCommand command{};
  const std::string wrong = ParsePlace(options.place, command);
  return wrong.empty() ? Command(options.machine, command) : Complain(kWrongUse, wrong);
}

int Go(const std::string& machine) {
  return Command(machine, TimeCommand{});
}

}  // namespace rack::cli
