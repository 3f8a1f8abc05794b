#include "preload/session.h"

#include <strings.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <string_view>

#include "preload/caller.h"
#include "preload/time_source.h"
#include "rack/console_prefixes.h"

namespace rack {
namespace {

constexpr char kOutside[] = "/home/root/";
constexpr std::uint8_t kKeypadTask = 0;
constexpr std::uint8_t kKeypadPort = 2;  // of the CPU card: only the keypad's thread reads it

// The real numbers, whatever the controller is shown: the tool goes by the process's.
long RealNumber(long call) {
  static Next next(calls::syscall);
  return next(call);
}

[[gnu::tls_model("initial-exec")]] thread_local CallerMarks Marks;

// Asked of the kernel once a thread.
bool IsMainThread() {
  if (Marks.isMain < 0) Marks.isMain = RealNumber(SYS_gettid) == RealNumber(SYS_getpid) ? 1 : 0;
  return Marks.isMain == 1;
}

// The command that sets a task's pause between commands.
constexpr const char* kPauseWord = "G_ST";

// Task number of a program's path, 0 when it is none.
std::uint8_t TaskOfPath(const char* path) {
  if (std::strncmp(path, "plc", 3) != 0 || path[3] < '1' || path[3] > '8' || path[4] != '/') return 0;
  return static_cast<std::uint8_t>(path[3] - '0');
}

bool IsMainProgram(const char* path) {
  const char* name = path + std::strlen("plcN/");
  return std::strcmp(name, "RESET.PLC") == 0 || std::strcmp(name, "FLOW.PLC") == 0;
}

// The task whose thread writes this line, by the name in front of it; kUnknownTask when there is none.
std::uint8_t TaskOfLine(const char* text, std::size_t count) {
  const std::string_view line(text, count);
  for (std::uint8_t task = 0; task < kTaskRecords; ++task) {
    const std::string_view prefix = kConsolePrefixes[task];
    if (line.substr(0, prefix.size()) == prefix) return task;
  }
  return kUnknownTask;
}

void CopyText(char* target, std::size_t size, const char* text) {
  const std::size_t length = strnlen(text, size - 1);
  std::memcpy(target, text, length);
  target[length] = '\0';
}

}  // namespace

CallerMarks& ThisCaller() {
  return Marks;
}

Session* Session::Get() {
  // Never destroyed: the board object closes its device after the library's destructors.
  static Session* const session = []() -> Session* {
    const char* path = std::getenv(kStateVariable);
    if (path == nullptr) return nullptr;
    std::string error;
    auto* made = new Session(path, error);
    if (made->rack_ != nullptr) return made;
    error = "velmo-rack library: " + error + "\n";
    // Not by the library's own call, which asks for the session.
    if (Next(calls::write)(STDERR_FILENO, error.data(), error.size()) < 0) return nullptr;
    return nullptr;
  }();
  return session;
}

Session::Session(const char* path, std::string& error) {
  if (!state_.Open(path, error)) return;
  home_ = path;
  const std::size_t slash = home_.rfind('/');
  home_ = slash == std::string::npos ? "." : home_.substr(0, slash);
  writer_ = std::make_unique<ConsoleWriter>(state_.State()->console);
  rack_ = std::make_unique<Rack>(*state_.State());
}

Nanos Session::Now() const {
  return CurrentTime().Now() - state_.State()->powerOn;
}

Origin Session::Caller() const {
  Origin origin;
  origin.task = Marks.task;
  if (Marks.task == kUnknownTask && IsMainThread()) origin.task = kMainThread;
  if (Marks.task >= kTaskRecords) return origin;
  const TaskRecord& task = state_.State()->live.tasks[Marks.task];
  origin.file = task.file;
  origin.line = task.line;
  return origin;
}

// Outside of the lock: time may stand here.
void Session::TellMoved() {
  if (!watched_.load(std::memory_order_relaxed)) return;
  MachineDue due{};
  {
    const std::lock_guard<OwnMutex> lock(guard_);
    due = rack_->Due();
  }
  CurrentTime().MachineMoved(due);
}

int Session::Read(std::uint8_t port) {
  CurrentTime().BusAccess();
  const int value = ReadNow(port);
  TellMoved();
  return value;
}

int Session::ReadNow(std::uint8_t port) {
  const std::lock_guard<OwnMutex> lock(guard_);
  room_.Await(*state_.State(), *writer_);
  Origin origin = Caller();
  if (origin.task == kUnknownTask && port == kKeypadPort && state_.State()->live.selectedSlot == 0) {
    Marks.task = origin.task = kKeypadTask;
  }
  const int value = rack_->ReadPort(port, Now(), origin);
  if (origin.task == kMainThread) NoteProbe(value);
  NoteAccess(port);
  return value;
}

void Session::Write(std::uint8_t port, std::uint8_t value) {
  CurrentTime().BusAccess();
  WriteNow(port, value);
  TellMoved();
}

void Session::WriteNow(std::uint8_t port, std::uint8_t value) {
  const std::lock_guard<OwnMutex> lock(guard_);
  room_.Await(*state_.State(), *writer_);
  rack_->WritePort(port, value, Now(), Caller());
  NoteAccess(port);
}

void Session::NoteAccess(std::uint8_t port) {
  if (Marks.task >= kTaskRecords) return;
  RackLive& live = state_.State()->live;
  const LiveChange change(live);
  TaskRecord& task = live.tasks[Marks.task];
  task.lastAccess = live.now;
  task.lastSlot = static_cast<std::uint8_t>(live.selectedSlot);
  task.lastPort = port;
}

// The scan's first read from a slot asks for the card's type.
void Session::NoteProbe(int value) {
  RackLive& live = state_.State()->live;
  if (live.scan.over.load(std::memory_order_relaxed) != 0 || live.selectedSlot >= kSlots) return;
  ScannedSlot& slot = live.scan.slots[live.selectedSlot];
  if (slot.probe != Probe::None) return;
  const LiveChange change(live);
  const bool pulled =
      std::any_of(std::begin(live.faults), std::end(live.faults), [&](const FaultRecord& fault) {
        return fault.kind == FaultKind::CardPulled && fault.slot == live.selectedSlot;
      });
  slot.code = static_cast<std::uint8_t>(value);
  slot.probe = value < 0 || pulled ? Probe::Unreadable : Probe::Read;
}

// The controller prints the cards that its scan has found one behind the other, a line each.
void Session::ReadCardList(const char* text, std::size_t count) {
  constexpr std::size_t kLongest = 200;
  ScanRecord& scan = state_.State()->live.scan;
  for (std::size_t i = 0; i < count && scan.over.load(std::memory_order_relaxed) == 0; ++i) {
    if (text[i] == '\n') {
      NoteListed(mainLine_.c_str());
      mainLine_.clear();
    } else if (mainLine_.size() < kLongest) {
      mainLine_ += text[i];
    }
  }
}

void Session::NoteListed(const char* line) {
  RackLive& live = state_.State()->live;
  const LiveChange change(live);
  unsigned code = 0;
  unsigned slot = 0;
  if (std::sscanf(line, "CardID: 0x%x SlotID: %u Type:", &code, &slot) == 2) {
    if (slot >= kSlots) return;
    live.scan.slots[slot].listed = 1;
    live.scan.slots[slot].listedCode = static_cast<std::uint8_t>(code);
    return;
  }
  // Entry 0 is always in the list: the line behind the last one ends it.
  if (live.scan.slots[0].listed != 0)
    live.scan.over.store(live.controller.attaches, std::memory_order_release);
}

void Session::Attach() {
  const std::lock_guard<OwnMutex> lock(guard_);
  const LiveChange change(state_.State()->live);
  NoteController();
}

void Session::Serve() {
  const std::lock_guard<OwnMutex> lock(guard_);
  rack_->AdvanceTo(Now());
  rack_->TellPolls();
}

MachineDue Session::Work() {
  const std::lock_guard<OwnMutex> lock(guard_);
  room_.Await(*state_.State(), *writer_);
  rack_->AdvanceTo(Now());
  return rack_->Due();
}

MachineDue Session::Watch(const TriggerTable& triggers) {
  const std::lock_guard<OwnMutex> lock(guard_);
  watched_.store(triggers.count != 0, std::memory_order_relaxed);
  rack_->Watch(triggers);
  return triggers.count == 0 ? MachineDue{false, kNever} : rack_->Due();
}

void Session::NoteController() {
  RackLive& live = state_.State()->live;
  ControllerRecord& controller = live.controller;
  const auto process = static_cast<std::int32_t>(RealNumber(SYS_getpid));
  if (controller.process == process) return;
  controller.process = process;
  controller.attachedAt = live.now;
  ++controller.attaches;
  std::memset(live.tasks, 0, sizeof live.tasks);
  live.scan.over.store(0, std::memory_order_relaxed);
  std::memset(live.scan.slots, 0, sizeof live.scan.slots);
  mainLine_.clear();
}

void Session::DeviceTried(bool opened) {
  const std::lock_guard<OwnMutex> lock(guard_);
  rack_->AdvanceTo(Now());
  RackLive& live = state_.State()->live;
  const LiveChange change(live);
  NoteController();
  if (!opened) return;
  live.controller.deviceOpen = 1;
  live.step = StepMode{};
  rack_->Note(JournalKind::Device, 0, 0, 1, Caller());
}

void Session::DeviceClosed() {
  const std::lock_guard<OwnMutex> lock(guard_);
  rack_->AdvanceTo(Now());
  RackLive& live = state_.State()->live;
  const LiveChange change(live);
  live.controller.deviceOpen = 0;
  rack_->Note(JournalKind::Device, 0, 0, 0, Caller());
  rack_->TellPolls();
}

Session::OpenProgram* Session::Find(const FILE* stream) {
  for (OpenProgram& program : programs_) {
    if (program.stream == stream) return &program;
  }
  return nullptr;
}

// One number for all that the list has no room for.
std::uint32_t Session::FileNumber(const char* path) {
  auto& files = state_.State()->live.programFiles;
  for (std::uint32_t row = 0; row < kMaxProgramFiles; ++row) {
    if (files[row][0] == '\0') CopyText(files[row], kPathSize, path);
    if (std::strncmp(files[row], path, kPathSize - 1) == 0) return row + 1;
  }
  return kOtherProgramFile;
}

void Session::FileOpened(const char* path, FILE* stream) {
  const std::uint8_t number = TaskOfPath(path);
  if (number == 0) return;
  const std::lock_guard<OwnMutex> lock(guard_);
  room_.Await(*state_.State(), *writer_);
  Marks.task = number;
  rack_->AdvanceTo(Now());
  RackLive& live = state_.State()->live;
  const LiveChange change(live);
  TaskRecord& task = live.tasks[number];
  task.thread = static_cast<std::uint32_t>(RealNumber(SYS_gettid));
  const std::uint32_t file = FileNumber(path);
  Origin origin{number, file, 0};
  if (stream == nullptr) {
    ++task.failedOpens;
    task.failedAt = live.now;
    CopyText(task.failedPath, kPathSize, path);
    rack_->Note(JournalKind::ProgramMissing, 0, 0, 0, origin);
    return;
  }
  // The runner closes its main program before it opens another: a second one is called as a block.
  std::uint32_t& place = IsMainProgram(path) && task.mainFile == 0 ? task.mainFile : task.blockFile;
  place = file;
  rack_->Note(JournalKind::ProgramOpened, 0, 0, 0, origin);
  if (OpenProgram* free = Find(nullptr)) *free = {stream, number, file, 0, false, false};
}

void Session::FileClosed(FILE* stream) {
  const std::lock_guard<OwnMutex> lock(guard_);
  OpenProgram* program = Find(stream);
  if (program == nullptr) return;
  const LiveChange change(state_.State()->live);
  TaskRecord& task = state_.State()->live.tasks[program->task];
  // Both hold the same number while a main program is called as a block too: the block is closed first.
  std::uint32_t& place = task.blockFile == program->file ? task.blockFile : task.mainFile;
  if (place == program->file) place = 0;
  *program = OpenProgram{};
}

void Session::FileRewound(FILE* stream) {
  const std::lock_guard<OwnMutex> lock(guard_);
  OpenProgram* program = Find(stream);
  if (program == nullptr) return;
  program->line = 0;
  program->inLine = false;
}

bool Session::IsProgram(FILE* stream) {
  const std::lock_guard<OwnMutex> lock(guard_);
  return Find(stream) != nullptr;
}

void Session::LineRead(FILE* stream, const void* caller, const char* line, std::size_t length) {
  const DueLine due = TakeLine(stream, caller, line, length);
  TellMoved();
  if (due.fileNumber != 0) CurrentTime().LineDue(due);
}

// The line that is executed next; its fileNumber is 0 when this read leads to none.
DueLine Session::TakeLine(FILE* stream, const void* caller, const char* line, std::size_t length) {
  const std::lock_guard<OwnMutex> lock(guard_);
  room_.Await(*state_.State(), *writer_);
  OpenProgram* program = Find(stream);
  if (program == nullptr) return {};
  if (Marks.runnerReads == nullptr) Marks.runnerReads = caller;
  rack_->AdvanceTo(Now());
  RackLive& live = state_.State()->live;
  const LiveChange change(live);
  const bool due = line != nullptr ? NoteLine(*program, caller, line, length) : NoteEnd(*program);
  const TaskRecord& task = live.tasks[program->task];
  if (!due || task.file == 0) return {};
  const char* const file = task.file <= kMaxProgramFiles ? live.programFiles[task.file - 1] : "";
  return {program->task, task.file, file, task.line, task.text};
}

// Whether it is a line to be executed, not one that a label search passes over.
bool Session::NoteLine(OpenProgram& program, const void* caller, const char* text, std::size_t length) {
  RackLive& live = state_.State()->live;
  TaskRecord& task = live.tasks[program.task];
  if (!program.inLine) ++program.line;
  program.inLine = length == 0 || text[length - 1] != '\n';
  if (caller != Marks.runnerReads) {
    if (!program.searching) ++task.searches;
    program.searching = true;
    task.searchFailed = 0;
    return false;
  }
  program.searching = false;
  task.file = program.file;
  task.line = program.line;
  task.endReads = 0;
  task.lineSince = live.now;
  CopyText(task.text, kLineSize, text);
  const char* word = text + std::strspn(text, " \t");
  if (strncasecmp(word, kPauseWord, std::strlen(kPauseWord)) == 0) CopyText(task.pauseText, kPauseSize, word);
  rack_->Note(JournalKind::ProgramLine, 0, 0, 0, {program.task, program.file, program.line});
  return true;
}

// Whether the line read last is executed again.
bool Session::NoteEnd(OpenProgram& program) {
  RackLive& live = state_.State()->live;
  TaskRecord& task = live.tasks[program.task];
  if (program.searching) {
    program.searching = false;
    task.searchFailed = 1;
    return false;
  }
  ++task.endReads;
  task.lastEndRead = live.now;
  rack_->Note(JournalKind::ProgramEnd, 0, 0, 0, {program.task, task.file, task.line});
  return true;
}

bool Session::HoldConsole(int descriptor, const char* text, std::size_t size) {
  if (!CurrentTime().HoldsConsole()) return false;
  const std::lock_guard<OwnMutex> lock(guard_);
  if (descriptor == STDOUT_FILENO) return writer_->Hold(text, size);
  writer_->Write();
  return false;
}

void Session::WriteConsole() {
  const std::lock_guard<OwnMutex> lock(guard_);
  writer_->Write();
}

void Session::WriteConsoleInTime() {
  const std::lock_guard<OwnMutex> lock(guard_);
  writer_->WriteInTime();
}

void Session::ConsoleWritten(const char* text, std::size_t count) {
  NoteConsole(text, count);
  TellMoved();
}

void Session::NoteConsole(const char* text, std::size_t count) {
  const std::lock_guard<OwnMutex> lock(guard_);
  room_.Await(*state_.State(), *writer_);
  rack_->AdvanceTo(Now());
  // Each thread says who it is in its first line, before it prints what came from outside.
  if (Marks.task == kUnknownTask && !IsMainThread()) Marks.task = TaskOfLine(text, count);
  Origin caller = Caller();
  // A console that is slow takes a line later, from whichever thread prints next.
  const bool isLate = state_.State()->time.setup.consoleBaud != 0;
  const std::uint8_t named = isLate && lineBegins_ ? TaskOfLine(text, count) : kUnknownTask;
  if (named != kUnknownTask) caller.task = named;
  lineBegins_ = count > 0 && (text[count - 1] == '\n' || text[count - 1] == '\r');
  rack_->Note(JournalKind::ConsoleText, 0, 0, static_cast<std::int32_t>(count), caller);
  if (caller.task == kMainThread) ReadCardList(text, count);
}

void Session::Synced() {
  const std::lock_guard<OwnMutex> lock(guard_);
  rack_->AdvanceTo(Now());
  const LiveChange change(state_.State()->live);
  ++state_.State()->live.controller.syncs;
  rack_->Note(JournalKind::Sync, 0, 0, 0, Caller());
}

bool Session::RestartFails() {
  NoteRestart();
  TellMoved();
  return state_.State()->image.restartFails != 0;
}

void Session::NoteRestart() {
  const std::lock_guard<OwnMutex> lock(guard_);
  rack_->AdvanceTo(Now());
  RackLive& live = state_.State()->live;
  const LiveChange change(live);
  ++live.controller.restarts;
  live.controller.restartAt = live.now;
  rack_->Note(JournalKind::Restart, 0, 0, 0, Caller());
  rack_->TellPolls();
}

bool Session::Redirect(const char* path, char* kept, std::size_t size) const {
  const bool outside = std::strncmp(path, kOutside, sizeof kOutside - 1) == 0;
  const int length = std::snprintf(kept, size, "%s%s", outside ? home_.c_str() : "", path);
  return length >= 0 && static_cast<std::size_t>(length) < size;
}

}  // namespace rack
