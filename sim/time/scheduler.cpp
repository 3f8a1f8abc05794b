#include "time/scheduler.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "preload/next.h"

namespace rack {

enum class ThreadState : std::uint8_t { None, Ready, Waiting };

struct Thread {
  ThreadState State;
  bool TimeOver;  // why it was woken
  unsigned Number;
  const void* Object;     // what it waits for, null: only for the time
  const void* Kept;       // object that is kept for it
  Nanos Wake;             // Waiting: when it is woken at the latest
  std::uint64_t Order;    // when it came to its queue
  std::atomic<int> Turn;  // 1: it may run
  std::uint32_t RealNumber;
};

namespace {

constexpr int kMaxThreads = 64;
constexpr Nanos kSlice = 100 * kMicrosecond;
constexpr int kCallShare = 10;    // a lock or clock call costs this part of a bus access
constexpr int kConsoleBits = 10;  // of a byte, with start and stop bit
// Under a seed: a slice is up to so long; one lock in so many is stretched, up to so long.
constexpr Nanos kSeededSlice = 40 * kMicrosecond;
constexpr std::uint32_t kStretchOneIn = 4;
constexpr Nanos kLongestStretch = 60 * kMicrosecond;
constexpr long kStandingPause = 500'000;  // ns of real time between two looks for requests
constexpr char kMailObject = 0;

struct Scheduler {
  bool Engaged;
  TimeControl* Control;
  void (*Serve)();
  Nanos Now;
  Nanos Busy;
  Nanos Slice;     // left of the running thread's
  Nanos NextStop;  // time at which the run ends or stands
  Nanos AccessCost;
  std::uint32_t Seed;
  std::uint32_t Random;
  std::uint64_t Counter;  // last Order given
  unsigned Created;
  int Used;  // threads in use are among the first so many
  int Keeping;
  int Waiters;  // threads that wait for an object
  TimeCommand Command;
  Thread Threads[kMaxThreads];
};

Scheduler S;  // all zero before any constructor runs

[[gnu::tls_model("initial-exec")]] thread_local Thread* Self = nullptr;

template <class... Arguments>
long SystemCall(long number, Arguments... arguments) {
  static auto* const next = Next<long(long, ...)>("syscall");
  return next(number, arguments...);
}

void RealPause() {
  const timespec rest = {0, kStandingPause};
  SystemCall(SYS_nanosleep, &rest, nullptr);
}

[[noreturn]] void EndProcess(int status) {
  SystemCall(SYS_exit_group, static_cast<long>(status));
  __builtin_unreachable();
}

// The seed's numbers (xorshift).
std::uint32_t Draw(std::uint32_t below) {
  S.Random ^= S.Random << 13;
  S.Random ^= S.Random >> 17;
  S.Random ^= S.Random << 5;
  return S.Random % below;
}

Nanos NewSlice() {
  if (S.Seed == 0) return kSlice;
  return 1 + static_cast<Nanos>(Draw(static_cast<std::uint32_t>(kSeededSlice)));
}

void TakeCommand() {
  TimeControl& control = *S.Control;
  const std::uint32_t number = control.Ordered.load(std::memory_order_acquire);
  S.Command = control.Command;
  S.NextStop = kForEver;
  if (S.Command.HoldAt != 0) S.NextStop = S.Command.HoldAt;
  if (control.Setup.EndAt != 0) S.NextStop = std::min(S.NextStop, control.Setup.EndAt);
  control.Standing.store(0, std::memory_order_release);
  control.Answered.store(number, std::memory_order_release);
}

bool IsOrdered() {
  return S.Control->Ordered.load(std::memory_order_acquire) !=
         S.Control->Answered.load(std::memory_order_relaxed);
}

// Time stands until the next command.
void Stand(std::uint8_t task, std::uint32_t file, std::uint32_t line) {
  TimeControl& control = *S.Control;
  control.StandsTask = task;
  control.StandsFile = file;
  control.StandsLine = line;
  if (S.Serve != nullptr) S.Serve();
  control.Standing.store(1, std::memory_order_release);
  while (!IsOrdered()) {
    const timespec limit = {0, kStandingPause};
    SystemCall(SYS_futex, &control.Ordered, FUTEX_WAIT, control.Answered.load(), &limit, nullptr, 0);
    if (S.Serve != nullptr) S.Serve();
  }
  TakeCommand();
}

// The time of NextStop is reached.
void Stop() {
  const Nanos end = S.Control->Setup.EndAt;
  if (end == 0 || S.Now < end) {
    Stand(0, 0, 0);
    return;
  }
  if (S.Serve != nullptr) S.Serve();
  S.Control->Ended.store(1, std::memory_order_release);
  EndProcess(0);
}

void ReportDeadlock() {
  char text[128];
  const int length = std::snprintf(
      text, sizeof text, "velmo-rack library: every thread waits for another one, at %lld.%06lld s\n",
      static_cast<long long>(S.Now / kSecond), static_cast<long long>(S.Now % kSecond / kMicrosecond));
  SystemCall(SYS_write, STDERR_FILENO, text, static_cast<std::size_t>(length));
  S.Control->Deadlock.store(1, std::memory_order_release);
  EndProcess(kDeadlockStatus);
}

void MakeReady(Thread& thread, bool timeOver) {
  if (thread.Object != nullptr) --S.Waiters;
  thread.State = ThreadState::Ready;
  thread.TimeOver = timeOver;
  thread.Object = nullptr;
  thread.Order = ++S.Counter;
}

// The waiting thread that is woken first; among those of the same time the one that came first.
Thread* NextToWake() {
  Thread* next = nullptr;
  for (Thread* thread = S.Threads; thread != S.Threads + S.Used; ++thread) {
    if (thread->State != ThreadState::Waiting || thread->Wake == kForEver) continue;
    if (next == nullptr || thread->Wake < next->Wake ||
        (thread->Wake == next->Wake && thread->Order < next->Order)) {
      next = thread;
    }
  }
  return next;
}

Thread* FirstWaiter(const void* object) {
  Thread* first = nullptr;
  for (Thread* thread = S.Threads; thread != S.Threads + S.Used; ++thread) {
    if (thread->State != ThreadState::Waiting || thread->Object != object) continue;
    if (first == nullptr || thread->Order < first->Order) first = thread;
  }
  return first;
}

Thread* ChooseReady() {
  Thread* chosen = nullptr;
  std::uint32_t count = 0;
  for (Thread* thread = S.Threads; thread != S.Threads + S.Used; ++thread) {
    if (thread->State != ThreadState::Ready) continue;
    ++count;
    const bool before = chosen == nullptr || thread->Order < chosen->Order;
    if (S.Seed == 0 ? before : Draw(count) == 0) chosen = thread;
  }
  return chosen;
}

// No thread can run and none will by itself: only a datagram or a command can change that.
void AwaitOutside() {
  if (FirstWaiter(&kMailObject) == nullptr) ReportDeadlock();
  if (S.Serve != nullptr) S.Serve();
  S.Control->Beat.fetch_add(1, std::memory_order_relaxed);
  RealPause();
}

// The thread that runs next, with time moved on to when it can.
Thread* Choose() {
  for (;;) {
    if (IsOrdered()) TakeCommand();
    if (NextMail() != nullptr) WakeFirst(&kMailObject, false);
    Thread* sleeper = NextToWake();
    for (; sleeper != nullptr && sleeper->Wake <= S.Now; sleeper = NextToWake()) MakeReady(*sleeper, true);
    if (Thread* ready = ChooseReady()) return ready;
    const Nanos wake = sleeper == nullptr ? kForEver : sleeper->Wake;
    if (wake > S.NextStop) {
      S.Now = std::max(S.Now, S.NextStop);
      Stop();
    } else if (sleeper == nullptr) {
      AwaitOutside();
    } else {
      S.Now = wake;
    }
  }
}

void AwaitTurn(Thread& self) {
  while (self.Turn.load(std::memory_order_acquire) == 0) {
    SystemCall(SYS_futex, &self.Turn, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
  }
  self.Turn.store(0, std::memory_order_relaxed);
}

void GiveTurn(Thread& next) {
  S.Control->Turn.store(next.RealNumber, std::memory_order_relaxed);
  next.Turn.store(1, std::memory_order_release);
  SystemCall(SYS_futex, &next.Turn, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

// Passes the turn to whoever is next, possibly the caller, and returns when the caller has it again.
void PassTurn() {
  Thread& self = *Self;
  S.Control->Beat.fetch_add(1, std::memory_order_relaxed);
  Thread* next = Choose();
  S.Slice = NewSlice();
  if (next == &self) return;
  GiveTurn(*next);
  AwaitTurn(self);
}

void UseOneProcessor() {
  cpu_set_t one;
  CPU_ZERO(&one);
  const int current = sched_getcpu();
  CPU_SET(current < 0 ? 0U : static_cast<unsigned>(current), &one);
  sched_setaffinity(0, sizeof one, &one);
}

// Comments and blank lines are read, but there is nothing to be executed.
bool HasCommand(const char* text) {
  text += std::strspn(text, " \t\r\n");
  return *text != '\0' && *text != ';';
}

bool IsLineToStandAt(std::uint8_t task, const char* file, std::uint32_t line) {
  const TimeCommand& command = S.Command;
  if (command.HoldTask != kAnyTask && command.HoldTask != task) return false;
  if (command.Step != 0) return true;
  return command.HoldLine == line && std::strncmp(command.HoldFile, file, kHoldFileSize) == 0;
}

}  // namespace

void Engage(const TimeLink& link) {
  // Not cleared as a whole: another thread may still be leaving, and asks whether it is engaged.
  for (Thread& thread : S.Threads) {
    thread.State = ThreadState::None;
    thread.Object = thread.Kept = nullptr;
    thread.Turn.store(0, std::memory_order_relaxed);
  }
  S.Control = link.Control;
  S.Serve = link.Serve;
  S.Now = link.Now;
  S.Busy = 0;
  const TimeSetup& setup = link.Control->Setup;
  S.AccessCost = setup.AccessNanos;
  S.Seed = setup.Seed;
  S.Random = setup.Seed * 2654435761U | 1U;
  S.Counter = 0;
  S.Created = 0;
  S.Used = 0;
  S.Keeping = 0;
  S.Waiters = 0;
  S.Slice = NewSlice();
  if (link.OwnProcessor) UseOneProcessor();
  Self = AddThread();
  Self->RealNumber = static_cast<std::uint32_t>(SystemCall(SYS_gettid));
  link.Control->Turn.store(Self->RealNumber, std::memory_order_relaxed);
  S.Engaged = true;
  TakeCommand();
  if (setup.StartStopped != 0 && S.Now == 0) Stand(0, 0, 0);
}

void Disengage() {
  Self = nullptr;
  S.Engaged = false;
}

bool InTurn() {
  return Self != nullptr;
}

Nanos VirtualNow() {
  return S.Now;
}
Nanos BusyTime() {
  return S.Busy;
}

void Spend(Nanos cost) {
  S.Now += cost;
  S.Busy += cost;
  S.Slice -= cost;
  if (S.Slice > 0 && S.Now < S.NextStop) return;
  if (S.Now >= S.NextStop) Stop();
  if (S.Slice <= 0) YieldTurn();
}

void SpendAccess() {
  Spend(S.AccessCost);
}
void SpendCall() {
  Spend(S.AccessCost / kCallShare);
}

void YieldTurn() {
  Self->Order = ++S.Counter;
  PassTurn();
}

void SleepUntil(Nanos time) {
  WaitFor(nullptr, std::max(time, S.Now));
}

WakeReason WaitFor(const void* object, Nanos until) {
  Thread& self = *Self;
  self.State = ThreadState::Waiting;
  self.Object = object;
  self.Wake = until;
  self.Order = ++S.Counter;
  if (object != nullptr) ++S.Waiters;
  PassTurn();
  return self.TimeOver ? WakeReason::TimeOver : WakeReason::Called;
}

void WakeFirst(const void* object, bool keep) {
  if (S.Waiters == 0) return;
  Thread* first = FirstWaiter(object);
  if (first == nullptr) return;
  MakeReady(*first, false);
  if (!keep) return;
  first->Kept = object;
  ++S.Keeping;
}

void WakeAll(const void* object) {
  if (S.Waiters == 0) return;
  for (Thread* first = FirstWaiter(object); first != nullptr; first = FirstWaiter(object)) {
    MakeReady(*first, false);
  }
}

bool KeptForOther(const void* object) {
  if (S.Keeping == 0) return false;
  return std::any_of(S.Threads, S.Threads + S.Used, [&](const Thread& thread) {
    return thread.State != ThreadState::None && thread.Kept == object && &thread != Self;
  });
}

void TakeKept() {
  if (Self->Kept == nullptr) return;
  Self->Kept = nullptr;
  --S.Keeping;
}

Nanos Stretch() {
  if (S.Seed == 0 || Draw(kStretchOneIn) != 0) return 0;
  return static_cast<Nanos>(Draw(static_cast<std::uint32_t>(kLongestStretch)));
}

Thread* AddThread() {
  for (int row = 0; row < kMaxThreads; ++row) {
    Thread& thread = S.Threads[row];
    if (thread.State != ThreadState::None) continue;
    S.Used = std::max(S.Used, row + 1);
    thread.Number = S.Created++;
    MakeReady(thread, false);
    return &thread;
  }
  return nullptr;
}

void DropThread(Thread* thread) {
  thread->State = ThreadState::None;
}

void BeginThread(Thread* thread) {
  thread->RealNumber = static_cast<std::uint32_t>(SystemCall(SYS_gettid));
  AwaitTurn(*thread);
  Self = thread;
  S.Control->Turn.store(thread->RealNumber, std::memory_order_relaxed);
}

void EndThread() {
  Self->State = ThreadState::None;
  WakeAll(Self);
  Self = nullptr;
  Thread* next = Choose();
  S.Slice = NewSlice();
  GiveTurn(*next);
}

unsigned NumberOf(const Thread* thread) {
  return thread->Number;
}

// Its place may have been given to another thread.
void WaitForEnd(const Thread* thread, unsigned number) {
  while (thread->State != ThreadState::None && thread->Number == number) WaitFor(thread, kForEver);
}

unsigned ThreadNumber() {
  return Self->Number;
}

const MailItem* NextMail() {
  return NextMail(*S.Control);
}

void MailTaken() {
  TakeMail(*S.Control);
}

void WaitForMail() {
  WaitFor(&kMailObject, kForEver);
}

void ReplySent() {
  S.Control->Replies.fetch_add(1, std::memory_order_relaxed);
}

void LineDue(std::uint8_t task, std::uint32_t fileNumber, const char* file, std::uint32_t line,
             const char* text) {
  if (IsOrdered()) TakeCommand();
  if (S.Command.Step == 0 && S.Command.HoldLine == 0) return;
  if (IsLineToStandAt(task, file, line) && HasCommand(text)) Stand(task, fileNumber, line);
}

void ConsoleBegins() {
  S.Control->InConsole.store(1, std::memory_order_release);
}

void ConsoleEnds(std::size_t bytes) {
  S.Control->InConsole.store(0, std::memory_order_release);
  const std::uint32_t baud = S.Control->Setup.ConsoleBaud;
  if (baud == 0) return;
  SleepUntil(S.Now + static_cast<Nanos>(bytes) * kConsoleBits * kSecond / baud);
}

}  // namespace rack
