// velmo-rack new
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "cli/commands.h"

namespace rack::cli {

namespace {

struct File {
  const char* path;  // below the machine's directory
  const char* text;
};

constexpr const char* kRack =
    R"(# What stands in the rack and what hangs on it. docs/rack.md explains every word.

[rack]
task_count = 1      # PLC tasks, as the switch of the CPU card says
function_port = 9   # the function keys RUN, STEP, ZERO and CANCEL; Velmo.conf names the same port

[slots]
3 = "io"            # entry 1 of the card table; the CPU card is entry 0

[inputs]
start_button = "0.0"
clamp_closed = "1.5"

[outputs]
ready_lamp = "0.8"
clamp = "1.2"

[[valve]]           # the clamp's sensor follows the clamp
output = "clamp"
sensor = "clamp_closed"
on_delay = "400 ms"
off_delay = "250 ms"
)";

constexpr const char* kConfiguration = R"([UDP]
Port=2017
[KEYPAD]
FunctionPort=9
)";

constexpr const char* kReset = R"(; Runs at the start and after the minus key: brings the machine to rest.
OUT: 1, 2, 0      ; open the clamp
LD: 1, 5, 0       ; wait until it is open
OUT: 0, 8, 1      ; lamp: ready
EXIT              ; the Enter key starts FLOW.PLC
)";

constexpr const char* kFlow = R"(; The production program: once for every press of the start button.
LD: 0, 0, 1       ; wait for the start button
OUT: 0, 8, 0      ; lamp off
OUT: 1, 2, 1      ; close the clamp
LD: 1, 5, 1       ; wait until it is closed
DLY: 500          ; work
OUT: 1, 2, 0      ; open the clamp
LD: 1, 5, 0
OUT: 0, 8, 1      ; lamp on
LD: 0, 0, 0       ; wait until the button is released
END               ; from the top again
)";

constexpr File kFiles[] = {{"rack.toml", kRack},
                           {"Velmo.conf", kConfiguration},
                           {"plc1/RESET.PLC", kReset},
                           {"plc1/FLOW.PLC", kFlow}};

bool MakeDirectory(const std::string& path) {
  return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

}  // namespace

int MakeMachine(const std::string& directory) {
  for (const File& file : kFiles) {
    const std::string path = directory + "/" + file.path;
    if (access(path.c_str(), F_OK) == 0)
      return Complain(kFailed, path + " is there already: nothing was changed");
  }
  for (const std::string& path : {directory, directory + "/plc1"}) {
    if (!MakeDirectory(path)) return Complain(kFailed, path + ": " + std::strerror(errno));
  }
  for (const File& file : kFiles) {
    const std::string path = directory + "/" + file.path;
    std::ofstream out(path);
    out << file.text;
    out.flush();
    if (!out) return Complain(kFailed, path + ": could not be written");
  }
  std::printf(
      "Made %s. Start it with\n"
      "  velmo-rack run %s\n"
      "and in another terminal, in %s, start the production program and press its button:\n"
      "  velmo-rack key Enter\n"
      "  velmo-rack in start_button on\n"
      "  velmo-rack show\n",
      directory.c_str(), directory.c_str(), directory.c_str());
  return kDone;
}

}  // namespace rack::cli
