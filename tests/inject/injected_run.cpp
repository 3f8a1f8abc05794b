#include "injected_run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "machine/machine.h"
#include "rack/requests.h"
#include "rack/time_control.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr auto kLimit = 60s;  // of real time, for a step that takes less than one
constexpr int kEnterKey = 0x5A;
// A cylinder that is set up is polled without a pause: fewer polls make the same run.
constexpr const char* kSlowBus = "bus_access_ns = 50000\n";

std::string ReadFile(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::map<std::string, std::string> FilesBelow(const fs::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().lexically_relative(folder);
    if (entry.is_regular_file() && name.rfind(".velmo-rack", 0) != 0) files[name] = ReadFile(entry.path());
  }
  return files;
}

bool Eventually(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + kLimit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(100us);
  }
  return true;
}

// The directory of a run, with the tool as a child. The console is a pipe, as a controller is mostly started.
class Run {
 public:
  Run(const MachineFiles& machine, const std::string& failing) {
    char name[] = "/tmp/velmo-inject-XXXXXX";
    EXPECT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    for (const auto& [path, text] : machine.files) {
      fs::create_directories((Directory() / path).parent_path());
      std::ofstream(Directory() / path, std::ios::binary) << text;
    }
    const CallRecord none = {};
    std::ofstream(folder_ / "record", std::ios::binary)
        .write(reinterpret_cast<const char*>(&none), sizeof none);
    setenv("VELMO_FAILING_CALL", failing.c_str(), 1);
    setenv("VELMO_CALL_RECORD", (folder_ / "record").c_str(), 1);
    if (failing.empty()) setenv("VELMO_CALL_LIST", (folder_ / "calls").c_str(), 1);
    Start();
    for (const char* variable : {"VELMO_FAILING_CALL", "VELMO_CALL_RECORD", "VELMO_CALL_LIST"})
      unsetenv(variable);
  }
  ~Run() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  // False when the controller has ended before.
  bool GoOnTo(rack::Nanos time) {
    if (!isOpen_ && !Open()) return false;
    rack::TimeCommand command = {};
    command.holdAt = time;
    const std::uint32_t number = view_.Give(command);
    const bool inTime = Eventually([&] { return rack::Stands(view_.State().time, number) || HasEnded(); });
    hangs_ = hangs_ || !inTime;
    return inTime && !HasEnded();
  }

  void PressEnter() {
    rack::Request request = {};
    request.kind = rack::RequestKind::PressKey;
    request.value = kEnterKey;
    request.duration = 60 * rack::kMillisecond;
    std::uint32_t number = 0;
    EXPECT_EQ(view_.Send(request, number), "");
  }
  void SendDatagram() { EXPECT_TRUE(rack::Post(view_.State().time, "how are you")); }

  CallRecord Record() const {
    CallRecord record = {};
    std::ifstream(folder_ / "record", std::ios::binary).read(reinterpret_cast<char*>(&record), sizeof record);
    return record;
  }

  void Finish(RunResult* result) {
    result->hangs = hangs_;
    result->runsAtEnd = !HasEnded();
    // While its time stands: it prints nothing more.
    if (result->runsAtEnd) kill(isOpen_ ? view_.State().live.controller.process : tool_, SIGKILL);
    EXPECT_TRUE(Eventually([&] { return HasEnded(); }));
    result->status = WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
    int ignored = 0;
    waitpid(reader_, &ignored, 0);
    result->console = ReadFile(folder_ / "console");
    result->errors = ReadFile(folder_ / "errors");
    result->files = FilesBelow(Directory());
    if (isOpen_) result->restarts = view_.State().live.controller.restarts;
    result->record = Record();
    std::ifstream calls(folder_ / "calls");
    for (std::string line; std::getline(calls, line);) result->calls.push_back(line);
  }

 private:
  fs::path Directory() const { return folder_ / "machine"; }

  static pid_t Spawn(std::vector<std::string> words, int input, int output, const std::string& errors) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0644);
    pid_t child = -1;
    EXPECT_EQ(posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    return child;
  }

  void Start() {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int console = open((folder_ / "console").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    tool_ = Spawn({VELMO_RACK_PROGRAM, "run", "--no-check", "--time", "virtual", "--stopped",
                   "--restart-fails", "--controller", FAILING_CONTROLLER, Directory()},
                  nothing, ends[1], folder_ / "errors");
    reader_ = Spawn({"cat"}, ends[0], console, "/dev/null");
    for (const int file : {ends[0], ends[1], nothing, console}) close(file);
  }

  bool Open() {
    isOpen_ = Eventually([&] {
      return HasEnded() || (view_.Open(Directory()).empty() && rack::Stands(view_.State().time, 0));
    });
    isOpen_ = isOpen_ && !HasEnded();
    return isOpen_;
  }

  bool HasEnded() {
    if (tool_ > 0 && waitpid(tool_, &status_, WNOHANG) == tool_) tool_ = -1;
    return tool_ < 0;
  }

  fs::path folder_;
  pid_t tool_ = -1;
  pid_t reader_ = -1;
  int status_ = 0;
  bool isOpen_ = false;
  bool hangs_ = false;
  rack::Machine view_;
};

}  // namespace

MachineFiles DemoCell() {
  MachineFiles machine;
  machine.name = "demo cell";
  machine.files = FilesBelow(VELMO_SOURCE "/demo/cell");
  std::string& rack = machine.files["rack.toml"];
  rack.insert(rack.find("task_count"), kSlowBus);
  machine.seconds = 9;
  return machine;
}

MachineFiles EightTasks() {
  MachineFiles machine;
  machine.name = "eight tasks";
  machine.seconds = 7;
  machine.files["rack.toml"] = std::string("[rack]\n") + kSlowBus +
                               "task_count = 8\nfunction_port = 9\n"
                               "[slots]\n2 = \"io\"\n3 = \"stepper\"\n5 = \"cylinder\"\n8 = \"servo\"\n";
  machine.files["Velmo.conf"] = "[UDP]\nPort=20170\n[KEYPAD]\nFunctionPort=9\n";
  machine.files["run.sh"] = "#!/bin/sh\r\n./Velmo 8\r\n";
  machine.files["user.sh"] = "#!/bin/sh\n";
  machine.files["userinfo.txt"] = std::string(3000, 'x') + "\r\nend\r\n";
  machine.files["reboot.txt"] = "";
  const char* const bodies[] = {
      "OUT: 1, 1, 1\nLD: 1, 20, 0\nIF: 1, 2, 0&A.PLC&NUL\n",
      "MOT: 2, 0, 200&20&1\nLMOT: 2, 0,\nROW: 2, 0, 0\nROCLR: 2, 0,\n",
      "DG: 3, 0, 5\nLDG: 3, 0,\nDG: 3, 0, 0\nLDG: 3, 0,\n",
      "MOT: 4, 1, 100&20&1\nLMOT: 4, 1,\n",
      "DG: 3, 1, -1\nLDG: 3, 1,\n",
      "FL: A.PLC\nOUT: 0, 3, 1\n",
      "IF: 0, 1, 1&NUL&A.PLC\nDLY: 100\n",
      "MOT: 2, 3, 50&20&0\nLMOT: 2, 3,\nDG: 3, 2, -2\n",
  };
  for (int task = 1; task <= 8; ++task) {
    const std::string folder = "plc" + std::to_string(task) + "/";
    const std::string body = std::string("G_ST: 40\n#LE: 1\n") + bodies[task - 1] + "GO: 1\n";
    machine.files[folder + "RESET.PLC"] = body;
    machine.files[folder + "FLOW.PLC"] = body;
    machine.files[folder + "A.PLC"] = "OUT: 1, " + std::to_string(task) + ", 0\nEND\n";
  }
  return machine;
}

RunResult RunMachine(const MachineFiles& machine, const std::string& failing) {
  RunResult result;
  Run run(machine, failing);
  const rack::Nanos end = machine.seconds * rack::kSecond;
  if (run.GoOnTo(end / 3)) {
    result.early = run.Record();
    run.PressEnter();
    run.SendDatagram();
    if (run.GoOnTo(end - 2 * rack::kSecond)) {
      result.late = run.Record();
      run.GoOnTo(end);
    }
  }
  run.Finish(&result);
  return result;
}
