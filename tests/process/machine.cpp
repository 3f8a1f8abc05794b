#include "machine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr auto kLimit = 90s;
// How far a machine in virtual time goes on before what is waited for is looked at again: no further than the
// journal holds.
constexpr rack::Nanos kStride = 10 * rack::kMillisecond;

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// A line ends with its line feed or carriage return.
std::vector<std::string> Split(const std::string& text) {
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

void ReplaceAll(std::string& text, const std::string& part, const std::string& word) {
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += word.size()) {
    text.replace(at, part.size(), word);
  }
}

// The number behind each place where the text stands becomes a word.
void ReplaceNumbers(std::string& text, const std::string& before, const std::string& word) {
  for (std::size_t at = 0; (at = text.find(before, at)) != std::string::npos;) {
    at += before.size();
    const std::size_t end = text.find_first_not_of("0123456789", at);
    if (end != at) text.replace(at, std::min(end, text.size()) - at, word);
  }
}

std::string LineWithEnd(const std::string& keyword, int slot, int channel, const std::string& parameter,
                        const std::string& file, const std::string& comment, char end) {
  std::ostringstream line;
  line << "CmdIdx: " << keyword << " SlotIdx[" << slot << "] ChIdx[" << channel << "][" << parameter << "] ["
       << comment << "] [" << file << "]               " << end;
  return line.str();
}

}  // namespace

bool Eventually(const std::function<bool()>& condition, std::chrono::microseconds pause) {
  const auto limit = std::chrono::steady_clock::now() + kLimit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(pause);
  }
  return true;
}

int FreePort() {
  const int handle = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(handle, reinterpret_cast<sockaddr*>(&address), size), 0);
  getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size);
  close(handle);
  return ntohs(address.sin_port);
}

TestMachine::TestMachine(const std::string& rack, rack::TimeMode mode) : mode_(mode) {
  char name[] = "/tmp/velmo-process-XXXXXX";
  EXPECT_NE(mkdtemp(name), nullptr);
  directory_ = std::filesystem::path(name) / "machine";
  Write("rack.toml", rack);
  Write("Velmo.conf", "[UDP]\nPort=" + std::to_string(FreePort()) + "\n");
}

TestMachine::~TestMachine() {
  Stop();
  std::filesystem::remove_all(directory_.parent_path());
}

void TestMachine::Write(const std::string& name, const std::string& text) const {
  std::filesystem::create_directories(Path(name).parent_path());
  std::ofstream(Path(name), std::ios::binary) << text;
}

std::string TestMachine::Read(const std::string& name) const {
  std::ostringstream text;
  text << std::ifstream(Path(name), std::ios::binary).rdbuf();
  return text.str();
}

pid_t TestMachine::Launch(std::vector<std::string> options, int output) {
  options.insert(options.begin(), {VELMO_RACK_PROGRAM, "run", "--no-check"});
  if (mode_ == rack::TimeMode::Virtual) options.insert(options.end(), {"--time", "virtual", "--stopped"});
  options.push_back(directory_);
  const int errors = open(Path("../errors").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child != 0) {
    close(errors);
    return child;
  }
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(127);
  dup2(output, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  std::vector<char*> words;
  for (std::string& option : options) words.push_back(option.data());
  words.push_back(nullptr);
  execv(words[0], words.data());
  _exit(127);
}

void TestMachine::Attach() {
  ASSERT_TRUE(Eventually([&] {
    return view_.Open(directory_).empty() && view_.State().live.controller.attaches != 0;
  })) << Errors();
  reader_.emplace(view_.State().journal, rack::JournalReader::Start::Oldest);
  lost_ = reader_->Number();
  if (mode_ == rack::TimeMode::Real) return;
  ASSERT_TRUE(StandsAfter(0)) << Errors();
}

bool TestMachine::StandsAfter(std::uint32_t command) {
  const auto isOver = [&] { return rack::Stands(view_.State().time, command) || !view_.Running(); };
  return Eventually(isOver, 50us) && view_.Running();
}

bool TestMachine::GoOn() {
  stood_ += kStride;
  rack::TimeCommand command = {};
  command.holdAt = stood_;
  return StandsAfter(view_.Give(command));
}

bool TestMachine::Await(const std::function<bool()>& condition) {
  const auto isThere = [&] {
    KeepJournal();
    return condition();
  };
  if (mode_ == rack::TimeMode::Real) return Eventually(isThere);
  const rack::Nanos limit = stood_ + std::chrono::nanoseconds(kLimit).count();
  while (!isThere()) {
    if (stood_ > limit || !GoOn()) return false;
  }
  return true;
}

void TestMachine::Start(std::vector<std::string> options) {
  const int output = open(Path("../console").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  tool_ = Launch(std::move(options), output);
  close(output);
  Attach();
}

int TestMachine::StartOnPipe() {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  return StartOn(ends);
}

int TestMachine::StartOnSocket() {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return StartOn(ends);
}

int TestMachine::StartOn(const int (&ends)[2]) {
  tool_ = Launch({}, ends[1]);
  close(ends[1]);
  Attach();
  return ends[0];
}

void TestMachine::StartUntil(const std::string& text, std::vector<std::string> options) {
  Start(std::move(options));
  WaitForLog(text);
}

void TestMachine::Stop() {
  if (tool_ < 0) return;
  kill(tool_, SIGTERM);
  WaitForEnd();
}

int TestMachine::WaitForEnd() {
  int status = 0;
  if (mode_ == rack::TimeMode::Virtual && reader_) view_.Give({});  // one that stands does not end
  waitpid(tool_, &status, 0);
  tool_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string TestMachine::Console() const {
  std::string text = Read("../console");
  const bool isReal = mode_ == rack::TimeMode::Real;
  const std::string process = isReal ? std::to_string(view_.State().live.controller.process) : "1000";
  ReplaceAll(text, isReal ? "RunEnv: " + directory_.string() : "RunEnv: .", "RunEnv: DIRECTORY");
  ReplaceAll(text, "ID:" + process + ",", "ID:PROCESS,");
  ReplaceAll(text, "ID: " + process + ",", "ID: PROCESS,");
  ReplaceNumbers(text, "Load ISA Driver successfully![", "HANDLE");
  ReplaceNumbers(text, ", TID is ", "THREAD");
  ReplaceNumbers(text, ", TID: ", "THREAD");
  ReplaceNumbers(text, ", g_Flag: ", "FLAG");
  return text;
}

std::vector<std::string> TestMachine::ConsoleLines() const {
  return Split(Console());
}

std::string TestMachine::LinesWith(const std::string& prefix) const {
  std::string found;
  for (const std::string& line : ConsoleLines()) {
    if (StartsWith(line, prefix)) found += line.substr(prefix.size());
  }
  return found;
}

std::string TestMachine::Log(int task) const {
  const std::string number = std::to_string(task);
  const std::string all = LinesWith("PLC" + number + ": ");
  const std::string start = "Task_PLC" + number + " Running\n";
  const std::size_t position = all.find(start);
  return position == std::string::npos ? "" : all.substr(position + start.size());
}

std::string TestMachine::FullLog() const {
  const std::vector<std::string> startLines = {"Load TaskKey.\n", "GlobeHKey Task Load\n", "Load TaskNet.\n",
                                               "ID: PROCESS, TID: THREAD, g_Flag: FLAG.\n"};
  std::string log;
  bool started = false;
  for (const std::string& line : ConsoleLines()) {
    const bool isStartLine = std::find(startLines.begin(), startLines.end(), line) != startLines.end();
    if (started && !isStartLine && !StartsWith(line, "PLCKey: ")) log += line;
    started = started || line == "PLC1: Task_PLC1 Running\n";
  }
  return log;
}

bool TestMachine::WaitForLog(const std::string& text, int task) {
  const bool found = Await([&] { return Log(task).find(text) != std::string::npos; });
  EXPECT_TRUE(found) << "no \"" << text << "\" in the log of task " << task << ":\n" << Console() << Errors();
  return found;
}

bool TestMachine::WaitForConsole(const std::string& text) {
  const bool found = Await([&] { return Console().find(text) != std::string::npos; });
  EXPECT_TRUE(found) << "no \"" << text << "\" on the console:\n" << Console() << Errors();
  return found;
}

void TestMachine::KeepJournal() {
  rack::JournalRecord record;
  while (reader_->Next(record, lost_) == rack::JournalReader::Result::Record) {
    if (record.kind == rack::JournalKind::Repeats) {
      Unfold(record);
      continue;
    }
    records_.push_back(record);
    if (rack::IsAccess(record.kind)) accesses_[record.task].push_back(record);
  }
}

// A poll that goes on: each access is the one of a round before.
void TestMachine::Unfold(const rack::JournalRecord& poll) {
  std::vector<rack::JournalRecord>& accesses = accesses_[poll.task];
  ASSERT_GE(accesses.size(), poll.slot);
  for (int i = 0; i < poll.value; ++i) {
    rack::JournalRecord access = accesses[accesses.size() - poll.slot];
    access.time = poll.time - poll.file;
    accesses.push_back(access);
    records_.push_back(access);
  }
}

const std::vector<rack::JournalRecord>& TestMachine::Journal() {
  KeepJournal();
  EXPECT_EQ(lost_, 0U) << "the journal has not kept all records";
  return records_;
}

std::string TestMachine::Bus(int task) {
  std::string bus;
  for (const rack::JournalRecord& record : Journal()) {
    if (record.task != task) continue;
    char text[24];
    const unsigned value = static_cast<unsigned>(record.value);
    switch (record.kind) {
      case rack::JournalKind::Read:
        std::snprintf(text, sizeof text, "%d>%02X ", record.port, value);
        break;
      case rack::JournalKind::ReadFailed:
        std::snprintf(text, sizeof text, "%d>fails ", record.port);
        break;
      case rack::JournalKind::Write:
        if (record.port == 0) {
          std::snprintf(text, sizeof text, "#%u ", value);
        } else {
          std::snprintf(text, sizeof text, "%d<%02X ", record.port, value);
        }
        break;
      default:
        continue;
    }
    bus += text;
  }
  return bus;
}

void TestMachine::Ask(const rack::Request& request) {
  EXPECT_EQ(view_.Ask(request), "") << Console() << Errors();
}

std::size_t TestMachine::Polls() {
  std::size_t polls = 0;
  for (const rack::JournalRecord& record : Journal()) {
    const bool isRead =
        record.kind == rack::JournalKind::Read || record.kind == rack::JournalKind::ReadFailed;
    if (isRead && record.task == 0 && record.port == 2) ++polls;
  }
  return polls;
}

// A key stays in the mailbox until the end of the next poll; the poll behind it tells that it has ended.
void TestMachine::AwaitPolls() {
  const std::size_t before = Polls();
  EXPECT_TRUE(Await([&] { return Polls() >= before + 2; })) << Console();
}

void TestMachine::Tap(int code) {
  rack::Request request = {};
  request.kind = rack::RequestKind::PressKey;
  request.value = code;
  request.duration = 60 * rack::kMillisecond;
  std::uint32_t number = 0;
  EXPECT_EQ(view_.Ask(request, &number), "") << Console() << Errors();
  EXPECT_TRUE(Await([&] {
    const rack::KeyState& keys = view_.Live().keys;
    return keys.pressRequest == number && keys.takenRequest == number;
  })) << Console();
}

void TestMachine::Press(int code) {
  Tap(code);
  AwaitPolls();
}

void TestMachine::HoldFunctionKeys(int bits, int millis) {
  rack::Request request = {};
  request.kind = rack::RequestKind::PressFunctionKeys;
  request.value = bits;
  request.duration = millis * rack::kMillisecond;
  Ask(request);
  EXPECT_TRUE(Await([&] { return view_.Live().keys.functionBits == 0; })) << Console();
  AwaitPolls();
}

void TestMachine::SetInput(int slot, int channel, bool on) {
  rack::Request request = {};
  request.kind = rack::RequestKind::SetInput;
  request.slot = static_cast<std::uint8_t>(slot);
  request.channel = static_cast<std::uint8_t>(channel);
  request.value = on ? 1 : 0;
  Ask(request);
}

void TestMachine::Fault(rack::FaultKind kind, int slot, int channel, int value) {
  rack::Request request = {};
  request.kind = rack::RequestKind::BeginFault;
  request.fault = kind;
  request.slot = static_cast<std::uint8_t>(slot);
  request.channel = static_cast<std::uint8_t>(channel);
  request.value = value;
  Ask(request);
}

void TestMachine::EndFaults() {
  rack::Request request = {};
  request.kind = rack::RequestKind::EndAllFaults;
  Ask(request);
}

pid_t TestMachine::Controller() {
  return view_.State().live.controller.process;
}

double TestMachine::ProcessorSeconds() {
  double nanos = 0;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(Controller()) + "/task")) {
    double run = 0;
    std::ifstream(thread.path() / "schedstat") >> run;
    nanos += run;
  }
  return nanos / 1e9;
}

std::string Line(const std::string& keyword, int slot, int channel, const std::string& parameter,
                 const std::string& file, const std::string& comment) {
  return LineWithEnd(keyword, slot, channel, parameter, file, comment, '\n');
}

std::string Again(const std::string& keyword, int slot, int channel, const std::string& parameter,
                  const std::string& file, const std::string& comment) {
  return LineWithEnd(keyword, slot, channel, parameter, file, comment, '\r');
}

std::string Collapsed(const std::string& log) {
  std::string collapsed;
  std::string before;
  for (std::string line : Split(log)) {
    line.back() = '\n';
    if (line != before) collapsed += line;
    before = line;
  }
  return collapsed;
}

std::string Without(const std::string& log, const std::string& text) {
  std::string rest;
  for (const std::string& line : Split(log)) {
    if (line.find(text) == std::string::npos) rest += line;
  }
  return rest;
}

int CountOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}
