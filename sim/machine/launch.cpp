#include "machine/launch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "machine/elf_header.h"
#include "machine/machine.h"

namespace rack {

namespace {

constexpr const char* kLibrary = "libvelmo-rack.so";
constexpr Nanos kAttachLimit = 60 * kSecond;

bool MakeDirectory(const std::string& path) {
  return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

// The address sanitizer otherwise refuses to run behind a preloaded library.
std::string SanitizerOptions() {
  const char* options = std::getenv("ASAN_OPTIONS");
  const std::string own = "verify_asan_link_order=0";
  return "ASAN_OPTIONS=" + (options == nullptr || *options == '\0' ? own : options + (":" + own));
}

}  // namespace

std::string Absolute(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) == nullptr ? path : resolved;
}

std::string LibraryPath() {
  return ProgramDirectory() + "/" + kLibrary;
}

std::string PrepareRun(const std::string& machine, const std::string& library) {
  const std::string folder = RunDirectory(machine);
  for (const std::string& path : {folder, folder + "/home", folder + "/home/root"}) {
    if (!MakeDirectory(path)) return path + ": " + std::strerror(errno);
  }
  const std::string link = folder + "/" + kLibrary;
  unlink(link.c_str());
  if (symlink(library.c_str(), link.c_str()) != 0) return link + ": " + std::strerror(errno);
  return "";
}

Launch MakeLaunch(const std::string& machine, const std::string& controller, const std::string& tasks) {
  const std::string preload = "LD_PRELOAD=./.velmo-rack/" + std::string(kLibrary);
  const std::string emulator = EmulatorOf(controller);
  Launch launch;
  launch.controller = controller;
  launch.directory = machine;
  launch.environment = {preload, std::string(kStateVariable) + "=" + StatePath(machine), SanitizerOptions()};
  if (!emulator.empty()) {
    // The library is for the emulated processor: in the emulator's own environment it would be put in front of that.
    launch.controller = FindProgram(emulator);
    launch.arguments = {kGuestVariable, preload, controller};
    launch.environment.front() = "LD_PRELOAD=";
  }
  if (!tasks.empty()) launch.arguments.push_back(tasks);
  return launch;
}

AttachWatch::AttachWatch(const RackState& state)
    : state_(state), before_(state.live.controller.attaches), limit_(MonotonicNow() + kAttachLimit) {}

std::string AttachWatch::operator()() const {
  if (Attached() || MonotonicNow() < limit_) return "";
  return "the controller does not use the simulated rack: its library was not loaded";
}

}  // namespace rack
