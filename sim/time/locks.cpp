#include "time/locks.h"

#include <cerrno>

#include "preload/next.h"
#include "time/scheduler.h"

namespace rack {
namespace {

const pthread_mutex_t* Ignored = nullptr;

// Waits for a lock that another thread holds, until the given time.
template <class Try>
int Acquire(const void* lock, Nanos until, Try attempt) {
  SpendCall();
  for (;;) {
    const int result = attempt();
    if (result != EBUSY) {
      TakeKept();
      return result;
    }
    if (WaitFor(lock, until) == WakeReason::TimeOver) return ETIMEDOUT;
  }
}

int TakeMutex(pthread_mutex_t* mutex) {
  static auto* const attempt = Next(calls::pthread_mutex_trylock);
  return KeptForOther(mutex) ? EBUSY : attempt(mutex);
}

}  // namespace

void IgnoreMutex(const pthread_mutex_t* mutex) {
  Ignored = mutex;
}

int LockMutex(pthread_mutex_t* mutex, Nanos until) {
  if (mutex == Ignored) return 0;
  const int result = Acquire(mutex, until, [&] { return TakeMutex(mutex); });
  if (result == 0) Spend(Stretch());
  return result;
}

int TryLockMutex(pthread_mutex_t* mutex) {
  if (mutex == Ignored) return 0;
  SpendCall();
  return TakeMutex(mutex);
}

int UnlockMutex(pthread_mutex_t* mutex) {
  static auto* const unlock = Next(calls::pthread_mutex_unlock);
  if (mutex == Ignored) return 0;
  const int result = unlock(mutex);
  if (result == 0) WakeFirst(mutex, true);
  return result;
}

int WaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, Nanos until) {
  const int unlocked = UnlockMutex(mutex);
  if (unlocked != 0) return unlocked;
  const WakeReason reason = WaitFor(condition, until);
  const int locked = LockMutex(mutex, kForEver);
  if (locked != 0) return locked;
  return reason == WakeReason::TimeOver ? ETIMEDOUT : 0;
}

// The try calls of rwlocks and semaphores are not answered: these are the C library's own.
int LockShared(pthread_rwlock_t* lock, Nanos until) {
  return Acquire(lock, until, [&] { return pthread_rwlock_tryrdlock(lock); });
}

int LockAlone(pthread_rwlock_t* lock, Nanos until) {
  return Acquire(lock, until, [&] { return pthread_rwlock_trywrlock(lock); });
}

int UnlockShared(pthread_rwlock_t* lock) {
  static auto* const unlock = Next(calls::pthread_rwlock_unlock);
  const int result = unlock(lock);
  WakeAll(lock);
  return result;
}

int WaitSemaphore(sem_t* semaphore, Nanos until) {
  const int result = Acquire(semaphore, until, [&] {
    if (sem_trywait(semaphore) == 0) return 0;
    return errno == EAGAIN ? EBUSY : errno;
  });
  if (result == 0) return 0;
  errno = result;
  return -1;
}

int PostSemaphore(sem_t* semaphore) {
  static auto* const post = Next(calls::sem_post);
  const int result = post(semaphore);
  WakeFirst(semaphore, false);
  return result;
}

}  // namespace rack
