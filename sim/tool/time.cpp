// velmo-rack step, until and go
#include "tool/time.h"

#include <sys/syscall.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>

#include "tool/commands.h"
#include "tool/stop.h"
#include "tool/words.h"

namespace rack::tool {

namespace {

constexpr int kLookMillis = 2;
constexpr int kTasks = 8;
constexpr double kLeastFactor = 0.001;
constexpr double kMostFactor = 1000;
// Real time without a call that virtual time knows: then it hangs in one that it does not know, or, after longer,
// computes.
constexpr Nanos kStandstill = 5 * kSecond;
constexpr Nanos kComputing = 60 * kSecond;

struct CallName {
  long number;
  const char* name;
};
constexpr CallName kCallNames[] = {
    {SYS_read, "read"},
    {SYS_write, "write"},
    {SYS_pread64, "pread64"},
    {SYS_readv, "readv"},
    {SYS_writev, "writev"},
    {SYS_futex, "futex (a lock or condition)"},
#ifdef SYS_poll
    {SYS_poll, "poll"},
#endif
#ifdef SYS_select
    {SYS_select, "select"},
#endif
#ifdef SYS_pause
    {SYS_pause, "pause"},
#endif
#ifdef SYS_epoll_wait
    {SYS_epoll_wait, "epoll_wait"},
#endif
    {SYS_ppoll, "ppoll"},
    {SYS_pselect6, "pselect"},
    {SYS_epoll_pwait, "epoll_pwait"},
    {SYS_nanosleep, "nanosleep"},
    {SYS_clock_nanosleep, "clock_nanosleep"},
    {SYS_wait4, "wait4"},
    {SYS_waitid, "waitid"},
    {SYS_rt_sigtimedwait, "sigtimedwait"},
    {SYS_rt_sigsuspend, "sigsuspend"},
    {SYS_flock, "flock"},
    {SYS_fcntl, "fcntl"},
    {SYS_accept, "accept"},
    {SYS_accept4, "accept4"},
    {SYS_connect, "connect"},
    {SYS_recvmsg, "recvmsg"},
    {SYS_recvmmsg, "recvmmsg"},
    {SYS_sendmsg, "sendmsg"},
    {SYS_recvfrom, "recvfrom"},
    {SYS_sendto, "sendto"},
    {SYS_openat, "open"},
    {SYS_msgrcv, "msgrcv"},
    {SYS_semtimedop, "semtimedop"},
};

// The system call in which a thread waits, by its name or number; empty while it runs, nothing when there is no
// such thread.
std::optional<std::string> WaitsIn(std::int32_t process, std::uint32_t thread) {
  std::ifstream file("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) + "/syscall");
  std::string number;
  if (!(file >> number)) return std::nullopt;
  if (number == "running") return "";
  for (const CallName& call : kCallNames) {
    if (std::to_string(call.number) == number) return call.name;
  }
  return "number " + number;
}

// Gives a command and, when it is to stand again, waits until it does.
int Command(const std::string& directory, const TimeCommand& command) {
  Machine machine;
  const std::string unopened = machine.Open(directory);
  if (!unopened.empty()) return Complain(kFailed, unopened);
  if (machine.State().Time.Setup.Mode != TimeMode::Virtual) {
    return Complain(
        kFailed, "time is not under control here: start the machine with \"velmo-rack run --time virtual\"");
  }
  if (!machine.Running()) return Complain(kFailed, "the machine in " + machine.Directory() + " does not run");
  const std::uint32_t number = machine.Give(command);
  const bool stands = command.HoldLine != 0 || command.Step != 0;
  const StopSignals stop;
  TimeControl& time = machine.State().Time;
  while (stands && !Stands(time, number)) {
    if (!machine.Running()) return Complain(kFailed, "the run ended before time stood");
    if (stop.Within(kLookMillis)) return kFailed;
  }
  if (stands) std::printf("%s\n", StandText(machine.State()).c_str());
  return kDone;
}

}  // namespace

std::string ParseTime(const std::string& word, TimeSetup& setup) {
  setup.Mode = TimeMode::Real;
  if (word.empty() || word == "real") return "";
  if (word == "virtual") {
    setup.Mode = TimeMode::Virtual;
    return "";
  }
  char* rest = nullptr;
  const double factor = std::strtod(word.c_str(), &rest);
  if (rest == word.c_str() || *rest != '\0' || !(factor >= kLeastFactor && factor <= kMostFactor)) {
    return "--time " + word + ": real, virtual, or a factor from 0.001 to 1000 is wanted";
  }
  setup.FactorMillis = static_cast<std::uint32_t>(std::lround(factor * 1000));
  if (setup.FactorMillis != 1000) setup.Mode = TimeMode::Scaled;
  return "";
}

std::string ParseTask(const std::string& word, std::uint8_t& task) {
  task = kAnyTask;
  if (word.empty()) return "";
  const std::optional<int> number = WholeNumber(word);
  if (!number || *number < 1 || *number > kTasks) return "\"" + word + "\" is no PLC task: they are 1 to 8";
  task = static_cast<std::uint8_t>(*number);
  return "";
}

std::string ParsePlace(const std::string& word, TimeCommand& command) {
  const std::size_t first = word.find(':');
  const std::size_t last = word.rfind(':');
  if (first == std::string::npos || first == 0 || last <= first + 1) {
    return "\"" + word + "\" is no place: TASK:FILE:LINE is wanted, such as 1:FLOW.PLC:12";
  }
  std::string wrongTask = ParseTask(word.substr(0, first), command.HoldTask);
  if (!wrongTask.empty()) return wrongTask;
  const std::optional<int> line = WholeNumber(word.substr(last + 1));
  if (!line || *line < 1) return "\"" + word.substr(last + 1) + "\" is no line number";
  command.HoldLine = static_cast<std::uint32_t>(*line);
  std::string file = word.substr(first + 1, last - first - 1);
  const std::string folder = "plc" + word.substr(0, first) + "/";
  if (file.compare(0, folder.size(), folder) != 0) file.insert(0, folder);
  if (file.size() >= sizeof command.HoldFile) return "the file's name is too long";
  std::memcpy(command.HoldFile, file.c_str(), file.size() + 1);
  return "";
}

std::string StandText(const RackState& state) {
  const TimeControl& time = state.Time;
  char at[40];
  std::snprintf(at, sizeof at, "%.6f s", static_cast<double>(state.Live.Now) / static_cast<double>(kSecond));
  if (time.StandsTask < 1 || time.StandsTask > kTasks || time.StandsFile < 1 ||
      time.StandsFile > kMaxProgramFiles) {
    return std::string("time stands at ") + at;
  }
  std::string text = state.Live.Tasks[time.StandsTask].Text;
  text.erase(text.find_last_not_of(" \t\r\n") + 1);
  return "task " + std::to_string(time.StandsTask) + " stands at " + at + " before " +
         state.Live.ProgramFiles[time.StandsFile - 1] + ":" + std::to_string(time.StandsLine) + "  " + text;
}

StandstillWatch::StandstillWatch(const RackState& state)
    : state_(state), beat_(state.Time.Beat), since_(MonotonicNow()) {}

std::string StandstillWatch::operator()() {
  const TimeControl& time = state_.Time;
  if (time.Setup.Mode != TimeMode::Virtual) return "";
  const std::uint32_t beat = time.Beat;
  if (beat != beat_ || time.Standing != 0 || time.InConsole != 0) {
    beat_ = beat;
    since_ = MonotonicNow();
    return "";
  }
  if (MonotonicNow() - since_ < kStandstill) return "";
  const std::optional<std::string> call = WaitsIn(state_.Live.Controller.Process, time.Turn);
  if (!call) {  // a controller that is only just starting
    since_ = MonotonicNow();
    return "";
  }
  const std::string thread = "thread " + std::to_string(time.Turn) + " of the controller ";
  if (!call->empty()) {
    return thread + "waits in the call " + *call + ", which virtual time does not know: it cannot go on";
  }
  if (MonotonicNow() - since_ < kComputing) return "";
  return thread + "has computed for 60 s without a call: virtual time cannot go on";
}

int Step(const StepOptions& options) {
  TimeCommand command{};
  command.Step = 1;
  const std::string wrong = ParseTask(options.task, command.HoldTask);
  return wrong.empty() ? Command(options.machine, command) : Complain(kWrongUse, wrong);
}

int Until(const UntilOptions& options) {
  TimeCommand command{};
  const std::string wrong = ParsePlace(options.place, command);
  return wrong.empty() ? Command(options.machine, command) : Complain(kWrongUse, wrong);
}

int Go(const std::string& machine) {
  return Command(machine, TimeCommand{});
}

}  // namespace rack::tool
