// `velmo-rack run` as a process: what it refuses, what it starts again, what it leaves behind.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

class RunTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/velmo-rack-test-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    // A blank in the path: it must not divide what is preloaded.
    machine = path(name) / "a machine";
    ASSERT_EQ(Tool({"new", machine}), 0);
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
      all.insert(all.begin(), ProgramDirectory() + "/../velmo-rack");
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
  std::ofstream(script) << "#!/bin/sh\nkill -SEGV $$\n";
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  EXPECT_EQ(Tool({"run", "--controller", script, machine}), 1);
  EXPECT_THAT(Output(), testing::HasSubstr(
                            "velmo-rack: the controller has died by SIGSEGV before it came to the rack\n"));
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
