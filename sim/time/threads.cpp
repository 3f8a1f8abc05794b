#include "time/threads.h"

#include <sched.h>
#include <sys/prctl.h>
#include <unwind.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "preload/next.h"
#include "time/fibre_switch.h"
#include "time/keys.h"
#include "time/scheduler.h"

// Of the C library, from its version 2.32 on: set while there was never more than one real thread, which makes the C++
// runtime take a second one that comes to a local static for the first one again.
extern "C" [[gnu::weak]] char __libc_single_threaded;

namespace rack {
namespace {

constexpr std::size_t kNameSize = 16;  // with the zero at its end

// --- Real threads

// Passes the turn on at the thread's end, however it ends.
class TurnsOfThread {
 public:
  explicit TurnsOfThread(Thread* thread) { BeginThread(thread); }
  ~TurnsOfThread() { EndThread(); }
  TurnsOfThread(const TurnsOfThread&) = delete;
  TurnsOfThread& operator=(const TurnsOfThread&) = delete;
};

struct Begin {
  ThreadBody* body;
  void* argument;
  Thread* turns;
};

struct Joinable {
  pthread_t handle;
  Thread* turns;  // null: row not used
  unsigned number;
};
Joinable Joinables[64];  // touched in turn only

void* RunThread(void* argument) {
  const Begin begin = *static_cast<Begin*>(argument);
  delete static_cast<Begin*>(argument);
  const TurnsOfThread turns(begin.turns);
  void* result = begin.body(begin.argument);
  return result;
}

void Remember(pthread_t handle, Thread* turns) {
  for (Joinable& row : Joinables) {
    if (row.turns != nullptr && row.turns != turns && row.handle != handle) continue;
    row = {handle, turns, NumberOf(turns)};
    return;
  }
}

void AwaitEnd(pthread_t handle) {
  for (Joinable& row : Joinables) {
    if (row.turns == nullptr || row.handle != handle) continue;
    const Joinable joined = row;
    row.turns = nullptr;
    WaitForEnd(joined.turns, joined.number);
    return;
  }
}

int CreateReal(pthread_t* handle, const pthread_attr_t* attributes, ThreadBody* body, void* argument) {
  static Next next(calls::pthread_create);
  Thread* turns = AddThread(nullptr);
  if (turns == nullptr) return EAGAIN;
  auto* const begin = new Begin{body, argument, turns};
  const int result = next(handle, attributes, &RunThread, begin);
  if (result == 0) {
    Remember(*handle, turns);
    return 0;
  }
  delete begin;
  DropThread(turns);
  return result;
}

// --- Fibres

// Who waits for a thread's end.
enum class Claim : std::uint8_t { None, Joined, Detached };

// A thread from its creation until it has ended and is detached or joined. Its address is its handle.
struct FibreThread : Fibre {
  ThreadBody* body = nullptr;
  void* argument = nullptr;
  void* result = nullptr;
  Thread* turns = nullptr;
  unsigned number = 0;
  Claim claim = Claim::None;
  bool ended = false;
  FibreStack stack{};
  bool ownStack = true;  // the controller has not brought it along
  KeyValues keys;
  char name[kNameSize] = {};
  int policy = SCHED_OTHER;
  sched_param priority{};
  _Unwind_Exception exit{};
  FibreThread* next = nullptr;
};
FibreThread* FirstOfAll = nullptr;  // touched in turn only

// Null: it is the first thread, or there is none of that handle.
FibreThread* FindFibre(pthread_t handle) {
  FibreThread* thread = FirstOfAll;
  while (thread != nullptr && reinterpret_cast<pthread_t>(thread) != handle) thread = thread->next;
  return thread;
}

FibreThread* OwnFibre() {
  return InTurn() && AsFibres() ? static_cast<FibreThread*>(CurrentFibre()) : nullptr;
}

void Forget(FibreThread* thread) {
  FibreThread** place = &FirstOfAll;
  while (*place != thread) place = &(*place)->next;
  *place = thread->next;
  delete thread;
}

[[noreturn]] void EndFibre(FibreThread* thread, void* result) {
  thread->result = result;
  thread->keys.Destroy();
  thread->ended = true;
  if (thread->ownStack) GiveBackStack(thread->stack);
  EndThread();
  __builtin_unreachable();
}

void RunFibre(void* argument) {
  auto* const thread = static_cast<FibreThread*>(argument);
  EndFibre(thread, thread->body(thread->argument));
}

// The stack that the attributes ask for or bring along.
bool ChooseStack(const pthread_attr_t& attributes, FibreThread& thread) {
  void* bottom = nullptr;
  std::size_t size = 0;
  std::size_t guard = 0;
  pthread_attr_getstack(&attributes, &bottom, &size);
  pthread_attr_getguardsize(&attributes, &guard);
  // Without a stack in them they tell one that ends at 0.
  thread.ownStack = reinterpret_cast<std::uintptr_t>(bottom) + size == 0;
  thread.stack = thread.ownStack ? TakeStack(size, guard) : FibreStack{static_cast<char*>(bottom), size, 0};
  return thread.stack.bottom != nullptr;
}

void TakeAttributes(const pthread_attr_t& attributes, FibreThread& thread) {
  int state = PTHREAD_CREATE_JOINABLE;
  pthread_attr_getdetachstate(&attributes, &state);
  if (state == PTHREAD_CREATE_DETACHED) thread.claim = Claim::Detached;
  int inherits = PTHREAD_INHERIT_SCHED;
  pthread_attr_getinheritsched(&attributes, &inherits);
  if (inherits == PTHREAD_INHERIT_SCHED) return;
  pthread_attr_getschedpolicy(&attributes, &thread.policy);
  pthread_attr_getschedparam(&attributes, &thread.priority);
}

// Threads that nobody joins and that have left their stack.
void ForgetEnded() {
  for (FibreThread* thread = FirstOfAll; thread != nullptr;) {
    FibreThread* const next = thread->next;
    if (thread->ended && thread->claim == Claim::Detached) Forget(thread);
    thread = next;
  }
}

int CreateFibre(pthread_t* handle, const pthread_attr_t* attributes, ThreadBody* body, void* argument) {
  ForgetEnded();
  const std::string wrong = WhyNoFibres();
  if (!wrong.empty()) Refuse(("pthread_create, now that " + wrong).c_str());
  auto* const thread = new (std::nothrow) FibreThread;
  if (thread == nullptr) return EAGAIN;
  pthread_attr_t usual;
  pthread_getattr_default_np(&usual);
  const pthread_attr_t& chosen = attributes == nullptr ? usual : *attributes;
  thread->turns = ChooseStack(chosen, *thread) ? AddThread(thread) : nullptr;
  if (thread->turns != nullptr) TakeAttributes(chosen, *thread);
  pthread_attr_destroy(&usual);
  if (thread->turns == nullptr) {
    if (thread->ownStack && thread->stack.bottom != nullptr) GiveBackStack(thread->stack);
    delete thread;
    return EAGAIN;
  }
  if (&__libc_single_threaded != nullptr) __libc_single_threaded = 0;
  prctl(PR_GET_NAME, thread->name);
  PrepareFibre(*thread, thread->stack, &RunFibre, thread);
  thread->body = body;
  thread->argument = argument;
  thread->number = NumberOf(thread->turns);
  thread->next = FirstOfAll;
  FirstOfAll = thread;
  *handle = reinterpret_cast<pthread_t>(thread);
  return 0;
}

int JoinFibre(pthread_t handle, void** result) {
  FibreThread* const thread = FindFibre(handle);
  if (thread == nullptr) return ESRCH;
  if (thread->claim != Claim::None) return EINVAL;
  if (thread == OwnFibre()) return EDEADLK;
  thread->claim = Claim::Joined;
  if (!thread->ended) WaitForEnd(thread->turns, thread->number);
  if (result != nullptr) *result = thread->result;
  Forget(thread);
  return 0;
}

// Called for each function that the thread is in, innermost first: those that have something to tidy up have done it.
_Unwind_Reason_Code LeaveFunction(int, _Unwind_Action actions, _Unwind_Exception_Class, _Unwind_Exception*,
                                  _Unwind_Context*, void* argument) {
  auto* const thread = static_cast<FibreThread*>(argument);
  if ((actions & _UA_END_OF_STACK) != 0) EndFibre(thread, thread->result);
  return _URC_NO_REASON;
}

}  // namespace

KeyValues* OwnKeyValues() {
  FibreThread* const own = OwnFibre();
  return own == nullptr ? nullptr : &own->keys;
}

int CreateThread(pthread_t* handle, const pthread_attr_t* attributes, ThreadBody* body, void* argument) {
  SpendCall();
  return AsFibres() ? CreateFibre(handle, attributes, body, argument)
                    : CreateReal(handle, attributes, body, argument);
}

int JoinThread(pthread_t handle, void** result) {
  static Next next(calls::pthread_join);
  SpendCall();
  if (AsFibres()) return JoinFibre(handle, result);
  AwaitEnd(handle);
  return next(handle, result);
}

void ExitFibre(void* result) {
  FibreThread* const own = OwnFibre();
  own->result = result;
  own->exit = {};
  own->exit.exception_cleanup = [](_Unwind_Reason_Code, _Unwind_Exception*) {
    EndRun(kRefusedStatus, "a catch(...) ends a thread's pthread_exit");
  };
  _Unwind_ForcedUnwind(&own->exit, &LeaveFunction, own);
  EndFibre(own, result);  // a function that nobody can leave
}

}  // namespace rack

using rack::InTurn;
using rack::Next;

extern "C" {

int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
  static Next next(rack::calls::pthread_create);
  return InTurn() ? rack::CreateThread(handle, attributes, body, argument)
                  : next(handle, attributes, body, argument);
}

int pthread_join(pthread_t handle, void** result) {
  static Next next(rack::calls::pthread_join);
  return InTurn() ? rack::JoinThread(handle, result) : next(handle, result);
}

// A main thread that ends alone would keep its turn.
void pthread_exit(void* result) {
  static Next next(rack::calls::pthread_exit);
  if (InTurn() && rack::ThreadNumber() == 0) rack::Refuse("pthread_exit");
  if (InTurn() && rack::AsFibres()) rack::ExitFibre(result);
  next(result);
  __builtin_unreachable();
}

}  // extern "C"

RACK_ARE_DEFINED(RACK_THREAD_CALLS)

#if RACK_HAS_FIBRES

// What is asked about a fibre, by its handle. Its priority, processors and name change nothing.
extern "C" {

pthread_t pthread_self() noexcept {
  static Next next(rack::calls::pthread_self);
  rack::FibreThread* const own = rack::OwnFibre();
  return own == nullptr ? next() : reinterpret_cast<pthread_t>(own);
}

int pthread_detach(pthread_t handle) noexcept {
  static Next next(rack::calls::pthread_detach);
  rack::FibreThread* const thread = rack::FindFibre(handle);
  if (thread == nullptr) return next(handle);
  if (thread->claim != rack::Claim::None) return EINVAL;
  thread->claim = rack::Claim::Detached;
  return 0;
}

int pthread_getattr_np(pthread_t handle, pthread_attr_t* attributes) noexcept {
  static Next next(rack::calls::pthread_getattr_np);
  const rack::FibreThread* const thread = rack::FindFibre(handle);
  if (thread == nullptr) return next(handle, attributes);
  const int result = pthread_attr_init(attributes);
  if (result != 0) return result;
  pthread_attr_setstack(attributes, thread->stack.bottom, thread->stack.size);
  pthread_attr_setguardsize(attributes, thread->stack.guard);
  const bool detached = thread->claim == rack::Claim::Detached;
  pthread_attr_setdetachstate(attributes, detached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
  return 0;
}

int pthread_setname_np(pthread_t handle, const char* name) noexcept {
  static Next next(rack::calls::pthread_setname_np);
  rack::FibreThread* const thread = rack::FindFibre(handle);
  if (thread == nullptr) return next(handle, name);
  const std::size_t length = strnlen(name, sizeof thread->name);
  if (length == sizeof thread->name) return ERANGE;
  std::memcpy(thread->name, name, length + 1);
  return 0;
}

int pthread_getname_np(pthread_t handle, char* name, size_t size) noexcept {
  static Next next(rack::calls::pthread_getname_np);
  const rack::FibreThread* const thread = rack::FindFibre(handle);
  if (thread == nullptr) return next(handle, name, size);
  if (size < sizeof thread->name) return ERANGE;
  std::memcpy(name, thread->name, sizeof thread->name);
  return 0;
}

int pthread_setaffinity_np(pthread_t handle, size_t size, const cpu_set_t* processors) noexcept {
  static Next next(rack::calls::pthread_setaffinity_np);
  return rack::FindFibre(handle) == nullptr ? next(handle, size, processors) : 0;
}

int pthread_getaffinity_np(pthread_t handle, size_t size, cpu_set_t* processors) noexcept {
  static Next next(rack::calls::pthread_getaffinity_np);
  static Next self(rack::calls::pthread_self);
  return next(rack::FindFibre(handle) == nullptr ? handle : self(), size, processors);
}

int pthread_setschedparam(pthread_t handle, int policy, const sched_param* priority) noexcept {
  static Next next(rack::calls::pthread_setschedparam);
  rack::FibreThread* const thread = rack::FindFibre(handle);
  if (thread == nullptr) return next(handle, policy, priority);
  thread->policy = policy;
  thread->priority = *priority;
  return 0;
}

int pthread_getschedparam(pthread_t handle, int* policy, sched_param* priority) noexcept {
  static Next next(rack::calls::pthread_getschedparam);
  const rack::FibreThread* const thread = rack::FindFibre(handle);
  if (thread == nullptr) return next(handle, policy, priority);
  *policy = thread->policy;
  *priority = thread->priority;
  return 0;
}

int pthread_setschedprio(pthread_t handle, int priority) noexcept {
  static Next next(rack::calls::pthread_setschedprio);
  rack::FibreThread* const thread = rack::FindFibre(handle);
  if (thread == nullptr) return next(handle, priority);
  thread->priority.sched_priority = priority;
  return 0;
}

}  // extern "C"

RACK_ARE_DEFINED(RACK_FIBRE_CALLS)

#endif
