// velmo-rack show
#include <cstdio>

#include "cli/commands.h"
#include "cli/display.h"
#include "machine/drives.h"
#include "machine/machine.h"
#include "machine/signals.h"
#include "toml/characters.h"

namespace rack::cli {

namespace {

void PrintLine(const std::string& line) {
  std::puts(Printable(line).c_str());
}

// A signal by its name or address: an input and an output may share the address.
int PrintSignal(const Snapshot& snapshot, const std::string& name) {
  const SignalChoice input = ChooseSignal(snapshot, SignalKind::Input, name);
  const SignalChoice output = ChooseSignal(snapshot, SignalKind::Output, name);
  if (!input.found && !output.found) return Complain(kWrongUse, input.error);
  if (input.found) {
    PrintLine("input " + SignalSentence(snapshot, SignalKind::Input, input.entry, input.channel));
  }
  if (output.found) {
    PrintLine("output " + SignalSentence(snapshot, SignalKind::Output, output.entry, output.channel));
  }
  return kDone;
}

}  // namespace

int Show(const ShowOptions& options) {
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  const Snapshot snapshot = machine.Take();
  for (const std::string& name : options.names) {
    const int wrong = PrintSignal(snapshot, name);
    if (wrong != kDone) return wrong;
  }
  if (!options.names.empty()) return kDone;
  std::fputs((options.json ? JsonOf(snapshot) : PrintableLines(TextOf(snapshot))).c_str(), stdout);
  return kDone;
}

}  // namespace rack::cli
