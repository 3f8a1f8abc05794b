// velmo-rack run
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "check/check.h"
#include "cli/commands.h"
#include "cli/recording.h"
#include "machine/card_table.h"
#include "machine/launch.h"
#include "machine/machine.h"
#include "machine/standstill.h"
#include "machine/supervise.h"
#include "machine/time_words.h"
#include "scenario/machine_rules.h"
#include "toml/characters.h"
#include "toml/times.h"

namespace rack::cli {

namespace {

// Where --until lets time stand; the text says what is wrong, and why time would never come there.
std::string ChoosePlace(const RunOptions& options, const RackImage& image, TimeCommand& command) {
  if (options.until.empty()) return "";
  std::string wrong = ParsePlace(options.until, command);
  if (!wrong.empty()) return wrong;
  return WhyNever(options.directory, command, TaskCount(options.tasks, image.cards[0].cpu));
}

// How the options say that time goes; the text says what is wrong.
std::string ChooseTime(const RunOptions& options, RackSetup& rack, TimeCommand& command) {
  TimeSetup& setup = rack.time;
  std::string wrong = ParseTime(options.time, setup);
  if (!wrong.empty()) return wrong;
  wrong = ParseThreads(options.threads, setup);
  if (!wrong.empty()) return wrong;
  setup.seed = options.seed;
  setup.startStopped = options.stopped ? 1 : 0;
  setup.tellsThreads = 1;
  setup.holdsConsole = 1;
  if (!options.duration.empty()) {
    const std::optional<Nanos> time = CommandTime(options.duration);
    if (!time || *time == 0)
      return "\"" + options.duration + "\" is no time: such as 500ms, 2s, 60min or 24h";
    setup.endAt = *time;
  }
  const bool controlled =
      options.stopped || options.seed != 0 || !options.until.empty() || !options.threads.empty();
  if (controlled && setup.mode != TimeMode::Virtual)
    return "--seed, --threads, --until and --stopped want --time virtual";
  return ChoosePlace(options, rack.image, command);
}

// Real and scaled time: whether the run has lasted as long as it is to last.
bool IsOver(const RackState& state) {
  const TimeSetup& setup = state.time.setup;
  return setup.mode != TimeMode::Virtual && setup.endAt != 0 &&
         PassedTime(setup, state.powerOn, MonotonicNow()) >= setup.endAt;
}

std::string Counted(std::size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

void Tell(const std::vector<std::string>& differences) {
  for (const std::string& difference : differences) {
    Complain(kDone, difference);
  }
}

// Says once that the tools no longer reach the machine under its path.
class PlaceWatch {
 public:
  explicit PlaceWatch(const StateFile& file) : file_(file) {}
  void operator()(const std::string& directory) {
    if (told_ || !file_.Replaced()) return;
    told_ = true;
    Complain(kDone,
             directory + " was removed, moved or replaced: the machine runs on, but nothing finds it there");
  }

 private:
  const StateFile& file_;
  bool told_ = false;
};

int RunUntilEnd(const Launch& launch, const StateFile& file, bool once) {
  RackState& state = *file.State();
  RestartWatch watch;
  PlaceWatch place(file);
  CardTableWatch cards(state);
  for (;;) {
    const std::uint32_t restarts = state.live.controller.restarts;
    const AttachWatch attach(state);
    StandstillWatch standstill(state);
    const RunEnd end = RunController(launch, [&] {
      Tell(cards());
      place(launch.directory);
      const std::string wrong = attach();
      return wrong.empty() ? standstill() : wrong;
    });
    FinishPolls(state);
    FinishConsole(state.console, STDOUT_FILENO);
    Tell(cards());
    if (end.over) return kDone;
    if (!end.error.empty()) return Complain(kFailed, end.error);
    if (end.stopSignal == 0 && !attach.Attached()) {
      return Complain(kFailed, "the controller " + EndText(end) + " before it came to the rack");
    }
    if (end.stopSignal == 0 && end.signal != 0) return Complain(end.status, "the controller " + EndText(end));
    const bool restart = end.status == kRestartStatus && state.live.controller.restarts != restarts;
    if (!restart || once) return end.status;
    const std::string tooOften = watch(MonotonicNow());
    if (!tooOften.empty()) return Complain(kFailed, tooOften);
    std::fputs("velmo-rack: the controller restarted the machine, starting it again\n", stderr);
  }
}

// What the program checker finds, in one line; nothing when it finds nothing.
void TellFindings(const std::string& machine, const std::string& rackFile) {
  std::string error;
  const auto findings = check::CheckPath(machine, rackFile, &error);
  if (!findings || findings->empty()) return;
  std::size_t errors = 0;
  for (const check::Finding& finding : *findings) {
    if (check::RuleOf(finding.rule).level == check::Severity::Error) ++errors;
  }
  std::fprintf(stderr, "velmo-check: %s, %s\n", Counted(errors, "error").c_str(),
               Counted(findings->size() - errors, "warning").c_str());
}

}  // namespace

int Run(const RunOptions& options) {
  struct stat status = {};
  if (stat(options.directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    return Complain(kWrongUse, options.directory + " is no directory; \"velmo-rack new " + options.directory +
                                   "\" makes a machine");
  }
  const std::string machine = Absolute(options.directory);
  const std::string library = options.library.empty() ? LibraryPath() : Absolute(options.library);
  const std::string controller =
      Absolute(options.controller.empty() ? ProgramDirectory() + "/Velmo" : options.controller);
  const std::string refusal = WhyNotStart(controller, library);
  if (!refusal.empty()) return Complain(kFailed, refusal);

  const auto rack = std::make_unique<scenario::RackWithRules>();
  RackSetup* const setup = &rack->setup;
  std::vector<std::string> findings;
  const std::string rackFile = options.rackFile.empty() ? machine + "/rack.toml" : options.rackFile;
  if (!scenario::ReadRackWithRules(rackFile, *rack, findings)) {
    for (const std::string& finding : findings) std::fprintf(stderr, "%s\n", Printable(finding).c_str());
    return kFailed;
  }
  TimeCommand command{};
  const std::string wrongTime = ChooseTime(options, *setup, command);
  if (!wrongTime.empty()) return Complain(kWrongUse, wrongTime);
  setup->image.restartFails = options.restartFails ? 1 : 0;

  if (mkdir(RunDirectory(machine).c_str(), 0755) != 0 && errno != EEXIST) {
    return Complain(kFailed, RunDirectory(machine) + ": " + std::strerror(errno));
  }
  const MachineLock lock(LockPath(machine));
  if (!lock.Error().empty()) return Complain(kFailed, lock.Error());
  if (!lock.Held()) return Complain(kFailed, "the machine in " + machine + " runs already");
  std::string error = PrepareRun(machine, library);
  if (!error.empty()) return Complain(kFailed, error);
  StateFile state;
  if (!state.Create(StatePath(machine), *setup, error)) return Complain(kFailed, error);
  OrderAtStart(state.State()->time, command);
  RunRecorder recorder;
  error = recorder.Start(machine, options.log, options.vcd);
  if (!error.empty()) return Complain(kFailed, error);
  if (options.check) TellFindings(machine, options.rackFile);
  Launch launch = MakeLaunch(machine, controller, options.tasks);
  launch.over = [&state] { return IsOver(*state.State()); };
  const int end = RunUntilEnd(launch, state, options.once);
  error = recorder.Finish();
  return error.empty() ? end : Complain(kFailed, error);
}

}  // namespace rack::cli
