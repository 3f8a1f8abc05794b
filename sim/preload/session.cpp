#include "preload/session.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "preload/time_source.h"

namespace rack {
namespace {

constexpr char kOutside[] = "/home/root/";
constexpr std::uint8_t kKeypadTask = 0;
constexpr std::uint8_t kKeypadPort = 2;  // of the CPU card: only the keypad's thread reads it

// The task of this thread, and the place in the code where its runner reads program lines: a label search
// reads at another one.
thread_local std::uint8_t ThisTask = kUnknownTask;
thread_local const void* RunnerReads = nullptr;

// Task number of a program's path, 0 when it is none.
std::uint8_t TaskOfPath(const char* path) {
  if (std::strncmp(path, "plc", 3) != 0 || path[3] < '1' || path[3] > '8' || path[4] != '/') return 0;
  return static_cast<std::uint8_t>(path[3] - '0');
}

bool IsMainProgram(const char* path) {
  const char* name = path + std::strlen("plcN/");
  return std::strcmp(name, "RESET.PLC") == 0 || std::strcmp(name, "FLOW.PLC") == 0;
}

void CopyText(char* target, std::size_t size, const char* text) {
  const std::size_t length = strnlen(text, size - 1);
  std::memcpy(target, text, length);
  target[length] = '\0';
}

}  // namespace

Session* Session::Get() {
  // Never destroyed: the board object closes its device after the library's destructors.
  static Session* const session = []() -> Session* {
    const char* path = std::getenv(kStateVariable);
    if (path == nullptr) return nullptr;
    std::string error;
    auto* made = new Session(path, error);
    if (made->Machine != nullptr) return made;
    error = "velmo-rack library: " + error + "\n";
    if (write(STDERR_FILENO, error.data(), error.size()) < 0) return nullptr;
    return nullptr;
  }();
  return session;
}

Session::Session(const char* path, std::string& error) {
  if (!State.Open(path, error)) return;
  Home = path;
  const std::size_t slash = Home.rfind('/');
  Home = slash == std::string::npos ? "." : Home.substr(0, slash);
  Machine = std::make_unique<Rack>(*State.State());
}

Nanos Session::Now() const {
  return CurrentTime().Now() - State.State()->PowerOn;
}

Origin Session::Caller() const {
  Origin origin;
  origin.Task = ThisTask;
  if (ThisTask == kUnknownTask && syscall(SYS_gettid) == syscall(SYS_getpid)) origin.Task = kMainThread;
  if (ThisTask >= kTaskRecords) return origin;
  const TaskRecord& task = State.State()->Live.Tasks[ThisTask];
  origin.File = task.File;
  origin.Line = task.Line;
  return origin;
}

int Session::Read(std::uint8_t port) {
  CurrentTime().BusAccess();
  const std::lock_guard<OwnMutex> lock(Guard);
  Origin origin = Caller();
  if (origin.Task == kUnknownTask && port == kKeypadPort && State.State()->Live.SelectedSlot == 0) {
    ThisTask = origin.Task = kKeypadTask;
  }
  const int value = Machine->ReadPort(port, Now(), origin);
  NoteAccess(port);
  return value;
}

void Session::Write(std::uint8_t port, std::uint8_t value) {
  CurrentTime().BusAccess();
  const std::lock_guard<OwnMutex> lock(Guard);
  Machine->WritePort(port, value, Now(), Caller());
  NoteAccess(port);
}

void Session::NoteAccess(std::uint8_t port) {
  if (ThisTask >= kTaskRecords) return;
  RackLive& live = State.State()->Live;
  const LiveChange change(live);
  TaskRecord& task = live.Tasks[ThisTask];
  task.LastAccess = live.Now;
  task.LastSlot = static_cast<std::uint8_t>(live.SelectedSlot);
  task.LastPort = port;
}

void Session::Attach() {
  const std::lock_guard<OwnMutex> lock(Guard);
  const LiveChange change(State.State()->Live);
  NoteController();
}

void Session::Serve() {
  const std::lock_guard<OwnMutex> lock(Guard);
  Machine->AdvanceTo(Now());
}

void Session::NoteController() {
  RackLive& live = State.State()->Live;
  ControllerRecord& controller = live.Controller;
  const auto process = static_cast<std::int32_t>(syscall(SYS_getpid));
  if (controller.Process == process) return;
  controller.Process = process;
  controller.AttachedAt = live.Now;
  ++controller.Attaches;
  std::memset(live.Tasks, 0, sizeof live.Tasks);
}

void Session::DeviceTried(bool opened) {
  const std::lock_guard<OwnMutex> lock(Guard);
  Machine->AdvanceTo(Now());
  RackLive& live = State.State()->Live;
  const LiveChange change(live);
  NoteController();
  if (!opened) return;
  live.Controller.DeviceOpen = 1;
  Machine->Note(JournalKind::Device, 0, 0, 1, Caller());
}

void Session::DeviceClosed() {
  const std::lock_guard<OwnMutex> lock(Guard);
  Machine->AdvanceTo(Now());
  RackLive& live = State.State()->Live;
  const LiveChange change(live);
  live.Controller.DeviceOpen = 0;
  Machine->Note(JournalKind::Device, 0, 0, 0, Caller());
}

Session::OpenProgram* Session::Find(const FILE* stream) {
  for (OpenProgram& program : Programs) {
    if (program.Stream == stream) return &program;
  }
  return nullptr;
}

// 0 when the list is full.
std::uint32_t Session::FileNumber(const char* path) {
  auto& files = State.State()->Live.ProgramFiles;
  for (std::uint32_t row = 0; row < kMaxProgramFiles; ++row) {
    if (files[row][0] == '\0') CopyText(files[row], kPathSize, path);
    if (std::strncmp(files[row], path, kPathSize - 1) == 0) return row + 1;
  }
  return 0;
}

void Session::FileOpened(const char* path, FILE* stream) {
  const std::uint8_t number = TaskOfPath(path);
  if (number == 0) return;
  const std::lock_guard<OwnMutex> lock(Guard);
  ThisTask = number;
  Machine->AdvanceTo(Now());
  RackLive& live = State.State()->Live;
  const LiveChange change(live);
  TaskRecord& task = live.Tasks[number];
  const std::uint32_t file = FileNumber(path);
  Origin origin{number, file, 0};
  if (stream == nullptr) {
    ++task.FailedOpens;
    task.FailedAt = live.Now;
    CopyText(task.FailedPath, kPathSize, path);
    Machine->Note(JournalKind::ProgramMissing, 0, 0, 0, origin);
    return;
  }
  // The runner closes its main program before it opens another: a second one is called as a block.
  std::uint32_t& place = IsMainProgram(path) && task.MainFile == 0 ? task.MainFile : task.BlockFile;
  place = file;
  Machine->Note(JournalKind::ProgramOpened, 0, 0, 0, origin);
  if (OpenProgram* free = Find(nullptr)) *free = {stream, number, file, 0, false, false};
}

void Session::FileClosed(FILE* stream) {
  const std::lock_guard<OwnMutex> lock(Guard);
  OpenProgram* program = Find(stream);
  if (program == nullptr) return;
  const LiveChange change(State.State()->Live);
  TaskRecord& task = State.State()->Live.Tasks[program->Task];
  // Both hold the same number while a main program is called as a block too: the block is closed first.
  std::uint32_t& place = task.BlockFile == program->File ? task.BlockFile : task.MainFile;
  if (place == program->File) place = 0;
  *program = OpenProgram{};
}

void Session::FileRewound(FILE* stream) {
  const std::lock_guard<OwnMutex> lock(Guard);
  OpenProgram* program = Find(stream);
  if (program == nullptr) return;
  program->Line = 0;
  program->InLine = false;
}

void Session::LineRead(FILE* stream, const void* caller, const char* line) {
  const DueLine due = TakeLine(stream, caller, line);
  if (due.FileNumber != 0) CurrentTime().LineDue(due);
}

// The line that is executed next; its FileNumber is 0 when this read leads to none.
DueLine Session::TakeLine(FILE* stream, const void* caller, const char* line) {
  const std::lock_guard<OwnMutex> lock(Guard);
  OpenProgram* program = Find(stream);
  if (program == nullptr) return {};
  if (RunnerReads == nullptr) RunnerReads = caller;
  Machine->AdvanceTo(Now());
  RackLive& live = State.State()->Live;
  const LiveChange change(live);
  const bool due = line != nullptr ? NoteLine(*program, caller, line) : NoteEnd(*program);
  const TaskRecord& task = live.Tasks[program->Task];
  if (!due || task.File == 0) return {};
  return {program->Task, task.File, live.ProgramFiles[task.File - 1], task.Line, task.Text};
}

// Whether it is a line to be executed, not one that a label search passes over.
bool Session::NoteLine(OpenProgram& program, const void* caller, const char* text) {
  RackLive& live = State.State()->Live;
  TaskRecord& task = live.Tasks[program.Task];
  if (!program.InLine) ++program.Line;
  program.InLine = std::strchr(text, '\n') == nullptr;
  if (caller != RunnerReads) {
    if (!program.Searching) ++task.Searches;
    program.Searching = true;
    task.SearchFailed = 0;
    return false;
  }
  program.Searching = false;
  task.File = program.File;
  task.Line = program.Line;
  task.EndReads = 0;
  task.LineSince = live.Now;
  CopyText(task.Text, kLineSize, text);
  Machine->Note(JournalKind::ProgramLine, 0, 0, 0, {program.Task, program.File, program.Line});
  return true;
}

// Whether the line read last is executed again.
bool Session::NoteEnd(OpenProgram& program) {
  RackLive& live = State.State()->Live;
  TaskRecord& task = live.Tasks[program.Task];
  if (program.Searching) {
    program.Searching = false;
    task.SearchFailed = 1;
    return false;
  }
  ++task.EndReads;
  task.LastEndRead = live.Now;
  Machine->Note(JournalKind::ProgramEnd, 0, 0, 0, {program.Task, task.File, task.Line});
  return true;
}

void Session::ConsoleWritten(std::size_t count) {
  const std::lock_guard<OwnMutex> lock(Guard);
  Machine->AdvanceTo(Now());
  Machine->Note(JournalKind::ConsoleText, 0, 0, static_cast<std::int32_t>(count), Caller());
}

void Session::Synced() {
  const std::lock_guard<OwnMutex> lock(Guard);
  Machine->AdvanceTo(Now());
  const LiveChange change(State.State()->Live);
  ++State.State()->Live.Controller.Syncs;
  Machine->Note(JournalKind::Sync, 0, 0, 0, Caller());
}

bool Session::RestartFails() {
  const std::lock_guard<OwnMutex> lock(Guard);
  Machine->AdvanceTo(Now());
  RackLive& live = State.State()->Live;
  const LiveChange change(live);
  ++live.Controller.Restarts;
  live.Controller.RestartAt = live.Now;
  Machine->Note(JournalKind::Restart, 0, 0, 0, Caller());
  return State.State()->Image.RestartFails != 0;
}

bool Session::Redirect(const char* path, char* kept, std::size_t size) const {
  const bool outside = std::strncmp(path, kOutside, sizeof kOutside - 1) == 0;
  const int length = std::snprintf(kept, size, "%s%s", outside ? Home.c_str() : "", path);
  return length >= 0 && static_cast<std::size_t>(length) < size;
}

}  // namespace rack
