// velmo-rack step, until and go
#include <cstdio>

#include "cli/commands.h"
#include "cli/stop_signals.h"
#include "machine/machine.h"
#include "machine/time_words.h"

namespace rack::cli {

namespace {

constexpr int kLookMillis = 2;
// A person who waits for longer is told what for.
constexpr Nanos kToldAfter = kSecond;

// Lets time stand where it is, and waits until it does.
void StandHere(Machine& machine) {
  TimeCommand here{};
  here.holdAt = 1;  // has passed
  const std::uint32_t number = machine.Give(here);
  while (machine.Running() && !Stands(machine.State().time, number)) Doze(kLookMillis);
}

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
  const std::string never = WhyNever(machine.Directory(), command, TaskCount(machine.State()));
  if (!never.empty()) return Complain(kWrongUse, never);
  const std::uint32_t number = machine.Give(command);
  const Nanos told = MonotonicNow() + kToldAfter;
  bool waits = false;
  const bool stands = command.holdLine != 0 || command.step != 0;
  const StopSignals stop;
  TimeControl& time = machine.State().time;
  while (stands && !Stands(time, number)) {
    if (!machine.Running()) return Complain(kFailed, "the run ended before time stood");
    if (!waits && MonotonicNow() > told) {
      waits = true;
      std::fprintf(stderr, "velmo-rack: waits for %s; Ctrl-C lets time stand where it is\n",
                   PlaceText(command).c_str());
    }
    if (!stop.Within(kLookMillis)) continue;
    StandHere(machine);
    std::printf("%s\n", StandText(machine.State()).c_str());
    return kFailed;
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
