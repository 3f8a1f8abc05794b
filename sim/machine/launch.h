// How the controller is started on a machine's rack: with the rack's library in front of it, in the machine's
// directory.
#pragma once

#include <cstddef>
#include <string>

#include "machine/supervise.h"
#include "rack/state.h"

namespace rack {

// The path with every link and dot resolved; the path itself when there is no such file.
std::string Absolute(const std::string& path);

// The rack's library, beside this program.
std::string LibraryPath();

// Makes the run's own folder in the machine's directory, with the board's home below it and the library under
// a name that the preload list can carry: a path with a blank or a colon would be taken for two. The text says
// what failed.
std::string PrepareRun(const std::string& machine, const std::string& library);

// An emulator's words in front of a controller's: its name, the option for a variable of the emulated program, and that
// variable.
constexpr const char* kGuestVariable = "-E";
constexpr std::size_t kEmulatorWords = 3;

// The start of the controller in a machine's directory that was prepared, by an emulator where it is for another
// processor; `tasks` is its argument, empty: none. Both paths absolute.
Launch MakeLaunch(const std::string& machine, const std::string& controller, const std::string& tasks);

// Watches whether the library has reported itself in the state: a controller without it must not go on.
class AttachWatch {
 public:
  explicit AttachWatch(const RackState& state);

  // Why the controller must not go on; empty while nothing is wrong.
  std::string operator()() const;
  bool Attached() const { return state_.live.controller.attaches != before_; }

 private:
  const RackState& state_;
  std::uint32_t before_;
  Nanos limit_;
};

}  // namespace rack
