// `velmo-rack run` as a process: what it refuses, what it starts again, what it leaves behind.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "machine/machine.h"
#include "machine/supervise.h"

namespace rack {
namespace {

using std::filesystem::path;

bool Eventually(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    Doze(5);
  }
  return true;
}

// A terminal of 80 by 24 with a program on it.
class Terminal {
 public:
  explicit Terminal(std::vector<std::string> words) {
    const winsize size = {24, 80, 0, 0};
    process_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (process_ != 0) return;
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    setenv("TERM", "xterm", 1);
    execv(argv[0], argv.data());
    _exit(127);
  }
  ~Terminal() {
    End(SIGKILL);
    close(terminal_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Its exit status after this signal.
  int End(int signal) {
    int status = 0;
    if (process_ <= 0 || kill(process_, signal) != 0) return -1;
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  void Type(const std::string& keys) const { (void)!write(terminal_, keys.data(), keys.size()); }
  // Whether the program has ever written this.
  bool Shows(const std::string& text) {
    pollfd readable = {terminal_, POLLIN, 0};
    char part[4096];
    while (poll(&readable, 1, 0) > 0) {
      const ssize_t count = read(terminal_, part, sizeof part);
      if (count <= 0) break;
      shown_.append(part, static_cast<std::size_t>(count));
    }
    return shown_.find(text) != std::string::npos;
  }
  const std::string& Shown() const { return shown_; }

 private:
  int terminal_ = -1;
  pid_t process_ = -1;
  std::string shown_;
};

class RunTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/velmo-rack-test-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    // A blank in the path: it must not divide what is preloaded.
    machine = path(name) / "a machine";
    ASSERT_EQ(Tool({"new", machine}), 0);
    // A reset that is over at once: keys that come while a cylinder is set up are not seen.
    std::ofstream(machine / "plc1/RESET.PLC") << "OUT: 1, 2, 0\nLD: 1, 5, 0\nOUT: 0, 8, 1\nEXIT\n";
  }
  void TearDown() override {
    for (const pid_t process : started) {
      kill(process, SIGKILL);
      waitpid(process, nullptr, 0);
    }
    // Where the tool failed to take its controller along, none may stay behind.
    const pid_t controller = HasFailure() && !started.empty() ? Controller() : -1;
    if (controller > 0) kill(controller, SIGKILL);
    std::filesystem::remove_all(machine.parent_path());
  }

  pid_t Start(const std::vector<std::string>& words) {
    const pid_t child = fork();
    if (child == 0) {
      std::vector<char*> argv;
      argv.reserve(words.size() + 2);
      std::vector<std::string> all = words;
      all.insert(all.begin(), VELMO_RACK_PROGRAM);
      for (std::string& word : all) argv.push_back(word.data());
      argv.push_back(nullptr);
      const int output =
          open((machine.parent_path() / "output").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      dup2(output, STDOUT_FILENO);
      dup2(output, STDERR_FILENO);
      execv(argv[0], argv.data());
      _exit(127);
    }
    return child;
  }
  static int Wait(pid_t process) {
    int status = 0;
    waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  int Tool(const std::vector<std::string>& words) { return Wait(Start(words)); }

  // Starts the machine and waits until its controller has opened a program.
  pid_t Run(std::vector<std::string> words = {}) {
    words.insert(words.begin(), "run");
    words.push_back(machine);
    started.push_back(Start(words));
    EXPECT_TRUE(Eventually([&] {
      Machine view;
      if (!view.Open(machine).empty()) return false;
      return view.Running() && view.State().live.tasks[1].file != 0;
    })) << Output();
    return started.back();
  }
  pid_t Controller() const {
    Machine view;
    return view.Open(machine).empty() ? view.State().live.controller.process : -1;
  }
  std::string Output() const {
    std::ifstream file(machine.parent_path() / "output");
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static bool Gone(pid_t process) { return kill(process, 0) != 0; }

  path machine;
  std::vector<pid_t> started;
};

TEST_F(RunTest, TheControllerHasNoRightToRestartAndDiesWithTheTool) {
  const pid_t tool = Run();
  const pid_t controller = Controller();
  std::ifstream status("/proc/" + std::to_string(controller) + "/status");
  std::string line;
  int sets = 0;
  while (std::getline(status, line)) {
    if (line.rfind("Cap", 0) != 0) continue;
    ++sets;
    EXPECT_EQ(std::stoull(line.substr(8), nullptr, 16) >> 22 & 1, 0U) << line;
  }
  EXPECT_EQ(sets, 5);
  kill(tool, SIGKILL);
  EXPECT_TRUE(Eventually([&] { return Gone(controller); }));
}

TEST_F(RunTest, StopSignalEndsTheControllerAndASecondRunIsRefused) {
  const pid_t tool = Run();
  const pid_t controller = Controller();
  EXPECT_EQ(Tool({"run", machine}), 1);
  EXPECT_THAT(Output(),
              testing::HasSubstr("velmo-rack: the machine in " + machine.string() + " runs already\n"));
  EXPECT_EQ(Controller(), controller);
  kill(tool, SIGTERM);
  EXPECT_EQ(Wait(tool), 143);
  EXPECT_TRUE(Gone(controller));
  started.clear();
}

TEST_F(RunTest, AnInterceptedRestartStartsTheControllerAgainOnTheSameRack) {
  Run();
  const pid_t before = Controller();
  EXPECT_EQ(Tool({"in", "start_button", "on", "--machine", machine}), 0);
  std::ofstream(machine / "reboot.txt") << "";
  ASSERT_TRUE(Eventually([&] { return Controller() != before; }));
  EXPECT_TRUE(Gone(before));
  EXPECT_FALSE(std::filesystem::exists(machine / "reboot.txt"));
  Machine view;
  ASSERT_EQ(view.Open(machine), "");
  const Snapshot snapshot = view.Take();
  EXPECT_EQ(snapshot.restarts, 1U);
  EXPECT_EQ(snapshot.syncs, 1U);
  EXPECT_EQ(snapshot.cards[0].inputs, 1);  // still held: the rack was not switched off
  EXPECT_THAT(Output(), testing::HasSubstr("the controller restarted the machine, starting it again\n"));
}

TEST_F(RunTest, ADeathHasItsSignalsNameAndTheDeadDoNotRun) {
  const path script = machine.parent_path() / "dies";
  std::ofstream(script) << "#!/bin/sh\nkill -KILL $$\n";
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  EXPECT_EQ(Tool({"run", "--controller", script, machine}), 1);
  EXPECT_THAT(Output(), testing::HasSubstr(
                            "velmo-rack: the controller has died by SIGKILL before it came to the rack\n"));
  Machine view;
  ASSERT_EQ(view.Open(machine), "");
  const pid_t child = fork();
  if (child == 0) _exit(0);
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
  view.State().live.controller.process = child;
  EXPECT_FALSE(view.Running());  // it has ended, and nobody has asked how
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(RunTest, KeysAreTakenAndTheProgramFollows) {
  Run();
  ASSERT_EQ(Tool({"key", "Enter", "--machine", machine}), 0) << Output();
  Machine view;
  ASSERT_EQ(view.Open(machine), "");
  EXPECT_TRUE(Eventually([&] {
    const Snapshot snapshot = view.Take();
    return snapshot.tasks[0].file == "plc1/FLOW.PLC" && snapshot.tasks[0].text.rfind("LD: 0, 0, 1", 0) == 0;
  }));
  ASSERT_EQ(Tool({"key", "Plus", "STEP", "--machine", machine}), 0) << Output();
  EXPECT_TRUE(view.Take().tasks[0].stepMode);
  EXPECT_EQ(Tool({"key", "Entr", "--machine", machine}), 2);
  EXPECT_EQ(Tool({"in", "0.16", "on", "--machine", machine}), 2);
}

TEST_F(RunTest, WatchPressesKeysOnATerminalAndGivesItBack) {
  Run();
  Machine view;
  ASSERT_EQ(view.Open(machine), "");
  Terminal terminal({VELMO_RACK_PROGRAM, "watch", "--machine", machine});
  ASSERT_TRUE(Eventually([&] { return terminal.Shows("task 1 plc1/RESET.PLC:"); })) << terminal.Shown();
  EXPECT_TRUE(terminal.Shows("\x1b[?1049h"));
  EXPECT_TRUE(terminal.Shows("start_button"));
  terminal.Type("\r");
  EXPECT_TRUE(Eventually([&] { return view.Take().tasks[0].file == "plc1/FLOW.PLC"; }));
  EXPECT_TRUE(Eventually([&] { return terminal.Shows("taken"); })) << terminal.Shown();
  EXPECT_EQ(terminal.End(SIGTERM), 0);
  EXPECT_TRUE(Eventually([&] { return terminal.Shows("\x1b[?1049l"); }));
  // Without a terminal that can place the cursor it is plain text.
  EXPECT_EQ(Tool({"watch", "strat_button", "--machine", machine}), 2);
  EXPECT_THAT(Output(), testing::HasSubstr("nothing is called \"strat_button\"; did you mean start_button?"));
}

// What is typed while another command presses keys waits until that one is through, and holds the others up in turn.
TEST_F(RunTest, KeysFromWatchTakeTurnsWithTheOnesOfKey) {
  Run();
  Machine view;
  ASSERT_EQ(view.Open(machine), "");
  const std::string turn = RunDirectory(machine) + "/keys";
  const std::vector<std::string> watch = {ProgramDirectory() + "/../velmo-rack", "watch", "--machine",
                                          machine};
  for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
    Terminal terminal(watch);
    ASSERT_TRUE(Eventually([&] { return terminal.Shows("q end"); })) << terminal.Shown();
    const std::uint32_t before = view.Live().keys.pressCount;
    {
      const MachineLock other(turn);
      ASSERT_TRUE(other.Held());
      terminal.Type("78");
      ASSERT_TRUE(Eventually([&] { return terminal.Shows("8: waits until the other keys are pressed"); }));
      EXPECT_EQ(view.Live().keys.pressCount, before);
    }
    // Both, one after the other; then the turn is free again.
    EXPECT_TRUE(Eventually([&] { return view.Live().keys.pressCount == before + 2; }));
    EXPECT_TRUE(Eventually([&] { return MachineLock(turn).Held(); }));
    EXPECT_EQ(view.Live().keys.code, 0U);
    // A key that is typed again and again stays held, past any tap.
    const Nanos begin = view.Now();
    EXPECT_TRUE(Eventually([&] {
      terminal.Type("5");
      const bool held = view.Now() > begin + kSecond && view.Live().keys.code == 0x73;
      return held && !MachineLock(turn).Held();
    }));
    EXPECT_EQ(terminal.End(signal), 0) << signal;
    EXPECT_TRUE(MachineLock(turn).Held());
    EXPECT_TRUE(Eventually([&] { return view.Live().keys.code == 0; }));
  }
  // Killed, it renews the key no more.
  {
    Terminal terminal(watch);
    ASSERT_TRUE(Eventually([&] { return terminal.Shows("q end"); }));
    EXPECT_TRUE(Eventually([&] {
      terminal.Type("5");
      return view.Live().keys.code == 0x73;
    }));
  }
  EXPECT_TRUE(Eventually([&] { return MachineLock(turn).Held() && view.Live().keys.code == 0; }));
}

TEST_F(RunTest, KeyTellsWhoSleptThroughIt) {
  std::ofstream(machine / "plc1/RESET.PLC") << "DLY: 3600000\nEXIT\n";
  Run();
  ASSERT_EQ(Tool({"key", "minus", "--machine", machine}), 0) << Output();
  EXPECT_THAT(Output(),
              testing::ContainsRegex("Dec: task 1 sleeps 3[0-9.]+ s more in DLY and has not seen it\n"));
}

TEST_F(RunTest, UntilRefusesWhatNeverComesAndShowTellsWhereTimeStands) {
  std::ofstream(machine / "plc1/RESET.PLC") << "; rest\nOUT: 1, 2, 0\nEXIT";
  const std::string refusals =
      "velmo-rack: the machine has no task 3: it runs 2\n"
      "velmo-rack: there is no file plc1/REST.PLC\n"
      "velmo-rack: there is no line plc1/RESET.PLC:4: the file has 3\n"
      "velmo-rack: plc1/RESET.PLC:1 holds no command: the next one is 2  OUT: 1, 2, 0\n";
  const auto run = [&](const char* place, const char* tasks = "") {
    return Tool({"run", machine, "--tasks", tasks, "--time", "virtual", "--until", place});
  };
  EXPECT_EQ(run("2:FLOW.PLC:1", "1"), 2);
  EXPECT_THAT(Output(), testing::EndsWith("velmo-rack: the machine has no task 2: it runs 1\n"));
  EXPECT_EQ(run("3:RESET.PLC:2"), 2);
  EXPECT_EQ(run("1:REST.PLC:2"), 2);
  EXPECT_EQ(run("1:RESET.PLC:4"), 2);
  EXPECT_EQ(run("1:RESET.PLC:1"), 2);
  EXPECT_THAT(Output(), testing::EndsWith(refusals));
  EXPECT_FALSE(std::filesystem::exists(machine / ".velmo-rack/state"));

  Run({"--time", "virtual", "--until", "1:RESET.PLC:2"});
  Machine view;
  ASSERT_EQ(view.Open(machine), "");
  ASSERT_TRUE(Eventually([&] { return view.Standing(); }));
  const auto until = [&](const char* place) { return Tool({"until", place, "--machine", machine}); };
  EXPECT_EQ(until("3:RESET.PLC:2"), 2);
  EXPECT_EQ(until("1:REST.PLC:2"), 2);
  EXPECT_EQ(until("1:RESET.PLC:4"), 2);
  EXPECT_EQ(until("1:RESET.PLC:1"), 2);
  EXPECT_THAT(Output(), testing::EndsWith(refusals));
  EXPECT_EQ(Tool({"show", "--machine", machine}), 0);
  EXPECT_THAT(Output(),
              testing::HasSubstr("\ntime stands, task 1 before plc1/RESET.PLC:2  OUT: 1, 2, 0; go, step or "
                                 "until lets it go on\n"));
  EXPECT_EQ(Tool({"show", "--json", "--machine", machine}), 0);
  EXPECT_THAT(Output(), testing::HasSubstr("\"stands\": true"));

  // A place that is passed no more: the wait is told, and ends where a signal finds it.
  const pid_t waiting = Start({"until", "1:FLOW.PLC:2", "--machine", machine});
  EXPECT_TRUE(
      Eventually([&] { return Output().find("waits for task 1 at plc1/FLOW.PLC:2;") != std::string::npos; }));
  kill(waiting, SIGINT);
  EXPECT_EQ(Wait(waiting), 1);
  EXPECT_TRUE(view.Standing());
}

TEST_F(RunTest, WhatTheCheckerFindsIsToldInALine) {
  std::ofstream(machine / "plc1/FLOW.PLC") << "LDX: 0, 0, 1\nEND\n";
  Run();
  EXPECT_THAT(Output(), testing::ContainsRegex("velmo-check: [0-9]+ errors?, [0-9]+ warnings?\n"));
  EXPECT_EQ(Tool({"shwo"}), 2);
  EXPECT_THAT(Output(),
              testing::HasSubstr("there is no command \"shwo\"; did you mean show? (commands: run, "));
  EXPECT_EQ(Tool({"--version"}), 0);
  EXPECT_EQ(Tool({"trace", "--version"}), 0);
  EXPECT_THAT(Output(), testing::HasSubstr("velmo-rack of Velmo 0.0.0.4\n"));
}

TEST_F(RunTest, ABadRackFileAndAMissingDirectoryStartNothing) {
  std::ofstream(machine / "rack.toml") << "[rack]\ntask_cuont = 1\n";
  EXPECT_EQ(Tool({"run", machine}), 1);
  EXPECT_THAT(Output(), testing::HasSubstr("rack.toml:2:"));
  EXPECT_EQ(Tool({"run", machine / "none"}), 2);
  EXPECT_EQ(Tool({"run", "--controller", machine / "none", machine}), 1);
  EXPECT_FALSE(std::filesystem::exists(machine / ".velmo-rack"));
  EXPECT_EQ(Tool({"show", "--machine", machine}), 1);
}

}  // namespace
}  // namespace rack
