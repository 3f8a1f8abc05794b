// Each call that the controller makes is made to fail, the Nth time and for ever from the Nth: it must do what it says for
// that failure, no more and no less.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>
#include <sstream>

#include "injected_run.h"

namespace {

// What has to be seen when a call fails.
enum class Flow {
  Same,  // every line of the console as without the failure
  Near,  // the same but for the order of threads: each task has come about as far
  Free,  // the bus, or a line of a program, was another: the tasks go other ways
  Ends   // the process ends with status 1
};

struct Failure {
  const char* call;
  const char* about;  // beginning of what the call is about
  Flow flow;
  const char* line = "";   // due on standard output; %d: the task of the program file, or the thread
  const char* error = "";  // due on standard error
};

constexpr const char* kCalls[] = {"open",   "read",      "write",   "close",          "fopen",
                                  "fgets",  "fclose",    "opendir", "readdir",        "remove",
                                  "chmod",  "fwrite",    "socket",  "bind",           "recvfrom",
                                  "sendto", "nanosleep", "malloc",  "pthread_create", "pthread_mutex_init"};

// The first row that fits. Each path begins as the controller gives it; a stream's is that of the open file.
constexpr Failure kFailures[] = {
    {"open", "/dev/em", Flow::Free, "No Hardware Installed!\n"},
    {"open", "", Flow::Near},
    {"read", "", Flow::Free},
    {"write", "bus", Flow::Free},
    {"write", "", Flow::Same},
    {"close", "", Flow::Same},
    {"fopen", "plc%d/RESET.PLC", Flow::Free, "PLC%d: RESET.PLC lost Task quit!\n"},
    {"fopen", "plc%d/FLOW.PLC", Flow::Free, "PLC%d: Load PLC%d Run: [plc%d/FLOW.PLC] Failed!\n"},
    {"fopen", "plc", Flow::Free},
    {"fopen", "Velmo.conf", Flow::Free},
    {"fopen", "", Flow::Near},
    {"fgets", "", Flow::Free},
    {"fclose", "", Flow::Same},
    {"opendir", "", Flow::Near, "", "Open dir error...: Too many open files\n"},
    {"readdir", "", Flow::Near, "", "Read dir error...: Input/output error\n"},
    {"remove", "reboot.txt", Flow::Near, "reboot.txt cannot be removed: Read-only file system, no restart\n"},
    {"remove", "", Flow::Near},
    {"chmod", "", Flow::Same},
    {"fwrite", "", Flow::Near},
    {"socket", "", Flow::Near, "PLCNet: Recvfrom error\n", "create socket failed: Too many open files\n"},
    {"bind", "", Flow::Near, "UDP port 20170 is not bound\n", "bind error: Address already in use\n"},
    {"recvfrom", "", Flow::Near, "PLCNet: Recvfrom error\n"},
    {"sendto", "", Flow::Near, "PLCNet: Sendto error 127.0.0.1 Port 40000\n"},
    {"nanosleep", "", Flow::Free},
    {"malloc", "", Flow::Free, "No memory: slot "},
    {"pthread_create", "", Flow::Free, "main: Resource temporarily unavailable\n"},
    {"pthread_mutex_init", "", Flow::Ends, "", " mutex_lock fail: Cannot allocate memory\n"},
};

std::string WithNumber(const char* text, int number) {
  std::string filled = text;
  for (std::size_t at; (at = filled.find("%d")) != std::string::npos;)
    filled.replace(at, 2, std::to_string(number));
  return filled;
}

const Failure& FailureOf(const std::string& call, const std::string& about, int role) {
  for (const Failure& row : kFailures) {
    if (call == row.call && about.rfind(WithNumber(row.about, role), 0) == 0) return row;
  }
  static constexpr Failure kNone = {"", "", Flow::Same};
  return kNone;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::string line;
  for (const char character : text) {
    line += character;
    if (character != '\n' && character != '\r') continue;
    lines.push_back(line);
    line.clear();
  }
  if (!line.empty()) lines.push_back(line);
  return lines;
}

// Lines that a failure at start may leave out, and what cards and the scan say of a bus that fails.
bool IsFree(const std::string& line) {
  for (const char* begin : {"PLC", "STMTR:", "ASDA:", "CYMSTR:", "CardID:", "Allow PLC", "HKEY",
                            "Velmo.conf:", "ID:", "Velmo Load Driver Failed!"}) {
    if (line.rfind(begin, 0) == 0) return true;
  }
  return line.find_first_not_of("\r\n") == line.npos;
}

// Numbers of threads, and the program in which a key finds a task.
bool IsOfOrder(const std::string& line) {
  return Contains(line, " TID") || Contains(line, "HKEY_Enter") || Contains(line, " Run: [");
}

// One injection, held against the run in which nothing fails.
class Judge {
 public:
  Judge(const MachineFiles& machine, const RunResult& whole, const std::string& call, const RunResult& run)
      : machine_(machine),
        whole_(whole),
        call_(call),
        run_(run),
        about_(run.record.failedAt),
        failure_(FailureOf(call, about_, run.record.failedRole)) {}

  // Empty: survived. Else what is wrong.
  std::string Verdict() const {
    if (run_.record.failed == 0) return "no call has failed: " + run_.errors;
    if (failure_.flow == Flow::Ends || IsCpuCardLost()) return Ended();
    if (!run_.runsAtEnd || run_.hangs) return "the controller has ended or hangs: " + run_.errors;
    std::string wrong = Due();
    if (wrong.empty()) wrong = Alive();
    if (wrong.empty()) wrong = Lines();
    if (wrong.empty()) wrong = Disk();
    if (wrong.empty() && call_ == "remove" && about_ == "reboot.txt" && run_.restarts != 0)
      wrong = "it restarts";
    return wrong;
  }
  std::string About() const { return about_; }

 private:
  bool IsCpuCardLost() const { return Contains(run_.console + run_.errors, "CPU card cannot be made"); }

  std::string Ended() const {
    if (run_.runsAtEnd || run_.status != 1) return "status " + std::to_string(run_.status) + " instead of 1";
    const std::string error =
        call_ == "malloc" ? "CPU card cannot be made: Cannot allocate memory\n" : failure_.error;
    return Contains(run_.errors, error) ? "" : "not told: " + run_.errors;
  }

  std::string Due() const {
    if (!Contains(run_.console, WithNumber(failure_.line, run_.record.failedRole)))
      return "the due line is not there";
    if (!Contains(run_.errors, failure_.error)) return "the due error is not there";
    const bool isOnce = call_ != "readdir" || run_.errors.find("Read dir") == run_.errors.rfind("Read dir");
    return isOnce ? "" : "told more than once";
  }

  // Which threads may be missing: those that this failure keeps from starting.
  bool MayBeGone(int role) const {
    const std::string number = std::to_string(role);
    if (call_ == "pthread_create") return !Contains(run_.console, StartLine(role));
    if (role == 0 || role > 8) return false;
    if (call_ == "fopen" && Contains(run_.console, "PLC" + number + ": RESET.PLC lost Task quit!\n"))
      return true;
    const std::size_t allowed = run_.console.find("Allow PLC[1]: ");
    return allowed != std::string::npos && std::atoi(run_.console.c_str() + allowed + 14) < role;
  }
  static std::string StartLine(int role) {
    if (role == 0) return "Load TaskKey.\n";
    return role == 9 ? "Load TaskNet.\n" : "Load TaskPLC" + std::to_string(role) + ".\n";
  }

  std::string Alive() const {
    int missing = 0;
    for (int role = 0; role < kCallRoles; ++role) {
      if (whole_.record.made[role] == 0) continue;
      // The supervisor looks every five seconds, the others make calls all the time.
      const CallRecord& before = role == kMainRole ? run_.early : run_.late;
      const bool isAlive = run_.record.isWaiting[role] != 0 || run_.record.made[role] > before.made[role];
      if (!isAlive && !MayBeGone(role)) return "thread " + std::to_string(role) + " stands still";
      if (!isAlive) ++missing;
    }
    const bool isRight = call_ != "pthread_create" || missing == run_.record.failed;
    return isRight ? "" : "a thread is missing that could be made";
  }

  std::string Lines() const {
    const std::vector<std::string> before = LinesOf(whole_.console);
    const std::vector<std::string> now = LinesOf(run_.console);
    if (call_ == "write" && about_ != "bus") return LostLines(before, now);
    for (const std::string& line : now) {
      const bool isKnown = std::find(before.begin(), before.end(), line) != before.end();
      if (!isKnown && !IsDue(line) && !IsOfOrder(line) && !(IsFreeFlow() && IsFree(line)))
        return "an unknown line: " + line;
    }
    if (IsFreeFlow()) return "";
    return failure_.flow == Flow::Same ? SameLines(before, now) : NearLines(before, now);
  }

  // Also of the calls that fail behind the first one.
  bool IsDue(const std::string& line) const {
    for (const Failure& row : kFailures) {
      for (int task = 0; call_ == row.call && task <= 9; ++task) {
        const std::string due = WithNumber(row.line, task);
        if (!due.empty() && line.rfind(due, 0) == 0) return true;
      }
    }
    return false;
  }
  bool IsFreeFlow() const {
    const auto isFree = [this](const Failure& row) { return call_ == row.call && row.flow == Flow::Free; };
    const bool isForEver = run_.record.failed > 1;
    return failure_.flow == Flow::Free ||
           (isForEver && std::any_of(std::begin(kFailures), std::end(kFailures), isFree));
  }

  // Each task that has started has about as many lines as without the failure.
  std::string NearLines(const std::vector<std::string>& before, const std::vector<std::string>& now) const {
    for (int task = 1; task <= 8; ++task) {
      const std::string prefix = "PLC" + std::to_string(task) + ": ";
      const auto isOfTask = [&](const std::string& line) { return line.rfind(prefix, 0) == 0; };
      const auto wanted = std::count_if(before.begin(), before.end(), isOfTask);
      const auto found = std::count_if(now.begin(), now.end(), isOfTask);
      if (found * 5 < wanted * 4 && !MayBeGone(task)) return "task " + std::to_string(task) + " falls behind";
    }
    return "";
  }

  // What the start scripts and the restart say may be missing; everything else comes as it did.
  static std::string Kept(const std::vector<std::string>& lines) {
    std::string kept;
    for (const std::string& line : lines) {
      const bool isLeftOut =
          line.rfind("Prcessing", 0) == 0 || line == "\n" || line.rfind("Velmo: Reboot", 0) == 0;
      if (!isLeftOut) kept += line;
    }
    return kept;
  }
  static std::string SameLines(const std::vector<std::string>& before, const std::vector<std::string>& now) {
    return Kept(before) == Kept(now) ? "" : "other lines, or in another order";
  }

  // A line that is not taken is lost, and it alone.
  std::string LostLines(const std::vector<std::string>& before, const std::vector<std::string>& now) const {
    std::size_t next = 0;
    for (const std::string& line : now) {
      while (next < before.size() && before[next] != line) ++next;
      if (next++ == before.size()) return "an unknown line: " + line;
    }
    const auto lost = static_cast<std::int64_t>(before.size() - now.size());
    const std::int64_t most =
        about_ == "console" ? run_.record.failed * 2 : 0;  // an empty line may go with another
    return lost <= most ? "" : std::to_string(lost) + " lines are lost";
  }

  // A start script is as it was, or converted; if it is neither, its text is in tmp.txt, which is told.
  std::string Disk() const {
    for (const auto& [name, text] : machine_.files) {
      const auto found = run_.files.find(name);
      if (name == "reboot.txt") continue;
      if (found == run_.files.end()) return name + " is gone";
      std::string converted = text;
      if (name.find('/') == name.npos && name != "Velmo.conf" && name != "rack.toml") {
        std::replace(converted.begin(), converted.end(), '\r', '\n');
      }
      if (found->second == text || found->second == converted) continue;
      const auto kept = run_.files.find("tmp.txt");
      const bool isTold = Contains(run_.console, name + " could not be written, its text is in tmp.txt\n");
      if (!isTold || kept == run_.files.end() || kept->second != converted) return name + " is lost";
    }
    return "";
  }

  const MachineFiles& machine_;
  const RunResult& whole_;
  const std::string call_;
  const RunResult& run_;
  const std::string about_;
  const Failure& failure_;
};

// Which calls of one name are made to fail: the first about each thing, and further ones at growing distances.
std::vector<long> Numbers(const std::vector<std::string>& calls, const std::string& call, int most) {
  std::set<long> numbers;
  std::set<std::string> seen;
  long made = 0;
  for (const std::string& line : calls) {
    if (line.rfind(call + " ", 0) != 0) continue;
    ++made;
    if (static_cast<int>(numbers.size()) < most && seen.insert(line).second) numbers.insert(made);
  }
  long step = 1;
  for (long number = 1; number <= made && static_cast<int>(numbers.size()) < 2 * most;
       number += step, step += step / 2 + 1) {
    numbers.insert(number);
  }
  if (made > 0 && most > 2) numbers.insert(made);
  return {numbers.begin(), numbers.end()};
}

struct Sum {
  long made = 0;
  int injected = 0;
  int survived = 0;
};

class Injection : public testing::Test {
 protected:
  // Null: of each name the last call once, and from the first one on for ever.
  void TryMachine(const MachineFiles& machine, const char* most) {
    const RunResult whole = RunMachine(machine, "");
    ASSERT_TRUE(whole.runsAtEnd) << whole.errors;
    for (const char* call : kCalls) {
      const auto isOfName = [&](const std::string& line) {
        return line.rfind(call + std::string(" "), 0) == 0;
      };
      const auto made = std::count_if(whole.calls.begin(), whole.calls.end(), isOfName);
      sums_[call].made += made;
      if (most == nullptr && made > 0) {
        Try(machine, whole, call, std::to_string(made));
        Try(machine, whole, call, "1+");
        continue;
      }
      for (const long number : Numbers(whole.calls, call, most == nullptr ? 0 : std::atoi(most))) {
        for (const char* mark : {"", "+"}) Try(machine, whole, call, std::to_string(number) + mark);
      }
    }
  }

  // One alone, as a failure names it: "read 3+".
  void TryOne(const MachineFiles& machine, const std::string& failing) {
    const std::size_t space = failing.find(' ');
    Try(machine, RunMachine(machine, ""), failing.substr(0, space), failing.substr(space + 1));
  }

  void Print() {
    std::printf("%-20s %9s %9s %9s %7s\n", "call", "made", "injected", "survived", "ratio");
    Sum all;
    for (const char* call : kCalls) {
      const Sum& sum = sums_[call];
      PrintRow(call, sum);
      all = {all.made + sum.made, all.injected + sum.injected, all.survived + sum.survived};
    }
    PrintRow("all", all);
  }

 private:
  void Try(const MachineFiles& machine, const RunResult& whole, const std::string& call,
           const std::string& number) {
    RunResult run = RunMachine(machine, call + " " + number);
    // What a failure does to the controller it does in each run: what does not come again was not done by it.
    if (run.hangs || (!run.runsAtEnd && Contains(run.errors, "velmo-rack: "))) {
      std::printf("%s: %s %s runs again: %s\n", machine.name.c_str(), call.c_str(), number.c_str(),
                  run.errors.c_str());
      run = RunMachine(machine, call + " " + number);
    }
    const Judge judge(machine, whole, call, run);
    const std::string wrong = judge.Verdict();
    ++sums_[call].injected;
    if (wrong.empty()) ++sums_[call].survived;
    EXPECT_EQ(wrong.substr(0, 300), "")
        << machine.name << ": " << call << " " << number << " (" << judge.About() << ")";
  }

  static void PrintRow(const char* name, const Sum& sum) {
    if (sum.injected == 0) {
      std::printf("%-20s %9ld %9s %9s %7s\n", name, sum.made, "-", "-", "-");
      return;
    }
    std::printf("%-20s %9ld %9d %9d %7.3f\n", name, sum.made, sum.injected, sum.survived,
                static_cast<double>(sum.survived) / sum.injected);
  }

  std::map<std::string, Sum> sums_;
};

// VELMO_INJECTIONS: how many calls of each name, of each machine, are picked for what they are about; as many again follow.
// VELMO_INJECTION: one alone, on the machine with eight tasks.
TEST_F(Injection, EachFailedCallIsSurvived) {
  const char* const most = std::getenv("VELMO_INJECTIONS");
  const char* const one = std::getenv("VELMO_INJECTION");
  if (one != nullptr) {
    TryOne(EightTasks(), one);
  } else if (most == nullptr) {
    TryMachine(EightTasks(), nullptr);
  } else {
    for (const MachineFiles& machine : {DemoCell(), EightTasks()}) TryMachine(machine, most);
  }
  Print();
}

}  // namespace
