// velmo-rack in
#include <cstdio>

#include "cli/commands.h"
#include "machine/machine.h"
#include "machine/signals.h"

namespace rack::cli {

int SetInput(const InputOptions& options) {
  const bool release = options.level == "release";
  if (!release && options.level != "on" && options.level != "off") {
    return Complain(kWrongUse, "\"" + options.level + "\" is no level: on, off or release");
  }
  Machine machine;
  const std::string unopened = machine.Open(options.machine);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  const Snapshot snapshot = machine.Take();
  const SignalChoice input = ChooseSignal(snapshot, SignalKind::Input, options.signal);
  if (!input.found) return Complain(kWrongUse, input.error);
  Request request{};
  request.kind = release ? RequestKind::ReleaseInput : RequestKind::SetInput;
  request.slot = static_cast<std::uint8_t>(snapshot.cards[static_cast<std::size_t>(input.entry)].slot);
  request.channel = static_cast<std::uint8_t>(input.channel);
  request.value = options.level == "on" ? 1 : 0;
  const std::string error = machine.Ask(request);
  const std::string signal = SignalText(snapshot, SignalKind::Input, input.entry, input.channel);
  if (!error.empty()) return Complain(kFailed, signal + ": " + error);
  std::printf("%s %s\n", signal.c_str(), options.level.c_str());
  return kDone;
}

}  // namespace rack::cli
