// velmo-rack: runs the controller on a simulated rack, and works on it while it runs.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <functional>

#include "cli/commands.h"
#include "machine/faults.h"
#include "public.h"
#include "toml/characters.h"
#include "toml/words.h"

namespace rack::cli {

int Complain(int status, const std::string& text) {
  std::fprintf(stderr, "velmo-rack: %s\n", PrintableLines(text).c_str());
  return status;
}

namespace {

// Where one is closed, the machine's state would get its number, and what is printed would be written into it.
void FillStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) static_cast<void>(!open("/dev/null", O_RDWR));
  }
}

std::string VersionText() {
  return std::string("velmo-rack of Velmo ") + SOFTVERSION;
}

// All options, and the command that was chosen.
struct CommandLine {
  RunOptions run;
  KeyOptions key;
  InputOptions input;
  ShowOptions show;
  FaultOptions fault;
  TraceOptions trace;
  VcdOptions vcd;
  TestOptions test;
  StepOptions step;
  UntilOptions until;
  std::string goMachine;
  std::string newDirectory;
  std::function<int()> chosen;
};

CLI::App* AddCommand(CLI::App& app, const char* name, const char* about, const std::string& example) {
  CLI::App* command = app.add_subcommand(name, about);
  command->footer("Example:\n  " + example);
  command->set_version_flag("--version", VersionText());
  return command;
}

void AddMachine(CLI::App& command, std::string& machine) {
  command.add_option("--machine", machine,
                     "The machine's directory; else that in VELMO_MACHINE, else the current one");
}

void AddController(CLI::App& command, std::string& controller, std::string& library) {
  command.add_option("--controller", controller, "The controller, Velmo beside this program unless given")
      ->envname("VELMO_CONTROLLER");
  command
      .add_option("--library", library,
                  "The rack's library for a controller of another processor or width, beside this program "
                  "unless given")
      ->envname("VELMO_LIBRARY");
}

void AddRun(CLI::App& app, CommandLine& line) {
  CLI::App* run = AddCommand(app, "run", "Switch a machine on and run the controller in its directory",
                             "velmo-rack run --tasks 2 demo");
  run->add_option("DIR", line.run.directory, "The machine's directory")->required();
  run->add_option("--rack", line.run.rackFile, "The rack file, rack.toml in DIR unless given");
  run->add_option("--tasks", line.run.tasks, "Number of PLC tasks, the controller's argument");
  AddController(*run, line.run.controller, line.run.library);
  run->add_flag("--restart-fails", line.run.restartFails, "The restart call of the controller fails");
  run->add_flag("!--no-check", line.run.check, "Do not tell what velmo-check finds");
  run->add_flag("--once", line.run.once, "End when the controller restarts the machine");
  run->add_option("--time", line.run.time, "real, virtual, or a factor such as 20 or 0.1");
  run->add_option("--seed", line.run.seed, "Virtual time: threads take turns in this random order");
  run->add_option("--threads", line.run.threads,
                  "Virtual time: real, or fibres, which are faster and usual where nothing is in the way");
  run->add_option("--for", line.run.duration, "End after this time of the machine: 500ms, 2s, 60min, 24h");
  run->add_option("--until", line.run.until, "Virtual time: stand at TASK:FILE:LINE, such as 1:FLOW.PLC:12");
  run->add_flag("--stopped", line.run.stopped, "Virtual time: stand before the controller's first step");
  run->add_option("--log", line.run.log,
                  "Write the trace into this file meanwhile; as a table if it ends in .csv");
  run->add_option("--vcd", line.run.vcd, "Write a waveform into this file meanwhile");
  run->callback([&line] { line.chosen = [&line] { return Run(line.run); }; });
}

void AddKey(CLI::App& app, CommandLine& line) {
  CLI::App* key =
      AddCommand(app, "key", "Press keys one after the other, each until the controller has taken it",
                 "velmo-rack key Num Enter");
  key->add_option("NAME", line.key.names,
                  "0 to 9, Enter, Dec or minus, Plus, Num, Star, Slash, RUN, STEP, ZERO, CANCEL")
      ->required();
  key->add_option("--hold", line.key.holdMillis, "How long each key is held, in ms; a held key repeats")
      ->check(CLI::Range(1, 3'600'000));
  AddMachine(*key, line.key.machine);
  key->callback([&line] { line.chosen = [&line] { return PressKeys(line.key); }; });
}

void AddInput(CLI::App& app, CommandLine& line) {
  CLI::App* input = AddCommand(app, "in", "Hold an input on or off, or leave it to the machine again",
                               "velmo-rack in clamp_closed on");
  input->add_option("SIGNAL", line.input.signal, "A name of the rack file, or entry.channel")->required();
  input->add_option("LEVEL", line.input.level, "on, off or release")->required();
  AddMachine(*input, line.input.machine);
  input->callback([&line] { line.chosen = [&line] { return SetInput(line.input); }; });
}

void AddShow(CLI::App& app, CommandLine& line) {
  CLI::App* show =
      AddCommand(app, "show", "Show every card, and for each task why it waits", "velmo-rack show");
  show->add_option("NAME", line.show.names, "Only these signals, each input with what it waits for");
  show->add_flag("--json", line.show.json, "As JSON");
  AddMachine(*show, line.show.machine);
  show->callback([&line] { line.chosen = [&line] { return Show(line.show); }; });
  CLI::App* watch = AddCommand(app, "watch", "Watch the machine on the whole terminal, and press its keys",
                               "velmo-rack watch part_waiting 2.0");
  watch->add_option("NAME", line.show.names, "Only these, beside tasks and faults: a name, or entry.channel");
  watch->add_flag("--all", line.show.all, "Also what was never used");
  AddMachine(*watch, line.show.machine);
  watch->callback([&line] { line.chosen = [&line] { return Watch(line.show); }; });
}

void AddFault(CLI::App& app, CommandLine& line) {
  CLI::App* fault = app.add_subcommand("fault", "Put a fault into the rack, list the faults, clear them");
  fault->set_version_flag("--version", VersionText());
  fault->footer("Faults:\n" + FaultHelp() +
                "  list                        the faults that are there\n"
                "  clear [FAULT ...]           all of them, or one\n"
                "Example:\n  velmo-rack fault stuck clamp_closed off --for 5s");
  fault->add_option("WORDS", line.fault.words, "The fault with what it holds, list, or clear")->required();
  fault->add_option("--for", line.fault.duration,
                    "How long: 500ms, 2s, 1min; until it is cleared unless given");
  AddMachine(*fault, line.fault.machine);
  fault->callback([&line] { line.chosen = [&line] { return Fault(line.fault); }; });
}

template <class Options>
void AddFollowing(CLI::App& command, Options& options) {
  command.add_flag("--from-start", options.fromStart, "Begin with the oldest record that is still held");
  command.add_flag("--once", options.once, "From the start up to now, and end");
  command.add_option("--for", options.duration, "End after this time: 500ms, 2s, 1min");
  AddMachine(command, options.machine);
}

void AddTrace(CLI::App& app, CommandLine& line) {
  CLI::App* trace = AddCommand(app, "trace", "Print what happens on the bus and in the machine, live",
                               "velmo-rack trace --once --csv > bus.csv");
  trace->add_flag("--csv", line.trace.csv, "As a table");
  TraceWords& words = line.trace.words;
  trace->add_option("--task", words.task, "Only what this task does: 1 to 8, key, net, main");
  trace->add_option("--signal", words.signals, "Only changes of this signal, by name or entry.channel")
      ->allow_extra_args(false);
  trace->add_option("--entry", words.entries, "Only what concerns this card")->allow_extra_args(false);
  trace
      ->add_option(
          "--kind", words.kinds,
          "Only records of this kind, such as write, input, line, fault; console: bytes to the console")
      ->allow_extra_args(false);
  trace->add_option("--from", words.from, "From this time since power-on: 500ms, 2s, 1min");
  trace->add_option("--to", words.to, "Up to this time");
  AddFollowing(*trace, line.trace);
  trace->callback([&line] { line.chosen = [&line] { return Trace(line.trace); }; });
}

void AddVcd(CLI::App& app, CommandLine& line) {
  CLI::App* vcd =
      AddCommand(app, "vcd", "Record a waveform until the run ends or Ctrl-C, with a view file beside it",
                 "velmo-rack vcd cycle.vcd --for 10s && gtkwave cycle.gtkw");
  vcd->add_option("FILE", line.vcd.file, "The recording")->required();
  AddFollowing(*vcd, line.vcd);
  vcd->callback([&line] { line.chosen = [&line] { return RecordVcd(line.vcd); }; });
}

void AddTest(CLI::App& app, CommandLine& line) {
  CLI::App* test =
      AddCommand(app, "test", "Run scenarios in virtual time and tell which expectations are met, as TAP",
                 "velmo-rack test cell --junit results.xml");
  test->add_option("PATH", line.test.paths, "Scenarios, or directories with them")->required();
  test->add_option("--junit", line.test.junit, "Write the results as JUnit XML too");
  test->add_option("--jobs", line.test.jobs,
                   "So many scenarios at the same time, unless given one for each processor")
      ->check(CLI::Range(1, 1024));
  test->add_option("--filter", line.test.filter, "Only scenarios with this text in their file's name");
  test->add_flag("--vcd", line.test.keepWaveforms, "Leave the waveform of scenarios that pass too");
  AddController(*test, line.test.controller, line.test.library);
  test->callback([&line] { line.chosen = [&line] { return Test(line.test); }; });
}

void AddNew(CLI::App& app, CommandLine& line) {
  CLI::App* make = AddCommand(app, "new", "Make a small machine that runs", "velmo-rack new press");
  make->add_option("DIR", line.newDirectory, "Its directory")->required();
  make->callback([&line] { line.chosen = [&line] { return MakeMachine(line.newDirectory); }; });
}

void AddTimeCommands(CLI::App& app, CommandLine& line) {
  CLI::App* step = AddCommand(app, "step", "Virtual time: go on to the next program line, and stand there",
                              "velmo-rack step 1");
  step->add_option("TASK", line.step.task, "Only lines of this task");
  AddMachine(*step, line.step.machine);
  step->callback([&line] { line.chosen = [&line] { return Step(line.step); }; });
  CLI::App* until = AddCommand(app, "until", "Virtual time: go on to this program line, and stand there",
                               "velmo-rack until 1:FLOW.PLC:12");
  until->add_option("PLACE", line.until.place, "TASK:FILE:LINE")->required();
  AddMachine(*until, line.until.machine);
  until->callback([&line] { line.chosen = [&line] { return Until(line.until); }; });
  CLI::App* go = AddCommand(app, "go", "Virtual time: go on", "velmo-rack go");
  AddMachine(*go, line.goMachine);
  go->callback([&line] { line.chosen = [&line] { return Go(line.goMachine); }; });
}

// Why the first word is no command; empty when it is one, or an option.
std::string UnknownCommand(const CLI::App& app, int argc, char** argv) {
  if (argc < 2 || *argv[1] == '-' || *argv[1] == '\0') return "";
  const std::string word = argv[1];
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands(nullptr)) names.push_back(command->get_name());
  if (IsOneOf(word, names)) return "";
  return "there is no command \"" + word + "\"" + Suggestion(word, names) +
         " (commands: " + Join(names, ", ") + ")";
}

// What stdout still holds would be lost without a word at the end of the process.
int Flushed(int status) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  return Complain(status == kDone ? kFailed : status, "the output could not be written");
}

int Main(int argc, char** argv) {
  FillStandardDescriptors();
  CLI::App app("Runs the controller on a simulated rack, and works on it while it runs.", "velmo-rack");
  app.require_subcommand(1);
  app.footer("velmo-rack COMMAND --help tells about a command.");
  CommandLine line;
  for (const auto add :
       {AddRun, AddKey, AddInput, AddShow, AddFault, AddTrace, AddVcd, AddTest, AddTimeCommands, AddNew})
    add(app, line);
  app.set_version_flag("--version", VersionText());
  const std::string unknown = UnknownCommand(app, argc, argv);
  if (!unknown.empty()) return Complain(kWrongUse, unknown);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUse;
  }
  return line.chosen();
}

}  // namespace

}  // namespace rack::cli

int main(int argc, char** argv) {
  return rack::cli::Flushed(rack::cli::Main(argc, argv));
}
