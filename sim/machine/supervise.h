// Runs the controller on the simulated rack and sees to it that none is left behind.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cards/card.h"

namespace rack {

// How to start the controller.
struct Launch {
  std::string controller;                // path of the program
  std::vector<std::string> arguments;    // without the program's name
  std::string directory;                 // the machine's directory, the controller's working directory
  std::string library;                   // preloaded
  std::vector<std::string> environment;  // "NAME=value", over this process's own
  std::string output;                    // file that takes its standard output, empty: this process's own
  std::function<bool()> over;            // asked as often as `watch`: the run is to end; null: never
};

// The end of a run of the controller: its exit status, or 128 and the signal's number.
struct RunEnd {
  bool started = false;
  int status = 1;
  bool over = false;   // ended as Launch::over said
  int signal = 0;      // the signal that it died by, 0 if it ended by itself
  int stopSignal = 0;  // the signal that this process was told to stop with, 0 if none
  std::string error;   // why it could not be started
};

// "has ended with status 3" or "has died by SIGSEGV".
std::string EndText(const RunEnd& end);

// Starts the controller without the right to restart the machine and waits for its end. SIGINT, SIGTERM and
// SIGHUP to this process end the controller first; when this process is killed, the kernel kills the
// controller. `watch` is called about ten times a second while it runs; a text that it returns ends the
// controller with that error.
RunEnd RunController(const Launch& launch, const std::function<std::string()>& watch);

// Watches how often the controller restarts the machine: one that does it at each start would do it for ever.
class RestartWatch {
 public:
  // One more restart, at that real time. Why the controller is not to be started again; empty while nothing is wrong.
  std::string operator()(Nanos now);

 private:
  std::deque<Nanos> last_;
};

// Where the program of that name is in the path; empty when it is nowhere there.
std::string FindProgram(const std::string& name);

// Why nothing may be preloaded and started here: a real device of either name, a controller, its emulator or a library
// that is missing or cannot be loaded. Empty when all is well.
std::string WhyNotStart(const std::string& controller, const std::string& library);

// A lock on a machine's directory, held until the object goes away or the process ends.
class MachineLock {
 public:
  explicit MachineLock(const std::string& path);
  ~MachineLock();
  MachineLock(const MachineLock&) = delete;
  MachineLock& operator=(const MachineLock&) = delete;
  MachineLock(MachineLock&&) = delete;
  MachineLock& operator=(MachineLock&&) = delete;

  bool Held() const { return held_; }
  const std::string& Error() const { return error_; }

 private:
  int file_ = -1;
  bool held_ = false;
  std::string error_;  // empty when another process holds the lock
};

// The directory of this program's own file.
std::string ProgramDirectory();

}  // namespace rack
