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
task_count = 2      # PLC tasks, as the switch of the CPU card says
function_port = 9   # the function keys RUN, STEP, ZERO and CANCEL; Velmo.conf names the same port

[slots]
3 = "io"            # entry 1 of the card table; the CPU card is entry 0
4 = "stepper"       # entry 2: the drill
5 = "cylinder"      # entry 3: the pusher

[inputs]
start_button = "0.0"
clamp_closed = "1.5"
drill_up = "1.6"

[outputs]
ready_lamp = "0.8"
beacon = "0.9"
clamp = "1.2"

[[valve]]           # the clamp's sensor follows the clamp
output = "clamp"
sensor = "clamp_closed"
on_delay = "400 ms"
off_delay = "250 ms"

[[axis]]            # the drill's upper switch
motor = "2.0"
low = "drill_up"
low_at = 0

[[stop]]            # ends the drill's way up
motor = "2.0"
when_input = "drill_up"

[[counter]]
name = "parts"
when_cylinder = "3.0"
at = 5
)";

constexpr const char* kConfiguration = R"([UDP]
Port=2017
[KEYPAD]
FunctionPort=9
)";

constexpr const char* kReset = R"(; Runs at the start and after the minus key: brings the machine to rest.
OUT: 1, 2, 0                  ; open the clamp
LD: 1, 5, 0                   ; wait until it is open
MOT: 2, 0, 2000&20&1&0&1&0&1  ; drill up, until its switch stops it
LMOT: 2, 0,
LD: 1, 6, 1                   ; it is up
DG: 3, 0, -1                  ; set the pusher up
OUT: 0, 8, 1                  ; lamp: ready
EXIT                          ; the Enter key starts FLOW.PLC
)";

constexpr const char* kFlow = R"(; The production program: once for every press of the start button.
LD: 0, 0, 1                   ; wait for the start button
OUT: 0, 8, 0                  ; lamp off
OUT: 1, 2, 1                  ; close the clamp
LD: 1, 5, 1                   ; wait until it is closed
MOT: 2, 0, 1000&20&0          ; drill down
LMOT: 2, 0,
MOT: 2, 0, 2000&20&1&0&1&0&1  ; and up again
LMOT: 2, 0,
LD: 1, 6, 1
OUT: 1, 2, 0                  ; open the clamp
LD: 1, 5, 0
DG: 3, 0, 5                   ; push the part out
LDG: 3, 0,
DG: 3, 0, 0
LDG: 3, 0,
OUT: 0, 8, 1                  ; lamp on
LD: 0, 0, 0                   ; wait until the button is released
END                           ; from the top again
)";

constexpr const char* kBeaconReset = R"(; The beacon, reset program.
OUT: 0, 9, 0
EXIT
)";

constexpr const char* kBeaconFlow = R"(; The beacon blinks as long as the machine is in production.
#LE: 1
OUT: 0, 9, 1
DLY: 300
OUT: 0, 9, 0
DLY: 300
GO: 1
)";

constexpr const char* kScenario = R"(# One part, from the press of the button to the pusher's way back.
limit = "15 s"

[[event]]
name = "production"
at = "2 s"
key = "Enter"

[[event]]
name = "press"
after = "production"
delay = "1 s"
input = "start_button on"

[[event]]
name = "let go"
after = "press"
delay = "500 ms"
input = "start_button off"

[[expect]]
that = "beacon on"
after = "production"
within = "1 s"

[[expect]]  # the drill never meets a loose part
first = "clamp_closed on"
then = "motor 2.0 at 1000"

[[expect]]  # nothing is pushed out undrilled
first = "motor 2.0 at 1000"
then = "cylinder 3.0 at 5"

[[expect]]
that = "counter parts 1"
after = "press"
within = "5 s"

[[expect]]
never = "a card protests"

[end]
wait = "500 ms"
hold = ["clamp off", "drill_up on", "ready_lamp on"]
)";

// What the rack and the tests leave in the machine's directory.
constexpr const char* kIgnored = R"(/.velmo-rack/
/SMPOS.DAT
*.vcd
*.gtkw
)";

constexpr File kFiles[] = {{"rack.toml", kRack},           {"Velmo.conf", kConfiguration},
                           {".gitignore", kIgnored},       {"plc1/RESET.PLC", kReset},
                           {"plc1/FLOW.PLC", kFlow},       {"plc2/RESET.PLC", kBeaconReset},
                           {"plc2/FLOW.PLC", kBeaconFlow}, {"scenarios/one-part.toml", kScenario}};

constexpr const char* kDirectories[] = {"", "/plc1", "/plc2", "/scenarios"};

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
  for (const char* below : kDirectories) {
    const std::string path = directory + below;
    if (!MakeDirectory(path)) return Complain(kFailed, path + ": " + std::strerror(errno));
  }
  for (const File& file : kFiles) {
    const std::string path = directory + "/" + file.path;
    std::ofstream out(path);
    out << file.text;
    out.flush();
    if (!out) return Complain(kFailed, path + ": could not be written");
  }
  const char* name = directory.c_str();
  std::printf(
      "Made %s. Look at it with\n"
      "  velmo-check %s\n"
      "  velmo-rack test %s\n"
      "  velmo-rack run %s\n",
      name, name, name, name);
  return kDone;
}

}  // namespace rack::cli
