// velmo-rack run
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "rackfile/rackfile.h"
#include "tool/commands.h"
#include "tool/machine.h"
#include "tool/supervise.h"

namespace rack::tool {

namespace {

constexpr const char* kLibrary = "libvelmo-rack.so";
constexpr Nanos kAttachLimit = 10 * kSecond;

std::string Absolute(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) == nullptr ? path : resolved;
}

bool MakeDirectory(const std::string& path) {
  return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

// The run's own folder, with the board's home below it and the library under a name that the preload list can
// carry: a path with a blank or a colon would be taken for two.
std::string PrepareFolder(const std::string& machine, const std::string& library) {
  const std::string folder = RunDirectory(machine);
  for (const std::string& path : {folder, folder + "/home", folder + "/home/root"}) {
    if (!MakeDirectory(path)) return path + ": " + std::strerror(errno);
  }
  const std::string link = folder + "/" + kLibrary;
  unlink(link.c_str());
  if (symlink(library.c_str(), link.c_str()) != 0) return link + ": " + std::strerror(errno);
  return "";
}

// The address sanitizer otherwise refuses to run behind a preloaded library.
std::string SanitizerOptions() {
  const char* options = std::getenv("ASAN_OPTIONS");
  const std::string own = "verify_asan_link_order=0";
  return "ASAN_OPTIONS=" + (options == nullptr || *options == '\0' ? own : options + (":" + own));
}

Launch MakeLaunch(const RunOptions& options, const std::string& machine, const std::string& controller) {
  Launch launch;
  launch.controller = controller;
  if (!options.tasks.empty()) launch.arguments.push_back(options.tasks);
  launch.directory = machine;
  launch.environment = {"LD_PRELOAD=./.velmo-rack/" + std::string(kLibrary),
                        std::string(kStateVariable) + "=" + StatePath(machine), SanitizerOptions()};
  return launch;
}

// Watches whether the library has reported itself in the state: a controller without it must not go on.
class AttachWatch {
 public:
  explicit AttachWatch(const RackState& state)
      : state_(state), before_(state.Live.Controller.Attaches), limit_(MonotonicNow() + kAttachLimit) {}

  std::string operator()() const {
    if (Attached() || MonotonicNow() < limit_) return "";
    return "the controller does not use the simulated rack: its library was not loaded";
  }
  bool Attached() const { return state_.Live.Controller.Attaches != before_; }

 private:
  const RackState& state_;
  std::uint32_t before_;
  Nanos limit_;
};

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
  const std::string library = ProgramDirectory() + "/" + kLibrary;
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

  if (!MakeDirectory(RunDirectory(machine))) {
    return Complain(kFailed, RunDirectory(machine) + ": " + std::strerror(errno));
  }
  const MachineLock lock(LockPath(machine));
  if (!lock.Error().empty()) return Complain(kFailed, lock.Error());
  if (!lock.Held()) return Complain(kFailed, "the machine in " + machine + " runs already");
  std::string error = PrepareFolder(machine, library);
  if (!error.empty()) return Complain(kFailed, error);
  StateFile state;
  if (!state.Create(StatePath(machine), *setup, error)) return Complain(kFailed, error);
  return RunUntilEnd(MakeLaunch(options, machine, controller), *state.State(), options.once);
}

}  // namespace rack::tool
