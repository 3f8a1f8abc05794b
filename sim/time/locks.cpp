#include "time/locks.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "preload/next.h"
#include "time/owners.h"
#include "time/scheduler.h"

namespace rack {
namespace {

constexpr int kMaxOnceStarts = 64;

const pthread_mutex_t* Ignored = nullptr;

// A lock whose owner has ended is taken all the same.
bool IsTaken(int result) {
  return result == 0 || result == EOWNERDEAD;
}

// Waits for a lock that another thread holds, until the given time.
template <class Try>
int Acquire(const void* lock, Awaited kind, Nanos until, Try attempt) {
  SpendCall();
  for (;;) {
    const int result = attempt();
    if (result != EBUSY) {
      TakeKept();
      return result;
    }
    if (WaitFor(lock, kind, until) == WakeReason::TimeOver) return ETIMEDOUT;
  }
}

template <class Try>
int AcquireLock(const void* lock, Hold hold, Nanos until, Try attempt) {
  const int result = Acquire(lock, Awaited::Lock, until, attempt);
  if (IsTaken(result)) NoteTaken(lock, hold);
  return result;
}

template <class Try>
int TryLock(const void* lock, Hold hold, Try attempt) {
  SpendCall();
  const int result = attempt();
  if (IsTaken(result)) NoteTaken(lock, hold);
  return result;
}

int KindOf(const pthread_mutex_t* mutex) {
  constexpr int kKinds = 3;
  return mutex->__data.__kind & kKinds;
}

bool ChecksErrors(const pthread_mutex_t* mutex) {
  return KindOf(mutex) == PTHREAD_MUTEX_ERRORCHECK;
}

// To the C library a fibre is no thread that could own a mutex: its words are written here, so that whatever else looks
// at the mutex finds them as it would have written them.
int TakeMutexByFibre(pthread_mutex_t* mutex) {
  constexpr int kRobust = 16;
  auto& words = mutex->__data;
  const int own = static_cast<int>(ThreadNumber()) + 1;
  if ((words.__kind & kRobust) != 0) Refuse("pthread_mutex_lock of a robust mutex as a fibre");
  const bool again = words.__lock != 0 && words.__owner == own && KindOf(mutex) == PTHREAD_MUTEX_RECURSIVE;
  if (words.__lock != 0 && !again) return EBUSY;
  if (again && words.__count == UINT_MAX) return EAGAIN;
  words.__lock = 1;
  words.__owner = own;
  words.__nusers = 1;
  ++words.__count;
  return 0;
}

int FreeMutexByFibre(pthread_mutex_t* mutex) {
  auto& words = mutex->__data;
  const bool owns = words.__lock != 0 && words.__owner == static_cast<int>(ThreadNumber()) + 1;
  if (KindOf(mutex) != PTHREAD_MUTEX_NORMAL && KindOf(mutex) != PTHREAD_MUTEX_ADAPTIVE_NP && !owns)
    return EPERM;
  if (KindOf(mutex) == PTHREAD_MUTEX_RECURSIVE && --words.__count != 0) return 0;
  words.__count = words.__nusers = 0;
  words.__lock = words.__owner = 0;
  return 0;
}

int TakeMutex(pthread_mutex_t* mutex) {
  static Next attempt(calls::pthread_mutex_trylock);
  if (KeptForOther(mutex)) return EBUSY;
  return AsFibres() ? TakeMutexByFibre(mutex) : attempt(mutex);
}

int TakeSpin(pthread_spinlock_t* lock) {
  static Next attempt(calls::pthread_spin_trylock);
  return KeptForOther(const_cast<const int*>(lock)) ? EBUSY : attempt(lock);
}

int TakeShared(pthread_rwlock_t* lock) {
  static Next attempt(calls::pthread_rwlock_tryrdlock);
  return attempt(lock);
}

int TakeAlone(pthread_rwlock_t* lock) {
  static Next attempt(calls::pthread_rwlock_trywrlock);
  return attempt(lock);
}

int TakeSemaphore(sem_t* semaphore) {
  static Next attempt(calls::sem_trywait);
  if (attempt(semaphore) == 0) return 0;
  return errno == EAGAIN ? EBUSY : errno;
}

// Starts that are being made. Touched in turn only.
const pthread_once_t* OnceStarts[kMaxOnceStarts];

// Ends with the start, also with one that throws.
class OnceStart {
 public:
  explicit OnceStart(const pthread_once_t* control) : control_(control) {
    *std::find(OnceStarts, OnceStarts + kMaxOnceStarts, nullptr) = control;
    NoteTaken(control, Hold::Alone);
  }
  ~OnceStart() {
    std::replace(OnceStarts, OnceStarts + kMaxOnceStarts, control_,
                 static_cast<const pthread_once_t*>(nullptr));
    NoteFreed(control_);
    WakeAll(control_);
  }
  OnceStart(const OnceStart&) = delete;
  OnceStart& operator=(const OnceStart&) = delete;

  static bool IsMade(const pthread_once_t* control) {
    return std::find(OnceStarts, OnceStarts + kMaxOnceStarts, control) != OnceStarts + kMaxOnceStarts;
  }

 private:
  const pthread_once_t* control_;
};

}  // namespace

void IgnoreMutex(const pthread_mutex_t* mutex) {
  Ignored = mutex;
}

int LockMutex(pthread_mutex_t* mutex, Nanos until) {
  if (mutex == Ignored) return 0;
  if (ChecksErrors(mutex) && IsHolder(mutex)) return EDEADLK;
  const int result = AcquireLock(mutex, Hold::Alone, until, [&] { return TakeMutex(mutex); });
  if (result == 0) Spend(Stretch());
  return result;
}

int TryLockMutex(pthread_mutex_t* mutex) {
  if (mutex == Ignored) return 0;
  return TryLock(mutex, Hold::Alone, [&] { return TakeMutex(mutex); });
}

int UnlockMutex(pthread_mutex_t* mutex) {
  static Next unlock(calls::pthread_mutex_unlock);
  if (mutex == Ignored) return 0;
  const int result = AsFibres() ? FreeMutexByFibre(mutex) : unlock(mutex);
  if (result == 0 && NoteFreed(mutex)) WakeFirst(mutex, true);
  return result;
}

int LockSpin(pthread_spinlock_t* lock) {
  return AcquireLock(const_cast<const int*>(lock), Hold::Alone, kForEver, [&] { return TakeSpin(lock); });
}

int TryLockSpin(pthread_spinlock_t* lock) {
  return TryLock(const_cast<const int*>(lock), Hold::Alone, [&] { return TakeSpin(lock); });
}

int UnlockSpin(pthread_spinlock_t* lock) {
  static Next unlock(calls::pthread_spin_unlock);
  const int result = unlock(lock);
  if (NoteFreed(const_cast<const int*>(lock))) WakeFirst(const_cast<const int*>(lock), true);
  return result;
}

// The C library would wait in the kernel for a start that another thread is making.
int Once(pthread_once_t* control, void (*start)()) {
  static Next once(calls::pthread_once);
  while (OnceStart::IsMade(control)) WaitFor(control, Awaited::OnceStart, kForEver);
  if (OnceStart::IsMade(nullptr)) {
    const OnceStart made(control);
    return once(control, start);
  }
  EndRun(kRefusedStatus, "more than 64 starts are made once at the same time");
}

int WaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, Nanos until) {
  const int unlocked = UnlockMutex(mutex);
  if (unlocked != 0) return unlocked;
  const WakeReason reason = WaitFor(condition, Awaited::Condition, until);
  const int locked = LockMutex(mutex, kForEver);
  if (locked != 0) return locked;
  return reason == WakeReason::TimeOver ? ETIMEDOUT : 0;
}

int LockShared(pthread_rwlock_t* lock, Nanos until) {
  if (IsHolder(lock, Hold::Alone)) return EDEADLK;
  return AcquireLock(lock, Hold::Shared, until, [&] { return TakeShared(lock); });
}

int LockAlone(pthread_rwlock_t* lock, Nanos until) {
  if (IsHolder(lock, Hold::Alone)) return EDEADLK;
  return AcquireLock(lock, Hold::Alone, until, [&] { return TakeAlone(lock); });
}

int TryLockShared(pthread_rwlock_t* lock) {
  return TryLock(lock, Hold::Shared, [&] { return TakeShared(lock); });
}

int TryLockAlone(pthread_rwlock_t* lock) {
  return TryLock(lock, Hold::Alone, [&] { return TakeAlone(lock); });
}

int UnlockShared(pthread_rwlock_t* lock) {
  static Next unlock(calls::pthread_rwlock_unlock);
  const int result = unlock(lock);
  NoteFreed(lock);
  WakeAll(lock);
  return result;
}

int WaitSemaphore(sem_t* semaphore, Nanos until) {
  const int result = Acquire(semaphore, Awaited::Semaphore, until, [&] { return TakeSemaphore(semaphore); });
  if (result == 0) return 0;
  errno = result;
  return -1;
}

int TrySemaphore(sem_t* semaphore) {
  static Next attempt(calls::sem_trywait);
  SpendCall();
  return attempt(semaphore);
}

int PostSemaphore(sem_t* semaphore) {
  static Next post(calls::sem_post);
  const int result = post(semaphore);
  WakeFirst(semaphore, false);
  return result;
}

long WaitFutex(const std::uint32_t* word, std::uint32_t expected, Nanos until) {
  SpendCall();
  if (__atomic_load_n(word, __ATOMIC_SEQ_CST) != expected) {
    errno = EAGAIN;
    return -1;
  }
  if (WaitFor(word, Awaited::Futex, until) == WakeReason::Called) return 0;
  errno = ETIMEDOUT;
  return -1;
}

long WakeFutex(const std::uint32_t* word, int count) {
  SpendCall();
  long woken = 0;
  while (woken < count && WakeFirst(word, false)) ++woken;
  return woken;
}

}  // namespace rack
