// The tasks of a machine as the search over all of them sees them: where each line leads, what it does to the
// outputs that matter, and what it waits for.
//
// What is taken for granted:
//   - outputs change by OUT alone and are off at power-on,
//   - the sensor of a [[valve]] follows its output after the valve's delay, whatever people do,
//   - a switch of an axis or cylinder changes its level by MOT or DG alone; where the axis stands is not known at
//     power-on and after a MOT, a cylinder stands where DG has sent it when LDG is met,
//   - all other inputs are the operator's: such a level comes when a task waits for it, and until then an input
//     stays as it was read first, which may be either level; one that a single line asks for may have changed,
//   - a line takes the pause that the program asks for; how long a move takes is open.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "check/program.h"

namespace check {

enum class StepKind {
  Pass,        // nothing that matters here
  Out,         // switches the output `signal` to `level`
  WaitSensor,  // for the sensor `signal`
  WaitInput,   // for the operator's input `signal`
  WaitSwitch,  // for the switch `signal`
  WaitMove,    // for a motor or cylinder; the mover `signal` stands then, if that is one
  Move,        // starts the mover `signal`, to the part `level` of its way
  Select,      // starts another motor of the card in slot `signal`
  Setup,       // of a cylinder: the mover `signal` is led to its end, or its alarm is reset
  AskSensor,   // IF
  AskInput,    // IF
  AskSwitch,   // IF
  Pause,       // `level` milliseconds
  SetPause,    // `level` milliseconds
  Call,        // the block `first`
  End,
  Exit,
  WaitForever
};

// Places that are no line.
constexpr int kIdle = -1;   // no program is open: Enter starts FLOW.PLC
constexpr int kStuck = -2;  // nothing but the minus key helps
constexpr int kNoCall = -3;
constexpr int kMissing = -4;  // a block that is not there

// An input whose level need not be remembered.
constexpr int kNotKept = -1;

struct Step {
  StepKind kind = StepKind::Pass;
  int signal = -1;
  int level = 0;
  int next = kStuck;
  // Blocks that are called: where they begin, kNoCall for none. Of IF the one for the level, and the other one.
  int first = kNoCall;
  int second = kNoCall;
  const Program* program = nullptr;
  const Line* line = nullptr;
};

struct TaskSteps {
  const Task* task = nullptr;
  int reset = kStuck;  // where its programs begin
  int flow = kIdle;
  std::vector<Step> steps;
};

struct Signal {
  int slot;
  int channel;

  bool operator==(const Signal& other) const { return slot == other.slot && channel == other.channel; }
};

struct ValveOutput {
  int output;
  int onDelay;  // milliseconds
  int offDelay;
};

// On while one of its valves is.
struct Sensor {
  Signal place;
  std::vector<ValveOutput> valves;
};

// A motor or cylinder with switches. Its way has parts, in each of which all switches keep their levels.
struct Mover {
  Signal place;
  bool isMotor;
  bool sharesAnswer;  // the card answers for the motor that was started last
  int parts;
};
constexpr int kSomewhere = -1;  // no part that is known

struct Switch {
  Signal place;
  int mover;
  std::int32_t on;  // a bit for each part of the mover's way
};

// A level in a condition on outputs and sensors.
struct Literal {
  bool isSensor;
  int signal;
  int level;
};

// What must not be all at once, for so many milliseconds.
struct Forbidden {
  RuleId rule;
  std::vector<Literal> literals;
  int forMillis = 0;
  int row = 0;  // of the rack file's rules
};

struct SearchModel {
  std::vector<TaskSteps> tasks;  // by number
  std::vector<Signal> outputs;
  std::vector<Sensor> sensors;
  std::vector<Mover> movers;
  std::vector<Switch> switches;
  int inputs = 0;  // of the operator, those whose level is remembered
  std::vector<Forbidden> forbidden;
};

// Of a machine with a rack file: one for each group of tasks that have to do with each other, and with outputs
// that have sensors or must not be on together.
std::vector<SearchModel> ModelsOf(const ProgramTree& tree);

}  // namespace check
