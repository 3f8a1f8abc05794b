// The subcommands. Each returns the exit status: 0 done, 1 failed, 2 wrong use.
#pragma once

#include <string>
#include <vector>

#include "machine/trace_filter.h"

namespace rack::cli {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

struct RunOptions {
  std::string directory;
  std::string rackFile;    // empty: rack.toml in the directory
  std::string controller;  // empty: Velmo beside this program
  std::string library;     // empty: the one beside this program
  std::string tasks;       // the controller's argument, empty: none
  bool restartFails = false;
  bool check = true;     // tell what the program checker finds
  bool once = false;     // an intercepted restart ends the run
  std::string time;      // real, virtual or a factor; empty: real
  unsigned seed = 0;     // virtual time: order of the threads
  std::string threads;   // virtual time: real or fibres; empty: fibres if they are possible
  std::string duration;  // empty: until it ends by itself
  std::string until;     // virtual time: TASK:FILE:LINE at which time stands, empty: nowhere
  bool stopped = false;  // virtual time: time stands from the start
  std::string log;       // file that gets the trace, empty: none
  std::string vcd;       // file that gets the waveform, empty: none
};
int Run(const RunOptions& options);

struct KeyOptions {
  std::string machine;
  std::vector<std::string> names;
  int holdMillis = 0;  // 0: the usual time
};
int PressKeys(const KeyOptions& options);

struct InputOptions {
  std::string machine;
  std::string signal;
  std::string level;  // on, off, release
};
int SetInput(const InputOptions& options);

struct ShowOptions {
  std::string machine;
  std::vector<std::string> names;  // only these; none: everything
  bool json = false;
  bool all = false;  // watch: also what was never used
};
int Show(const ShowOptions& options);
int Watch(const ShowOptions& options);

struct FaultOptions {
  std::string machine;
  std::vector<std::string> words;
  std::string duration;  // empty: until it is cleared
};
int Fault(const FaultOptions& options);

struct TraceOptions {
  std::string machine;
  bool csv = false;
  TraceWords words;
  bool fromStart = false;  // begin with the oldest record that is still held
  bool once = false;       // end when all is printed that happened so far
  std::string duration;    // empty: until the run ends
};
int Trace(const TraceOptions& options);

struct VcdOptions {
  std::string machine;
  std::string file;
  bool fromStart = false;
  bool once = false;
  std::string duration;
};
int RecordVcd(const VcdOptions& options);

struct TestOptions {
  std::vector<std::string> paths;  // scenarios, or directories with them
  std::string junit;               // file that gets the results as JUnit XML, empty: none
  std::string controller;          // empty: Velmo beside this program
  std::string library;             // empty: libvelmo-rack.so beside this program
  std::string filter;              // scenarios with this text in their file's name; empty: all
  int jobs = 0;                    // so many at the same time, 0: one for each processor
  bool keepWaveforms = false;      // also of scenarios that pass
};
// Runs the scenarios and prints what became of them. The exit status: 0 all expectations are met, 1 some are
// not or a scenario could not be run, 2 a scenario is wrong and none was run.
int Test(const TestOptions& options);

struct StepOptions {
  std::string machine;
  std::string task;  // empty: any
};
int Step(const StepOptions& options);

struct UntilOptions {
  std::string machine;
  std::string place;
};
int Until(const UntilOptions& options);

int Go(const std::string& machine);

int MakeMachine(const std::string& directory);

// Prints "velmo-rack: TEXT" on standard error and returns the status.
int Complain(int status, const std::string& text);

}  // namespace rack::cli
