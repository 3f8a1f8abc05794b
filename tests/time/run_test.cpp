// `velmo-rack run --time` with the shipped controller.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <thread>

#include "machine/machine.h"
#include "preload/next.h"
#include "rack/requests.h"
#include "support/scratch.h"

namespace {

using rack::kMillisecond;
using rack::kSecond;
using testing::HasSubstr;

constexpr char kRack[] =
    "[rack]\ntask_count = 8\n[slots]\n2 = \"io\"\n3 = \"stepper\"\n5 = { card = \"cylinder\", setup_time = "
    "\"2 ms\" }\n"
    "[inputs]\nstart = \"1.0\"\n[outputs]\nlamp = \"1.1\"\n";

class TimeRunTest : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    Write("rack.toml", kRack);
    tool = std::filesystem::path(VELMO_RACK_PROGRAM);
  }
  void TearDown() override {
    End();
    ScratchTest::TearDown();
  }

  void Program(int task, const std::string& text) {
    const std::string folder = "plc" + std::to_string(task);
    std::filesystem::create_directories(folder);
    Write(folder + "/RESET.PLC", text);
  }

  // Starts the tool in the machine's directory, its output in a file.
  pid_t Start(const std::vector<std::string>& words, const std::string& output) {
    const pid_t child = fork();
    if (child != 0) return child;
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    std::vector<std::string> all = words;
    all.insert(all.begin(), tool);
    std::vector<char*> argv;
    argv.reserve(all.size() + 1);
    for (std::string& word : all) argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  static int Wait(pid_t process) {
    int status = 0;
    waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  // A command on the running machine, and what it says.
  std::string Say(const std::vector<std::string>& words, int expected = 0) {
    EXPECT_EQ(Wait(Start(words, "said")), expected) << Read("said");
    return Read("said");
  }

  void Run(std::vector<std::string> options) {
    options.insert(options.begin(), {"run", ".", "--no-check"});
    running = Start(options, "console");
  }
  // Waits until time stands after so many commands.
  void AwaitStanding(std::uint32_t number, const std::string& machineOf = ".") {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < limit) {
      rack::Machine machine;
      if (machine.Open(machineOf).empty() && rack::Stands(machine.State().time, number)) return;
      std::this_thread::yield();
    }
    FAIL() << "time does not stand: " << Read("console");
  }
  // What the run left on its console behind the line about its threads.
  static std::string Controller() {
    const std::string console = Read("console");
    const std::size_t end = console.rfind("velmo-rack: threads are ", 0) == 0 ? console.find('\n') + 1 : 0;
    return console.substr(end);
  }
  int End(int signal = SIGTERM) {
    if (running <= 0) return -1;
    if (signal != 0) kill(running, signal);
    const int status = Wait(running);
    running = -1;
    return status;
  }

  std::string tool;
  pid_t running = -1;
};

// Of a machine of eight tasks that use every card.
std::string ProgramOfEight(int task) {
  std::ostringstream text;
  text << "#LE: 1\nOUT: 1, " << task << ", 1\nMOT: 2, " << task % 4 << ", 50&20&0\nLD: 1, 0, 1\nOUT: 1, "
       << task << ", 0\n"
       << (task == 8 ? "DG: 3, 0, -1\nLDG: 3, 0,\n" : "LMOT: 2, 0,\n") << "GO: 1\n";
  return text.str();
}

// The number of the first line that begins so.
int LineOf(const std::string& path, const std::string& begin) {
  std::ifstream file(path);
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.rfind(begin, 0) == 0) break;
  }
  return number;
}

// Keeps the computer busy, so that threads lose the processor at other places in each run.
class Load {
 public:
  Load() {
    for (std::thread& thread : threads_) {
      thread = std::thread([this] {
        while (!stop_) ++work_;
      });
    }
  }
  ~Load() {
    stop_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

 private:
  std::atomic<bool> stop_{false};
  std::atomic<unsigned> work_{0};
  std::thread threads_[4];
};

TEST_F(TimeRunTest, TwoRunsAreTheSameByteForByteAlsoOnALoadedComputer) {
  for (int task = 1; task <= 8; ++task) Program(task, ProgramOfEight(task));
  const auto record = [&](const std::string& seed) {
    Run({"--time", "virtual", "--seed", seed, "--stopped", "--for", "2s"});
    AwaitStanding(0);
    rack::Machine machine;
    EXPECT_EQ(machine.Open("."), "");
    const auto holdAt = [&](rack::Nanos time) {
      rack::TimeCommand command{};
      command.holdAt = time;
      AwaitStanding(machine.Give(command));
    };
    const auto ask = [&](rack::RequestKind kind, rack::FaultKind fault, std::uint8_t slot, int value) {
      EXPECT_EQ(machine.Ask({kind, fault, slot, 0, 0, value, 0, 200 * kMillisecond}), "");
    };
    holdAt(300 * kMillisecond);
    ask(rack::RequestKind::SetInput, rack::FaultKind::None, 2, 1);
    EXPECT_TRUE(rack::Post(machine.State().time, "are you there"));
    holdAt(700 * kMillisecond);
    ask(rack::RequestKind::BeginFault, rack::FaultKind::CardPulled, 2, 0);
    ask(rack::RequestKind::BeginFault, rack::FaultKind::MotorLosesSteps, 3, 3);
    EXPECT_TRUE(rack::Post(machine.State().time, "and now"));
    holdAt(kSecond + 1);
    ask(rack::RequestKind::PressKey, rack::FaultKind::None, 0, 0x77);
    machine.Give({});
    EXPECT_EQ(End(0), 0);
    EXPECT_EQ(machine.State().time.replies, 2U);
    Say({"vcd", "wave.vcd", "--once"});
    return Read("console") + Say({"trace", "--once", "--csv"}) + Read("wave.vcd");
  };
  const std::string first = record("0");
  const std::string seeded = record("5");
  EXPECT_THAT(first, HasSubstr("Load ISA Driver successfully![100][1]\n"));
  EXPECT_THAT(first, HasSubstr("RunEnv: .\n"));
  EXPECT_THAT(first, HasSubstr("PLC8: ID: 1000, TID: 1008, g_Flag: 1.\n"));
  EXPECT_THAT(first, HasSubstr("PLCNet: Server received[13]:are you there\n"));
  EXPECT_THAT(first, HasSubstr("PLCKey: KeyPad="));
  EXPECT_TRUE(first != seeded);
  const Load load;
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(record("0") == first);
    ASSERT_TRUE(record("5") == seeded);
  }
}

TEST_F(TimeRunTest, TimeStandsAtALineAndGoesOnByStepsWhileThePanelWorks) {
  Program(1, "; a comment\nOUT: 1, 1, 1\n\nLD: 1, 0, 1\nOUT: 1, 1, 0\nEXIT\n");
  Program(2, "DLY: 100\n#LE: 1\nGO: 1\n");
  Run({"--time", "virtual", "--tasks", "2", "--until", "1:RESET.PLC:2"});
  AwaitStanding(0);
  EXPECT_THAT(Say({"show"}), HasSubstr("task 1  plc1/RESET.PLC:2  OUT: 1, 1, 1"));
  EXPECT_THAT(Say({"show"}), HasSubstr("lamp (1.1) off"));
  EXPECT_THAT(Say({"step", "1"}), HasSubstr("before plc1/RESET.PLC:4  LD: 1, 0, 1\n"));
  const std::string shown = Say({"show"});
  EXPECT_THAT(shown, HasSubstr("lamp (1.1) on"));
  EXPECT_EQ(Say({"show"}), shown);
  EXPECT_EQ(Say({"in", "start", "on"}), "start (1.0) on\n");
  EXPECT_THAT(Say({"show"}), HasSubstr("start (1.0) on (forced)"));
  EXPECT_THAT(Say({"fault", "pulled", "1"}), HasSubstr("pulled"));
  Say({"fault", "clear"});
  EXPECT_EQ(Say({"key", "Num"}), "Num: waits for time to go on\n");
  EXPECT_THAT(Say({"until", "2:plc2/RESET.PLC:2"}), HasSubstr("task 2 stands at 0.1"));
  EXPECT_THAT(Say({"step"}), HasSubstr("task "));
  EXPECT_THAT(Say({"until", "1:RESET.PLC"}, 2), HasSubstr("TASK:FILE:LINE is wanted"));
  EXPECT_THAT(Say({"step", "9"}, 2), HasSubstr("\"9\" is no PLC task: they are 1 to 8"));
  EXPECT_EQ(Say({"go"}), "");
  EXPECT_EQ(End(), 143);
}

TEST_F(TimeRunTest, TenMinutesAreOverSoonAndAScaledRunAsSoonAsItSays) {
  Program(1, "LD: 1, 0, 1\n");
  Run({"--time", "virtual", "--tasks", "1", "--for", "10min"});
  EXPECT_EQ(End(0), 0);
  rack::Machine machine;
  ASSERT_EQ(machine.Open("."), "");
  EXPECT_EQ(machine.Take().nowNanos, 600 * kSecond);
  EXPECT_THAT(Say({"show", "--json"}), HasSubstr("\"could_not_go_on\": \"\""));

  const auto start = std::chrono::steady_clock::now();
  Run({"--time", "30", "--tasks", "1", "--for", "30s"});
  EXPECT_EQ(End(0), 0);
  const auto passed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(passed, std::chrono::milliseconds(1000));
  EXPECT_LT(passed, std::chrono::seconds(20));
  rack::Machine scaled;
  ASSERT_EQ(scaled.Open("."), "");
  EXPECT_GT(scaled.State().live.now, 25 * kSecond);

  Run({"--seed", "3"});
  EXPECT_EQ(End(0), 2);
  EXPECT_THAT(Read("console"), HasSubstr("--seed, --threads, --until and --stopped want --time virtual\n"));
  Run({"--time", "fast"});
  EXPECT_EQ(End(0), 2);
  EXPECT_THAT(Read("console"), HasSubstr("--time fast: real, virtual, or a factor from 0.001 to 1000"));
}

// 9,600 baud are 960 bytes a second, behind a buffer of 4,096 bytes.
TEST_F(TimeRunTest, ASlowConsoleIsBehindAndHoldsNobodyUp) {
  Program(1, "#LE: 1\nOUT: 1, 1, 1\nOUT: 1, 1, 0\nGO: 1\n");
  std::string lines[2];
  for (const char* baud : {"0", "9600"}) {
    Write("rack.toml", "[rack]\nconsole_baud = " + std::string(baud) + "\n" + (strchr(kRack, '\n') + 1));
    Run({"--time", "virtual", "--tasks", "1", "--for", "10s"});
    EXPECT_EQ(End(0), 0);
    const std::string said = Say({"trace", "--once", "--csv", "--kind", "line"});
    lines[baud[0] == '9'] = said.substr(0, said.find("velmo-rack: "));
  }
  EXPECT_GT(lines[0].size(), 10000U);
  EXPECT_EQ(lines[0], lines[1]);
  // What a line brings is taken when the next one is printed at the latest.
  const std::size_t most = 4096 + 10 * 960;
  EXPECT_LE(Controller().size(), most);
  EXPECT_GT(Controller().size(), most - 200);
}

// What a machine that works for some seconds leaves, with its threads of this kind.
TEST_F(TimeRunTest, FibresAndRealThreadsGiveTheSameBytes) {
#ifdef VELMO_SANITIZED
  GTEST_SKIP() << "there are no fibres with a sanitizer";
#endif
  std::filesystem::copy(VELMO_SOURCE "/demo/cell", "cell", std::filesystem::copy_options::recursive);
  const std::string start = "1:RESET.PLC:" + std::to_string(LineOf("cell/plc1/RESET.PLC", "EXIT"));
  for (int task = 1; task <= 8; ++task) Program(task, ProgramOfEight(task));
  const auto record = [&](const char* machine, const char* seed, const char* kind) {
    running = Start({"run", machine, "--no-check", "--time", "virtual", "--seed", seed, "--threads", kind,
                     "--stopped", "--for", "20s"},
                    "console");
    AwaitStanding(0, machine);
    if (machine[0] == 'c') {
      Say({"until", start, "--machine", machine});
      Say({"key", "enter", "--machine", machine});
    }
    Say({"go", "--machine", machine});
    EXPECT_EQ(End(0), 0);
    Say({"vcd", "wave.vcd", "--once", "--machine", machine});
    std::string console = Read("console");
    const std::string told =
        "velmo-rack: threads are " + std::string(kind[0] == 'r' ? "real ones\n" : "fibres\n");
    EXPECT_THAT(console, testing::StartsWith(told));
    return console.substr(told.size()) + Say({"trace", "--once", "--csv", "--machine", machine}) +
           Read("wave.vcd");
  };
  for (const char* machine : {"cell", "."}) {
    for (const char* seed : {"0", "5"}) {
      const std::string real = record(machine, seed, "real");
      ASSERT_GT(real.size(), 100'000U);
      ASSERT_TRUE(record(machine, seed, "fibres") == real) << machine << ", seed " << seed;
    }
  }
}

// Lines are written many at a time, and all of them in their order.
TEST_F(TimeRunTest, AControllerThatIsKilledLosesNoLine) {
  std::string all;
  for (int i = 0; i < 3000; ++i) all += "line " + std::to_string(i) + (i == 1000 ? "\nan error\n" : "\n");
  Run({"--time", "virtual", "--controller", STUCK_PROGRAM, "--tasks", "lines"});
  EXPECT_EQ(End(0), 137);
  EXPECT_EQ(Controller(), all + "velmo-rack: the controller has died by SIGKILL\n");
  Program(1, "OUT: 1, 1, 1\nEXIT\n");
  Run({"--time", "virtual", "--until", "1:RESET.PLC:2", "--tasks", "1"});
  AwaitStanding(0);
  EXPECT_THAT(Controller(), testing::ContainsRegex("PLC1: .*OUT.*RESET.PLC"));
}

TEST_F(TimeRunTest, FibresAreTakenWhereTheyArePossible) {
  const auto run = [&](const char* program, std::vector<std::string> options) {
    options.insert(options.end(), {"--time", "virtual", "--controller", program});
    Run(options);
    const int status = End(0);
    return Read("console") + "status " + std::to_string(status);
  };
  EXPECT_EQ(run(PRIVATE_PROGRAM, {"--threads", "real"}), "velmo-rack: threads are real ones\nstatus 0");
#ifndef VELMO_SANITIZED
  EXPECT_EQ(run(WAITS_PROGRAM, {}), "status 0");
  EXPECT_EQ(run(WAITS_PROGRAM, {"--threads", "fibres"}), "velmo-rack: threads are fibres\nstatus 0");
  EXPECT_THAT(Say({"show", "--json"}), HasSubstr("\"threads\": \"fibres\""));
  EXPECT_EQ(run(PRIVATE_PROGRAM, {}),
            "velmo-rack: threads are real ones: the controller has thread-local storage\nstatus 0");
  EXPECT_THAT(Say({"show", "--json"}), HasSubstr("\"threads\": \"real\""));
  EXPECT_THAT(
      run(PRIVATE_PROGRAM, {"--threads", "fibres"}),
      testing::EndsWith("velmo-rack library: threads cannot be fibres: the controller has thread-local "
                        "storage\nstatus 87"));
  EXPECT_THAT(run(STUCK_PROGRAM, {"--tasks", "kill"}), HasSubstr("calls pthread_kill, which virtual time"));
  EXPECT_THAT(run(STUCK_PROGRAM, {"--tasks", "overflow"}), HasSubstr("has died by SIGSEGV\nstatus 139"));
#else
  EXPECT_THAT(run(WAITS_PROGRAM, {"--threads", "fibres"}), HasSubstr("a sanitizer is present\nstatus 87"));
#endif
  EXPECT_THAT(run(WAITS_PROGRAM, {"--threads", "green"}),
              testing::EndsWith("--threads green: real or fibres is wanted\nstatus 2"));
}

TEST_F(TimeRunTest, WhatIsAnsweredGivesTheSameAsWithoutTheRack) {
  std::vector<const char*> ways = {"timed", "shared", "nested",     "semaphores", "futexes",
                                   "spins", "keys",   "exceptions", "threads"};
#ifndef __SANITIZE_THREAD__  // which keeps starts that are made once itself, with waits of its own
  ways.insert(ways.end(), {"once", "again"});
#endif
  std::vector<const char*> kinds = {"real"};
#ifndef VELMO_SANITIZED
  kinds.push_back("fibres");
#endif
  for (const char* way : ways) {
    ASSERT_EQ(std::system((WAITS_PROGRAM " " + std::string(way) + " > outside").c_str()), 0);
    ASSERT_NE(Read("outside"), "") << way;
    for (const char* kind : kinds) {
      for (const char* seed : {"0", "3"}) {
        Run({"--time", "virtual", "--threads", kind, "--seed", seed, "--controller", WAITS_PROGRAM, "--tasks",
             way});
        EXPECT_EQ(End(0), 0) << way;
        EXPECT_EQ(Controller(), Read("outside")) << way;
      }
    }
  }
}

#ifdef LONG_TIME_WAITS
TEST_F(TimeRunTest, WaitsWithATimeOf64BitsEndLikeTheUsualOnes) {
  for (const char* way : {"timed", "shared", "nested", "semaphores", "once"}) {
    std::string usual;
    for (const char* program : {WAITS_PROGRAM, LONG_TIME_WAITS}) {
      Run({"--time", "virtual", "--controller", program, "--tasks", way});
      EXPECT_EQ(End(0), 0) << way;
      if (usual.empty()) usual = Read("console");
      EXPECT_NE(usual, "");
      EXPECT_EQ(Read("console"), usual) << way;
    }
  }
}
#endif

// Both for this computer and for the processor of this build.
TEST_F(TimeRunTest, TheDemoCellSaysTheSameOnEachProcessor) {
  const auto all =
      std::filesystem::copy_options::recursive | std::filesystem::copy_options::overwrite_existing;
  std::filesystem::copy(VELMO_SOURCE "/demo/cell", ".", all);
  std::vector<std::vector<std::string>> builds = {
      {"--controller", VELMO_OWN_BUILD "/Velmo", "--library", VELMO_OWN_BUILD "/libvelmo-rack.so"}, {}};
#ifdef LONG_TIME_CONTROLLER
  // It lies there for reading only.
  std::filesystem::copy_file(LONG_TIME_CONTROLLER, "long");
  std::filesystem::permissions("long", std::filesystem::perms::owner_all);
  builds.push_back({"--controller", "long"});
#endif
  std::string first;
  for (const std::vector<std::string>& build : builds) {
    std::vector<std::string> options = {"--time", "virtual", "--for", "40s", "--until", "1:RESET.PLC:13"};
    options.insert(options.end(), build.begin(), build.end());
    Run(options);
    AwaitStanding(0);
    Say({"key", "enter", "--hold", "500"});
    Say({"go"});
    EXPECT_EQ(End(0), 0) << Read("console");
    const std::string console = Read("console");
    EXPECT_THAT(console, HasSubstr("[DONE.PLC]"));
    if (first.empty()) first = console;
    EXPECT_TRUE(console == first) << build.size();
  }
}

TEST_F(TimeRunTest, AWaitByItsNumberIsScaledLikeTheClock) {
  Run({"--time", "100", "--controller", WAITS_PROGRAM, "--tasks", "limits"});
  EXPECT_EQ(End(0), 1);  // it opens no device
  EXPECT_THAT(Read("console"), testing::StartsWith("in time\nin time\nvelmo-rack: "));
}

TEST_F(TimeRunTest, WhatIsNotAnsweredEndsTheRunAtOnceByItsName) {
  const std::pair<const char*, const char*> calls[] = {{"epoll", "epoll_wait"},
                                                       {"nanos", "epoll_pwait2"},
                                                       {"timer", "timerfd_create"},
                                                       {"flock", "flock"},
                                                       {"record", "fcntl to wait for a lock"},
                                                       {"pipe", "read of a pipe"},
                                                       {"number", "syscall with the number"}};
  for (const auto& [way, call] : calls) {
    Run({"--time", "virtual", "--controller", STUCK_PROGRAM, "--tasks", way});
    EXPECT_EQ(End(0), 87);
    EXPECT_THAT(Controller(),
                testing::StartsWith("velmo-rack library: the main thread calls " + std::string(call)));
    EXPECT_THAT(Read("console"), HasSubstr(", which virtual time does not answer, at 0.0000"));
    EXPECT_THAT(Say({"show"}), HasSubstr("time could not go on: the main thread calls " + std::string(call)));
    EXPECT_THAT(Say({"show", "--json"}),
                HasSubstr("\"could_not_go_on\": \"the main thread calls " + std::string(call)));
  }
}

TEST_F(TimeRunTest, ADeadlockFailsAScenario) {
  std::filesystem::create_directory("scenarios");
  Write("scenarios/wait.toml", "limit = \"9 s\"\n[[expect]]\nthat = \"start off\"\nat = \"1 s\"\n");
  const std::string said = Say({"test", ".", "--controller", STUCK_PROGRAM}, 1);
  EXPECT_THAT(said, HasSubstr("deadlock at 0.00"));
  EXPECT_THAT(said, HasSubstr("the main thread waits for lock Window, held by thread 1"));
  EXPECT_THAT(said, testing::Not(HasSubstr("\nok 1")));
}

TEST_F(TimeRunTest, ATaskThatWaitsForALockNamesItAndItsHolder) {
  for (int task = 1; task <= 4; ++task) Program(task, "LD: 0, 0, 1\nEXIT\n");
  Run({"--time", "virtual", "--controller", STUCK_PROGRAM, "--tasks", "holders", "--until", "2:RESET.PLC:2"});
  AwaitStanding(0);
  const char* const sentences[] = {
      "LD 0, 0: waits for lock Door, held by task 2 (plc2/RESET.PLC:2), for 5.0 s",
      "LD 0, 0: waits for lock Window, held by a thread that has ended, for 5.0 s",
      "LD 0, 0: waits for a lock without a name, held by the main thread, for 5.0 s"};
  const std::string shown = Say({"show"});
  const std::string json = Say({"show", "--json"});
  for (const char* sentence : sentences) {
    EXPECT_THAT(shown, HasSubstr("\n  " + std::string(sentence) + "\n"));
    EXPECT_THAT(json, HasSubstr("\"why\": \"" + std::string(sentence) + "\""));
  }
}

TEST_F(TimeRunTest, AStateInTheEnvironmentIsNotTakenOverByTheTool) {
  Program(1, "EXIT\n");
  Run({"--time", "virtual", "--tasks", "1", "--for", "1s"});
  EXPECT_EQ(End(0), 0);
  const std::string other = std::filesystem::current_path() / ".velmo-rack/state";
  std::filesystem::create_directories("second/plc1");
  Write("second/rack.toml", kRack);
  Write("second/plc1/RESET.PLC", "EXIT\n");
  rack::Machine first;
  ASSERT_EQ(first.Open("."), "");
  const std::int32_t process = first.State().live.controller.process;
  setenv(rack::kStateVariable, other.c_str(), 1);
  Say({"run", "second", "--time", "virtual", "--tasks", "1", "--for", "1s"});
  unsetenv(rack::kStateVariable);
  EXPECT_EQ(first.State().live.controller.process, process);
  EXPECT_EQ(first.State().live.controller.attaches, 1U);
  rack::Machine second;
  ASSERT_EQ(second.Open("second"), "");
  EXPECT_EQ(second.State().live.controller.attaches, 1U);
}

TEST_F(TimeRunTest, AWaitInsideTheLibraryIsFoundByTheWatchdog) {
  Run({"--time", "virtual", "--controller", STUCK_PROGRAM, "--tasks", "inside"});
  EXPECT_EQ(End(0), 1);
  EXPECT_THAT(Read("console"), HasSubstr(" waits in the call read, which virtual time does not know"));
}

TEST_F(TimeRunTest, ADeadlockEndsTheRunWhereItCloses) {
  const std::pair<const char*, const char*> circles[] = {
      {"circle",
       "s: the main thread waits for lock Window, held by thread 1; thread 1 waits for lock Door, held by "
       "the main "
       "thread\n"},
      {"readers",
       "s: the main thread waits for lock Door, held by thread 1; thread 1 waits for lock Plan, held by the "
       "main "
       "thread\n"},
      {"self", "s: the main thread waits for lock no. 1, held by itself\n"}};
  for (const auto& [way, text] : circles) {
    Run({"--time", "virtual", "--for", "24h", "--controller", STUCK_PROGRAM, "--tasks", way});
    EXPECT_EQ(End(0), 86);
    EXPECT_THAT(Controller(), testing::StartsWith("velmo-rack library: deadlock at 0.00"));
    EXPECT_THAT(Read("console"), testing::EndsWith(text));
    EXPECT_THAT(Say({"show"}), HasSubstr(std::string("time could not go on: deadlock at 0.00")));
    EXPECT_THAT(Say({"show", "--json"}), HasSubstr("\"could_not_go_on\": \"deadlock at 0.00"));
  }
}

}  // namespace
