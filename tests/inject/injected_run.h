// One run of a machine in virtual time, with a controller of which a call fails.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "process/programs/call_record.h"

// Files by their names below the machine's directory; the run is of so many seconds, with a key pressed and a datagram
// sent on the way.
struct MachineFiles {
  std::string name;
  std::map<std::string, std::string> files;
  int seconds = 0;
};

MachineFiles DemoCell();
// Every command, start scripts that want to be converted, and a request to restart, which fails.
MachineFiles EightTasks();

struct RunResult {
  bool runsAtEnd = false;  // the controller was still there
  bool hangs = false;      // it was, but did not go on
  int status = -1;         // of the tool, that has ended it
  std::string console;
  std::string errors;
  std::map<std::string, std::string> files;  // what stands on the disk then
  CallRecord record = {};
  CallRecord early = {};  // the same when the key is pressed
  CallRecord late = {};   // and two seconds before the end
  std::uint32_t restarts = 0;
  std::vector<std::string> calls;  // "NAME THREAD ABOUT" of each, if asked for
};

// `failing`: "read 3" or "read 3+", empty: none fails, and the calls are listed.
RunResult RunMachine(const MachineFiles& machine, const std::string& failing);
