#include "time/scheduler.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "preload/next.h"
#include "time/owners.h"

namespace rack {

enum class ThreadState : std::uint8_t { None, Ready, Waiting };

struct Thread {
  ThreadState state;
  bool timeOver;      // why it was woken
  Awaited awaits;     // Waiting: what sort of thing `object` is
  std::uint8_t task;  // 1 to 8: the PLC task whose lines it executes, 0: none
  unsigned number;
  std::uint32_t line;  // of the task, read last
  const char* file;
  const void* object;     // what it waits for, null: only for the time
  const void* kept;       // object that is kept for it
  Nanos wake;             // Waiting: when it is woken at the latest
  std::uint64_t order;    // when it came to its queue
  std::atomic<int> turn;  // 1: it may run
  std::uint32_t realNumber;
  Fibre* fibre;  // null: a real thread
};

namespace {

constexpr int kMaxThreads = 64;
constexpr Nanos kSlice = 100 * kMicrosecond;
constexpr int kCallShare = 10;                // a lock or clock call costs this part of a bus access
constexpr int kConsoleBits = 10;              // of a byte, with start and stop bit
constexpr std::size_t kConsoleBuffer = 4096;  // bytes that it holds while it sends
// Under a seed: a slice is up to so long; one lock in so many is stretched, up to so long.
constexpr Nanos kSeededSlice = 40 * kMicrosecond;
constexpr std::uint32_t kStretchOneIn = 4;
constexpr Nanos kLongestStretch = 60 * kMicrosecond;
constexpr long kStandingPause = 500'000;  // ns of real time between two looks for requests
constexpr char kMailObject = 0;

struct Scheduler {
  bool engaged;
  bool asFibres;
  TimeControl* control;
  void (*serve)();
  MachineDue (*work)();
  MachineDue (*watch)(const TriggerTable& triggers);
  void (*turn)(bool last);
  Nanos now;
  Nanos busy;
  Nanos slice;      // left of the running thread's
  Nanos endOrHold;  // time at which the run ends or stands
  Nanos nextStop;   // the same, or the next time at which the watched machine does something by itself
  Nanos accessCost;
  std::uint32_t seed;
  std::uint32_t random;
  std::uint64_t counter;  // last `order` given
  unsigned created;
  int used;  // threads in use are among the first so many
  int keeping;
  int waiters;         // threads that wait for an object
  Nanos consoleEmpty;  // when the console has sent what it holds
  TimeCommand command;
  Thread threads[kMaxThreads];
};

Scheduler S;  // all zero before any constructor runs
Fibre FirstFibre;

[[gnu::tls_model("initial-exec")]] thread_local Thread* Self = nullptr;

template <class... Arguments>
long SystemCall(long number, Arguments... arguments) {
  static Next next(calls::syscall);
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
  S.random ^= S.random << 13;
  S.random ^= S.random >> 17;
  S.random ^= S.random << 5;
  return S.random % below;
}

Nanos NewSlice() {
  if (S.seed == 0) return kSlice;
  return 1 + static_cast<Nanos>(Draw(static_cast<std::uint32_t>(kSeededSlice)));
}

// Whether there was a whole one; the next one may be on its way.
bool TakeCommand() {
  TimeControl& control = *S.control;
  std::uint32_t number = 0;
  if (!ReadOrder(control, S.command, number)) return false;
  S.endOrHold = kForEver;
  if (S.command.holdAt != 0) S.endOrHold = S.command.holdAt;
  if (control.setup.endAt != 0) S.endOrHold = std::min(S.endOrHold, control.setup.endAt);
  S.nextStop = S.endOrHold;
  if (S.watch != nullptr) S.nextStop = std::min(S.nextStop, S.watch(S.command.triggers).next);
  control.standing.store(0, std::memory_order_release);
  control.answered.store(number, std::memory_order_release);
  return true;
}

bool IsOrdered() {
  return S.control->ordered.load(std::memory_order_acquire) !=
         S.control->answered.load(std::memory_order_relaxed);
}

std::uint32_t NumberOf(const Holder& holder) {
  if (!holder.held) return 0;
  if (holder.thread == nullptr) return kHolderEnded;
  return holder.thread->task != 0 ? holder.thread->task : kHolderThreads + holder.thread->number;
}

// What a task waits for, as the tools show it.
void TellLockWait(const Thread& thread) {
  LockWait& told = S.control->lockWaits[thread.task];
  told.holder.store(NumberOf(HolderOf(thread.object)), std::memory_order_relaxed);
  told.row.store(NameRow(thread.object, *S.control), std::memory_order_release);
}

bool WaitsForLock(const Thread& thread) {
  return thread.state == ThreadState::Waiting && thread.awaits == Awaited::Lock && thread.task != 0;
}

// A lock may have passed to another thread since the wait began.
void TellLockWaits() {
  for (const Thread& thread : S.threads) {
    if (WaitsForLock(thread)) TellLockWait(thread);
  }
}

// Time stands until the next command.
void Stand(std::uint8_t task, std::uint32_t file, std::uint32_t line) {
  TimeControl& control = *S.control;
  control.standsTask = task;
  control.standsFile = file;
  control.standsLine = line;
  TellLockWaits();
  if (S.serve != nullptr) S.serve();
  control.standing.store(1, std::memory_order_release);
  SystemCall(SYS_futex, &control.standing, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
  while (!IsOrdered() || !TakeCommand()) {
    const timespec limit = {0, kStandingPause};
    SystemCall(SYS_futex, &control.ordered, FUTEX_WAIT, control.answered.load(), &limit, nullptr, 0);
    if (S.serve != nullptr) S.serve();
  }
}

// The time of nextStop is reached.
void Stop() {
  if (S.now < S.endOrHold) {
    MachineMoved(S.work());
    return;
  }
  const Nanos end = S.control->setup.endAt;
  if (end == 0 || S.now < end) {
    Stand(0, 0, 0);
    return;
  }
  if (S.serve != nullptr) S.serve();
  S.control->ended.store(1, std::memory_order_release);
  EndProcess(0);
}

int WriteTime(char* text, std::size_t size) {
  return std::snprintf(text, size, "%lld.%06lld s", static_cast<long long>(S.now / kSecond),
                       static_cast<long long>(S.now % kSecond / kMicrosecond));
}

[[noreturn]] void ReportDeadlock() {
  char text[64];
  const int length = std::snprintf(text, sizeof text, "every thread waits for another one, at ");
  WriteTime(text + length, sizeof text - static_cast<std::size_t>(length));
  EndRun(kDeadlockStatus, text);
}

void MakeReady(Thread& thread, bool timeOver) {
  if (thread.object != nullptr) --S.waiters;
  thread.state = ThreadState::Ready;
  thread.timeOver = timeOver;
  thread.object = nullptr;
  thread.order = ++S.counter;
}

// The waiting thread that is woken first; among those of the same time the one that came first.
Thread* NextToWake() {
  Thread* next = nullptr;
  for (Thread* thread = S.threads; thread != S.threads + S.used; ++thread) {
    if (thread->state != ThreadState::Waiting || thread->wake == kForEver) continue;
    if (next == nullptr || thread->wake < next->wake ||
        (thread->wake == next->wake && thread->order < next->order)) {
      next = thread;
    }
  }
  return next;
}

Thread* FirstWaiter(const void* object) {
  Thread* first = nullptr;
  for (Thread* thread = S.threads; thread != S.threads + S.used; ++thread) {
    if (thread->state != ThreadState::Waiting || thread->object != object) continue;
    if (first == nullptr || thread->order < first->order) first = thread;
  }
  return first;
}

Thread* ChooseReady() {
  Thread* chosen = nullptr;
  std::uint32_t count = 0;
  for (Thread* thread = S.threads; thread != S.threads + S.used; ++thread) {
    if (thread->state != ThreadState::Ready) continue;
    ++count;
    const bool before = chosen == nullptr || thread->order < chosen->order;
    if (S.seed == 0 ? before : Draw(count) == 0) chosen = thread;
  }
  return chosen;
}

// No thread can run and none will by itself: only a datagram or a command can change that.
void AwaitOutside() {
  if (FirstWaiter(&kMailObject) == nullptr) ReportDeadlock();
  if (S.serve != nullptr) S.serve();
  S.control->beat.fetch_add(1, std::memory_order_relaxed);
  RealPause();
}

// The thread that runs next, with time moved on to when it can.
Thread* Choose() {
  if (S.turn != nullptr) S.turn(Self == nullptr && !S.asFibres);
  for (;;) {
    if (IsOrdered()) TakeCommand();
    if (NextMail() != nullptr) WakeFirst(&kMailObject, false);
    Thread* sleeper = NextToWake();
    for (; sleeper != nullptr && sleeper->wake <= S.now; sleeper = NextToWake()) MakeReady(*sleeper, true);
    if (Thread* ready = ChooseReady()) return ready;
    const Nanos wake = sleeper == nullptr ? kForEver : sleeper->wake;
    if (wake > S.nextStop) {
      S.now = std::max(S.now, S.nextStop);
      Stop();
    } else if (sleeper == nullptr) {
      AwaitOutside();
    } else {
      S.now = wake;
    }
  }
}

void AwaitTurn(Thread& self) {
  while (self.turn.load(std::memory_order_acquire) == 0) {
    SystemCall(SYS_futex, &self.turn, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
  }
  self.turn.store(0, std::memory_order_relaxed);
}

void GiveTurn(Thread& next) {
  S.control->turn.store(next.realNumber, std::memory_order_relaxed);
  next.turn.store(1, std::memory_order_release);
  SystemCall(SYS_futex, &next.turn, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

// Passes the turn to whoever is next, possibly the caller, and returns when the caller has it again.
void PassTurn() {
  Thread& self = *Self;
  S.control->beat.fetch_add(1, std::memory_order_relaxed);
  Thread* next = Choose();
  S.slice = NewSlice();
  if (next == &self) return;
  if (S.asFibres) {
    Self = next;
    SwitchFibre(*self.fibre, *next->fibre);
    return;
  }
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
  const TimeCommand& command = S.command;
  if (command.holdTask != kAnyTask && command.holdTask != task) return false;
  if (command.step != 0) return true;
  return command.holdLine == line && std::strncmp(command.holdFile, file, kHoldFileSize) == 0;
}

}  // namespace

void Engage(const TimeLink& link) {
  // Not cleared as a whole: another thread may still be leaving, and asks whether it is engaged.
  for (Thread& thread : S.threads) {
    thread.state = ThreadState::None;
    thread.object = thread.kept = nullptr;
    thread.turn.store(0, std::memory_order_relaxed);
  }
  S.control = link.control;
  S.serve = link.serve;
  S.work = link.work;
  S.watch = link.watch;
  S.turn = link.turn;
  S.now = link.now;
  S.busy = 0;
  for (LockWait& wait : link.control->lockWaits) wait.row.store(0, std::memory_order_relaxed);
  const TimeSetup& setup = link.control->setup;
  S.accessCost = setup.accessNanos;
  S.seed = setup.seed;
  S.random = setup.seed * 2654435761U | 1U;
  S.counter = 0;
  S.created = 0;
  S.used = 0;
  S.keeping = 0;
  S.waiters = 0;
  S.consoleEmpty = 0;
  S.slice = NewSlice();
  ForgetOwners();
  S.asFibres = link.asFibres;
  if (!link.asFibres) UseOneProcessor();
  Self = AddThread(link.asFibres ? &FirstFibre : nullptr);
  Self->realNumber = static_cast<std::uint32_t>(SystemCall(SYS_gettid));
  link.control->turn.store(Self->realNumber, std::memory_order_relaxed);
  S.engaged = true;
  while (!TakeCommand()) RealPause();
  if (setup.startStopped != 0 && S.now == 0) Stand(0, 0, 0);
}

void Disengage() {
  Self = nullptr;
  S.asFibres = false;
  S.engaged = false;
}

bool InTurn() {
  return Self != nullptr;
}

bool AsFibres() {
  return S.asFibres;
}

Nanos VirtualNow() {
  return S.now;
}
Nanos BusyTime() {
  return S.busy;
}

void Spend(Nanos cost) {
  S.now += cost;
  S.busy += cost;
  S.slice -= cost;
  if (S.slice > 0 && S.now < S.nextStop) return;
  if (S.now >= S.nextStop) Stop();
  if (S.slice <= 0) YieldTurn();
}

void SpendAccess() {
  Spend(S.accessCost);
}
void SpendCall() {
  Spend(S.accessCost / kCallShare);
}

void YieldTurn() {
  Self->order = ++S.counter;
  PassTurn();
}

void SleepUntil(Nanos time) {
  WaitFor(nullptr, Awaited::Time, std::max(time, S.now));
}

WakeReason WaitFor(const void* object, Awaited kind, Nanos until) {
  Thread& self = *Self;
  self.state = ThreadState::Waiting;
  self.awaits = kind;
  self.object = object;
  self.wake = until;
  self.order = ++S.counter;
  if (object != nullptr) ++S.waiters;
  if (until == kForEver) EndAtCircle(Self);
  const bool told = WaitsForLock(self);
  LockWait& wait = S.control->lockWaits[self.task];
  if (told) wait.since.store(S.now, std::memory_order_relaxed);
  if (told) TellLockWait(self);
  PassTurn();
  if (told) wait.row.store(0, std::memory_order_release);
  return self.timeOver ? WakeReason::TimeOver : WakeReason::Called;
}

bool WakeFirst(const void* object, bool keep) {
  if (S.waiters == 0) return false;
  Thread* first = FirstWaiter(object);
  if (first == nullptr) return false;
  MakeReady(*first, false);
  if (!keep) return true;
  first->kept = object;
  ++S.keeping;
  return true;
}

void WakeAll(const void* object) {
  if (S.waiters == 0) return;
  for (Thread* first = FirstWaiter(object); first != nullptr; first = FirstWaiter(object)) {
    MakeReady(*first, false);
  }
}

bool KeptForOther(const void* object) {
  if (S.keeping == 0) return false;
  return std::any_of(S.threads, S.threads + S.used, [&](const Thread& thread) {
    return thread.state != ThreadState::None && thread.kept == object && &thread != Self;
  });
}

void TakeKept() {
  if (Self->kept == nullptr) return;
  Self->kept = nullptr;
  --S.keeping;
}

Nanos Stretch() {
  if (S.seed == 0 || Draw(kStretchOneIn) != 0) return 0;
  return static_cast<Nanos>(Draw(static_cast<std::uint32_t>(kLongestStretch)));
}

Thread* AddThread(Fibre* fibre) {
  for (int row = 0; row < kMaxThreads; ++row) {
    Thread& thread = S.threads[row];
    if (thread.state != ThreadState::None) continue;
    S.used = std::max(S.used, row + 1);
    thread.number = S.created++;
    thread.task = 0;
    thread.fibre = fibre;
    MakeReady(thread, false);
    return &thread;
  }
  return nullptr;
}

void DropThread(Thread* thread) {
  thread->state = ThreadState::None;
}

void BeginThread(Thread* thread) {
  thread->realNumber = static_cast<std::uint32_t>(SystemCall(SYS_gettid));
  AwaitTurn(*thread);
  Self = thread;
  S.control->turn.store(thread->realNumber, std::memory_order_relaxed);
}

void EndThread() {
  Fibre* const fibre = Self->fibre;
  ForgetOwner(Self);
  Self->state = ThreadState::None;
  WakeAll(Self);
  Self = nullptr;
  Thread* next = Choose();
  S.slice = NewSlice();
  if (!S.asFibres) return GiveTurn(*next);
  Self = next;
  SwitchFibre(*fibre, *next->fibre);
}

unsigned NumberOf(const Thread* thread) {
  return thread->number;
}

// Its place may have been given to another thread.
void WaitForEnd(const Thread* thread, unsigned number) {
  while (thread->state != ThreadState::None && thread->number == number) {
    WaitFor(thread, Awaited::ThreadEnd, kForEver);
  }
}

unsigned ThreadNumber() {
  return Self->number;
}

const Thread* CurrentThread() {
  return Self;
}

Fibre* CurrentFibre() {
  return Self->fibre == &FirstFibre ? nullptr : Self->fibre;
}

Wait EndlessWait(const Thread* thread) {
  if (thread->state != ThreadState::Waiting || thread->wake != kForEver) return {Awaited::Time, nullptr};
  return {thread->awaits, thread->object};
}

int WriteName(const Thread* thread, char* text, std::size_t size) {
  if (thread->task != 0) {
    return std::snprintf(text, size, "task %u (%s:%u)", unsigned{thread->task}, thread->file, thread->line);
  }
  if (thread->number == 0) return std::snprintf(text, size, "the main thread");
  return std::snprintf(text, size, "thread %u", thread->number);
}

void EndRun(int status, const char* reason) {
  char text[kReasonSize];
  const int length = std::snprintf(text, sizeof text, "%s", reason);
  if (S.serve != nullptr) S.serve();
  std::memcpy(S.control->reason, text, sizeof text);
  S.control->broken.store(1, std::memory_order_release);
  constexpr char kHead[] = "velmo-rack library: ";
  SystemCall(SYS_write, STDERR_FILENO, kHead, sizeof kHead - 1);
  SystemCall(SYS_write, STDERR_FILENO, text, std::min(static_cast<std::size_t>(length), sizeof text - 1));
  SystemCall(SYS_write, STDERR_FILENO, "\n", std::size_t{1});
  EndProcess(status);
}

void Refuse(const char* call) {
  char text[kReasonSize];
  int length = WriteName(Self, text, sizeof text);
  length = std::min(length, kReasonSize / 2);
  length += std::snprintf(text + length, sizeof text - static_cast<std::size_t>(length),
                          " calls %.100s, which virtual time does not answer, at ", call);
  WriteTime(text + length, sizeof text - static_cast<std::size_t>(length));
  EndRun(kRefusedStatus, text);
}

const MailItem* NextMail() {
  return NextMail(*S.control);
}

void MailTaken() {
  TakeMail(*S.control);
}

void WaitForMail() {
  WaitFor(&kMailObject, Awaited::Mail, kForEver);
}

void ReplySent() {
  S.control->replies.fetch_add(1, std::memory_order_relaxed);
}

void LineDue(std::uint8_t task, std::uint32_t fileNumber, const char* file, std::uint32_t line,
             const char* text) {
  Self->task = task;
  Self->line = line;
  Self->file = file;
  if (IsOrdered()) TakeCommand();
  if (S.command.step == 0 && S.command.holdLine == 0) return;
  if (IsLineToStandAt(task, file, line) && HasCommand(text)) Stand(task, fileNumber, line);
}

void MachineMoved(const MachineDue& due) {
  S.nextStop = std::min(S.endOrHold, due.next);
  if (due.fits) Stand(0, 0, 0);
}

bool HoldsConsole() {
  return S.control->setup.holdsConsole != 0;
}

void ConsoleBegins() {
  S.control->inConsole.store(1, std::memory_order_release);
}

void ConsoleEnds() {
  S.control->inConsole.store(0, std::memory_order_release);
}

std::size_t ConsoleTakes(std::size_t bytes) {
  const std::uint32_t baud = S.control->setup.consoleBaud;
  if (baud == 0) return bytes;
  const Nanos byte = kConsoleBits * kSecond / baud;
  const Nanos start = std::max(S.consoleEmpty, S.now);
  const auto held = static_cast<std::size_t>((start - S.now + byte - 1) / byte);
  const std::size_t taken = std::min(bytes, kConsoleBuffer - std::min(held, kConsoleBuffer));
  S.consoleEmpty = start + static_cast<Nanos>(taken) * byte;
  return taken;
}

}  // namespace rack
