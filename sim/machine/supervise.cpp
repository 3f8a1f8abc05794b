#include "machine/supervise.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>

#include "machine/elf_header.h"

namespace rack {

namespace {

constexpr const char* kRealDevices[] = {"/dev/em_isa", "/dev/em335x_isa"};
constexpr int kNotStarted = 127;

// Takes the right to restart the machine away for good: from the bounding set, so that no later program
// regains it, and from every set of this process. True when it is gone.
bool DropRestartRight() {
  constexpr std::uint32_t kRestartBit = 1U << CAP_SYS_BOOT;
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  // Without the right to change the bounding set there is no restart right in force either; the check below
  // tells.
  prctl(PR_CAPBSET_DROP, CAP_SYS_BOOT, 0, 0, 0);
  prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_LOWER, CAP_SYS_BOOT, 0, 0);
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
  if (syscall(SYS_capget, &header, sets) != 0) return false;
  sets[0].effective &= ~kRestartBit;
  sets[0].permitted &= ~kRestartBit;
  sets[0].inheritable &= ~kRestartBit;
  if (syscall(SYS_capset, &header, sets) != 0) return false;
  // A process of the superuser gets the bounding set back at exec.
  return geteuid() != 0 || prctl(PR_CAPBSET_READ, CAP_SYS_BOOT, 0, 0, 0) == 0;
}

std::vector<std::string> Environment(const Launch& launch) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view inherited = *entry;
    const std::string_view name = inherited.substr(0, inherited.find('=') + 1);
    const auto replaces = [&](const std::string& own) { return own.compare(0, name.size(), name) == 0; };
    if (std::none_of(launch.environment.begin(), launch.environment.end(), replaces)) {
      environment.emplace_back(inherited);
    }
  }
  environment.insert(environment.end(), launch.environment.begin(), launch.environment.end());
  return environment;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// What the child runs, made ready ahead of the fork: another thread may hold the heap's lock at that moment, so
// behind it there are system calls only.
class ChildProgram {
 public:
  explicit ChildProgram(const Launch& launch)
      : launch_(launch), words_(launch.arguments), environment_(Environment(launch)) {
    words_.insert(words_.begin(), launch.controller);
    argv_ = Pointers(words_);
    envp_ = Pointers(environment_);
  }

  // The child's side: everything up to the controller's program. What fails is told through the pipe.
  [[noreturn]] void Become(pid_t parent, int pipe) const {
    const char* const wrong = Prepare(parent);
    if (wrong == nullptr) execve(launch_.controller.c_str(), argv_.data(), envp_.data());
    Tell(pipe, wrong == nullptr ? launch_.controller.c_str() : wrong);
    _exit(kNotStarted);
  }

 private:
  // Null, or what failed; errno says why.
  const char* Prepare(pid_t parent) const {
    if (prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) != 0) return "tie to the tool";
    if (getppid() != parent) _exit(kNotStarted);
    if (!DropRestartRight()) return "drop the right to restart the machine";
    if (!launch_.output.empty() && !RedirectOutput(launch_.output.c_str())) return launch_.output.c_str();
    if (chdir(launch_.directory.c_str()) != 0) return launch_.directory.c_str();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    return nullptr;
  }

  static bool RedirectOutput(const char* path) {
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    return file >= 0 && dup2(file, STDOUT_FILENO) >= 0;
  }

  // The number of the error, then what failed: StartError makes a sentence of it.
  static void Tell(int pipe, const char* what) {
    const int error = errno;
    static_cast<void>(!write(pipe, &error, sizeof error));
    static_cast<void>(!write(pipe, what, std::strlen(what)));
  }

  const Launch& launch_;
  std::vector<std::string> words_;
  std::vector<std::string> environment_;
  std::vector<char*> argv_;
  std::vector<char*> envp_;
};

// What the child had to say before it became the controller: empty when it got there.
std::string StartError(int pipe) {
  std::string told;
  char part[256];
  for (;;) {
    const ssize_t count = read(pipe, part, sizeof part);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    told.append(part, static_cast<std::size_t>(count));
  }
  int error = 0;
  if (told.size() < sizeof error) return "";
  std::memcpy(&error, told.data(), sizeof error);
  return told.substr(sizeof error) + ": " + std::strerror(error);
}

int StatusOf(int waited) {
  return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited);
}

// The signals that tell this process to stop, and the news of a child's end: taken by waiting for them.
class TakenSignals {
 public:
  TakenSignals() {
    sigemptyset(&taken_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&taken_, signal);
    sigprocmask(SIG_BLOCK, &taken_, &before_);
  }
  ~TakenSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  TakenSignals(const TakenSignals&) = delete;
  TakenSignals& operator=(const TakenSignals&) = delete;
  TakenSignals(TakenSignals&&) = delete;
  TakenSignals& operator=(TakenSignals&&) = delete;

  // The next signal, or 0 after a tenth of a second.
  int Next() const {
    constexpr timespec kPeriod = {0, 100'000'000};
    const int signal = sigtimedwait(&taken_, nullptr, &kPeriod);
    return signal < 0 ? 0 : signal;
  }

 private:
  sigset_t taken_;
  sigset_t before_;
};

void Supervise(pid_t child, const TakenSignals& signals, const Launch& launch,
               const std::function<std::string()>& watch, RunEnd& end) {
  int waited = 0;
  bool told = false;
  while (waitpid(child, &waited, WNOHANG) == 0) {
    const int signal = signals.Next();
    if (signal != 0 && signal != SIGCHLD) end.stopSignal = signal;
    if (end.stopSignal == 0 && !told) end.error = watch();
    end.over = end.over || (launch.over && launch.over());
    const bool stop = end.stopSignal != 0 || end.over || !end.error.empty();
    // The controller has nothing to tidy up: its end is the same as a machine that is switched off.
    if (stop && !told) kill(child, SIGKILL);
    told = told || stop;
  }
  end.signal = WIFSIGNALED(waited) ? WTERMSIG(waited) : 0;
  end.status = end.stopSignal != 0 ? 128 + end.stopSignal : StatusOf(waited);
}

}  // namespace

std::string EndText(const RunEnd& end) {
  if (end.signal == 0) return "has ended with status " + std::to_string(end.status);
  const char* const name = sigabbrev_np(end.signal);
  return "has died by " +
         (name == nullptr ? "signal " + std::to_string(end.signal) : "SIG" + std::string(name));
}

RunEnd RunController(const Launch& launch, const std::function<std::string()>& watch) {
  RunEnd end;
  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) {
    end.error = std::strerror(errno);
    return end;
  }
  const TakenSignals signals;
  const ChildProgram program(launch);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) program.Become(parent, pipe[1]);
  close(pipe[1]);
  if (child < 0) {
    end.error = std::string("fork: ") + std::strerror(errno);
    close(pipe[0]);
    return end;
  }
  const std::string error = StartError(pipe[0]);
  close(pipe[0]);
  end.started = error.empty();
  Supervise(child, signals, launch, watch, end);
  if (!error.empty()) end.error = error;
  return end;
}

std::string RestartWatch::operator()(Nanos now) {
  constexpr std::size_t kMost = 5;
  last_.push_back(now);
  if (last_.size() < kMost) return "";
  const Nanos first = last_.front();
  last_.pop_front();
  if (now - first >= kSecond) return "";
  return "the controller has restarted the machine " + std::to_string(kMost) +
         " times within a second: it is not started again";
}

std::string FindProgram(const std::string& name) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string program; std::getline(folders, program, ':');) {
    program.append("/").append(name);
    if (access(program.c_str(), X_OK) == 0) return program;
  }
  return "";
}

std::string WhyNotStart(const std::string& controller, const std::string& library) {
  for (const char* device : kRealDevices) {
    if (access(device, F_OK) == 0) {
      return std::string(device) + " exists: this is a real machine, the simulated rack does not start on it";
    }
  }
  if (access(controller.c_str(), X_OK) != 0) return "controller " + controller + ": " + std::strerror(errno);
  const std::string emulator = EmulatorOf(controller);
  if (!emulator.empty() && FindProgram(emulator).empty()) {
    return "controller " + controller + " is for another processor, and " + emulator +
           " (Debian: qemu-user) is not in the path";
  }
  const std::string wrong = WhyNotPreloaded(controller, library);
  return wrong.empty() ? "" : "the rack's library cannot be loaded: " + wrong;
}

MachineLock::MachineLock(const std::string& path)
    : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
  if (file_ < 0) {
    error_ = path + ": " + std::strerror(errno);
    return;
  }
  held_ = flock(file_, LOCK_EX | LOCK_NB) == 0;
  if (!held_ && errno != EWOULDBLOCK) error_ = path + ": " + std::strerror(errno);
}

MachineLock::~MachineLock() {
  if (file_ >= 0) close(file_);
}

std::string ProgramDirectory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) return ".";
  const std::string program(path, static_cast<std::size_t>(length));
  return program.substr(0, program.rfind('/'));
}

}  // namespace rack
