// Virtual time: the controller's threads take turns, and time passes by what they do and wait for.
//
// Exactly one has the turn and runs. The threads are fibres, or real ones, and then every other one sleeps in the
// kernel until it gets the turn. What a thread does costs time by Spend; a thread that sleeps or waits for another
// passes the turn on; when no thread can run, time jumps to the next one that wakes. One scheduler per process.
// Everything here is touched by the thread that has the turn alone, so nothing is locked.
//
// Times are nanoseconds since power-on.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rack/time_control.h"
#include "time/fibre.h"

namespace rack {

constexpr Nanos kForEver = INT64_MAX;

// What a scheduler is told when it starts.
struct TimeLink {
  TimeControl* control;
  Nanos now;        // time at the start
  void (*serve)();  // called again and again while time stands; null: nothing to be served
  // Works the machine out up to now, and sets what it is watched for; null: there is no machine to be watched.
  MachineDue (*work)();
  MachineDue (*watch)(const TriggerTable& triggers);
  void (*turn)(
      bool
          last);  // called when the turn is passed on, by a real thread for the last time or not; null: nothing
  bool asFibres;  // threads are fibres; else real ones, kept on one processor so that passing a turn is cheap
};

// The calling thread becomes the first one, with the turn. Threads that it creates belong to it from then on.
void Engage(const TimeLink& link);
// Back to real time. REQUIRES: the caller is the last thread.
void Disengage();

// Whether the calling thread takes turns. All that follows: only then.
bool InTurn();
// Whether the threads are fibres.
bool AsFibres();

Nanos VirtualNow();
// Processor time of all threads.
Nanos BusyTime();

// The thread has worked for so long. It may lose its turn for a while here.
void Spend(Nanos cost);
void SpendAccess();  // one bus access
void SpendCall();    // one lock or clock call
// Lets the others that can run go first.
void YieldTurn();
void SleepUntil(Nanos time);

enum class WakeReason { Called, TimeOver };

// What a thread waits for. A lock and a start made once have an owner, and so has a thread's end: who waits for
// them in a circle waits for ever.
enum class Awaited : std::uint8_t { Time, Lock, OnceStart, ThreadEnd, Condition, Semaphore, Futex, Mail };

// Waits until somebody wakes a thread that waits for this object, or the time is reached. Threads are woken
// in the order in which they came. A wait without limit that closes a circle ends the run.
WakeReason WaitFor(const void* object, Awaited kind, Nanos until);
// Wakes the first thread that waits for the object, and says whether there was one; with `keep`, the object is kept
// for it until it has taken it by TakeKept.
bool WakeFirst(const void* object, bool keep);
void WakeAll(const void* object);
// Whether the object is kept for another thread. Nothing is kept for the caller afterwards.
bool KeptForOther(const void* object);
void TakeKept();

// Under a seed, now and then a while for which a locked section lasts longer; 0 without.
Nanos Stretch();

// Threads. Add: a thread that is going to be created, a fibre or (null) a real one; null when there are too many.
// Begin: called by a real one, waits for its first turn. End: called by it as the last thing; of a fibre it does not
// return.
struct Thread;
Thread* AddThread(Fibre* fibre);
void DropThread(Thread* thread);  // it could not be created
void BeginThread(Thread* thread);
void EndThread();
// A thread's number, counted from 0 in the order of creation.
unsigned NumberOf(const Thread* thread);
// Waits until the thread of that number takes no more turns.
void WaitForEnd(const Thread* thread, unsigned number);
// Of the caller.
unsigned ThreadNumber();
const Thread* CurrentThread();
// Null: it is the first thread, or a real one.
Fibre* CurrentFibre();

// What a thread waits for without a limit; Time when it waits for nothing of that sort.
struct Wait {
  Awaited kind;
  const void* object;
};
Wait EndlessWait(const Thread* thread);
// "task 1 (plc1/FLOW.PLC:12)", "the main thread", "thread 9".
int WriteName(const Thread* thread, char* text, std::size_t size);

// Time cannot go on: leaves the reason in the state and on standard error, and ends the process.
[[noreturn]] void EndRun(int status, const char* reason);
// Likewise: the caller has made a call that virtual time does not answer.
[[noreturn]] void Refuse(const char* call);

// The datagram received next, null when there is none. WaitForMail returns when there may be one.
const MailItem* NextMail();
void MailTaken();
void WaitForMail();
void ReplySent();

// A program line is about to be executed; returns when time goes on.
void LineDue(std::uint8_t task, std::uint32_t fileNumber, const char* file, std::uint32_t line,
             const char* text);

// The machine has moved while it is watched; returns when time goes on.
void MachineMoved(const MachineDue& due);

// How many of so many bytes the console takes at this time: it sends what it holds at its own speed. Whoever asks writes
// them.
std::size_t ConsoleTakes(std::size_t bytes);
// Whether its lines may be written later.
bool HoldsConsole();
// Around the write, which may take real time.
void ConsoleBegins();
void ConsoleEnds();

}  // namespace rack
