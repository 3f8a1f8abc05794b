// velmo-rack fault
#include <cstdio>

#include "cli/commands.h"
#include "machine/faults.h"
#include "machine/machine.h"
#include "toml/times.h"

namespace rack::cli {

namespace {

int List(const Snapshot& snapshot) {
  if (snapshot.faults.empty()) std::puts("no faults");
  for (const std::string& fault : snapshot.faults) std::puts(fault.c_str());
  return kDone;
}

int Send(Machine& machine, const Request& request) {
  const std::string error = machine.Ask(request);
  return error.empty() ? List(machine.Take()) : Complain(kFailed, error);
}

}  // namespace

int Fault(const FaultOptions& options) {
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  const Snapshot snapshot = machine.Take();
  std::vector<std::string> words = options.words;
  if (words.size() == 1 && words[0] == "list") return List(snapshot);
  Request request{};
  request.kind = RequestKind::EndAllFaults;
  if (words.size() == 1 && words[0] == "clear") return Send(machine, request);
  const bool clear = words[0] == "clear";
  if (clear) words.erase(words.begin());
  const FaultChoice choice =
      ChooseFault(snapshot, words, clear ? RequestKind::EndFault : RequestKind::BeginFault);
  if (!choice.error.empty()) return Complain(kWrongUse, choice.error);
  request = choice.request;
  if (!options.duration.empty()) {
    const std::optional<Nanos> time = CommandTime(options.duration);
    if (!time || *time == 0) {
      return Complain(kWrongUse, "\"" + options.duration + "\" is no time: such as 500ms, 2s or 1min");
    }
    request.duration = *time;
  }
  return Send(machine, request);
}

}  // namespace rack::cli
