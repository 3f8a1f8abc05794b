// velmo-rack run
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "rackfile/rackfile.h"
#include "tool/commands.h"
#include "tool/launch.h"
#include "tool/machine.h"
#include "tool/supervise.h"

namespace rack::tool {

namespace {

int RunUntilEnd(const Launch& launch, const RackState& state, bool once) {
  for (;;) {
    const std::uint32_t restarts = state.Live.Controller.Restarts;
    const AttachWatch attach(state);
    const RunEnd end = RunController(launch, attach);
    if (!end.error.empty()) return Complain(kFailed, end.error);
    if (end.stopSignal == 0 && !attach.Attached()) {
      return Complain(kFailed, "the controller ended with status " + std::to_string(end.status) +
                                   " before it came to the rack");
    }
    const bool restart = end.status == kRestartStatus && state.Live.Controller.Restarts != restarts;
    if (!restart || once) return end.status;
    std::fputs("velmo-rack: the controller restarted the machine, starting it again\n", stderr);
  }
}

}  // namespace

int Run(const RunOptions& options) {
  struct stat status = {};
  if (stat(options.directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    return Complain(kWrongUse, options.directory + " is no directory; \"velmo-rack new " + options.directory +
                                   "\" makes a machine");
  }
  const std::string machine = Absolute(options.directory);
  const std::string library = LibraryPath();
  const std::string controller =
      Absolute(options.controller.empty() ? ProgramDirectory() + "/Velmo" : options.controller);
  const std::string refusal = WhyNotStart(controller, library);
  if (!refusal.empty()) return Complain(kFailed, refusal);

  const auto setup = std::make_unique<RackSetup>();
  std::vector<std::string> findings;
  const std::string rackFile = options.rackFile.empty() ? machine + "/rack.toml" : options.rackFile;
  if (!ReadRackFile(rackFile, *setup, findings)) {
    for (const std::string& finding : findings) std::fprintf(stderr, "%s\n", finding.c_str());
    return kFailed;
  }
  setup->Image.RestartFails = options.restartFails ? 1 : 0;

  if (mkdir(RunDirectory(machine).c_str(), 0755) != 0 && errno != EEXIST) {
    return Complain(kFailed, RunDirectory(machine) + ": " + std::strerror(errno));
  }
  const MachineLock lock(LockPath(machine));
  if (!lock.Error().empty()) return Complain(kFailed, lock.Error());
  if (!lock.Held()) return Complain(kFailed, "the machine in " + machine + " runs already");
  std::string error = PrepareRun(machine, library);
  if (!error.empty()) return Complain(kFailed, error);
  StateFile state;
  if (!state.Create(StatePath(machine), *setup, error)) return Complain(kFailed, error);
  return RunUntilEnd(MakeLaunch(machine, controller, options.tasks), *state.State(), options.once);
}

}  // namespace rack::tool
