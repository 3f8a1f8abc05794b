#include "machine/standstill.h"

#include <sys/syscall.h>

#include <algorithm>
#include <fstream>
#include <optional>

namespace rack {

namespace {

// Real time without a call that virtual time knows: then it hangs in one that it does not know, or, after longer,
// computes.
constexpr Nanos kStandstill = 5 * kSecond;
constexpr Nanos kComputing = 60 * kSecond;
// Of the time between two looks, so much counts at most.
constexpr Nanos kLook = 500 * kMillisecond;

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

// The letter of its state, 'T' where a signal holds it; '\0' when there is no such thread.
char StateOfThread(std::int32_t process, std::uint32_t thread) {
  std::ifstream file("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(file, text);
  // The name of the program stands in brackets and may hold some itself.
  const std::size_t name = text.rfind(") ");
  return name == std::string::npos || name + 2 >= text.size() ? '\0' : text[name + 2];
}

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

// Whether a signal or a debugger holds the thread.
bool IsStopped(std::int32_t process, std::uint32_t thread) {
  const char state = StateOfThread(process, thread);
  return state == 'T' || state == 't';
}

}  // namespace

std::string LongWait(std::int32_t process, std::uint32_t thread) {
  if (thread == 0) return "";
  std::ifstream file("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) + "/syscall");
  long number = -1;
  if (!(file >> number)) return "";
  if (number == SYS_futex) return "waits for a lock that another thread of the controller holds";
  if (number == SYS_write) return "waits for the console, which takes nothing";
  return "";
}

StandstillWatch::StandstillWatch(const RackState& state)
    : state_(state), beat_(state.time.beat), looked_(MonotonicNow()) {}

// A look that comes late, because the computer slept or this process was stopped, tells nothing of the time between.
void StandstillWatch::Count(Nanos now) {
  still_ += std::min(now - looked_, kLook);
  looked_ = now;
}

std::string StandstillWatch::operator()() {
  const TimeControl& time = state_.time;
  if (time.setup.mode != TimeMode::Virtual) return "";
  Count(MonotonicNow());
  const std::uint32_t beat = time.beat;
  const std::int32_t process = state_.live.controller.process;
  if (beat != beat_ || time.standing != 0 || time.inConsole != 0 || IsStopped(process, time.turn)) {
    beat_ = beat;
    still_ = 0;
    return "";
  }
  if (still_ < kStandstill) return "";
  const std::optional<std::string> call = WaitsIn(process, time.turn);
  if (!call) {  // a controller that is only just starting
    still_ = 0;
    return "";
  }
  const std::string thread = "thread " + std::to_string(time.turn) + " of the controller ";
  if (!call->empty()) {
    return thread + "waits in the call " + *call + ", which virtual time does not know: it cannot go on";
  }
  if (still_ < kComputing) return "";
  return thread + "has computed for 60 s without a call: virtual time cannot go on";
}

}  // namespace rack
