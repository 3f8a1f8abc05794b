// The controller's locks in virtual time. The real lock is taken too, when it is free: what it says to a
// sanitizer stays true.
#pragma once

#include <pthread.h>
#include <semaphore.h>

#include "cards/card.h"

namespace rack {

// All of them: REQUIRES InTurn. Results as of the calls of the same name; times since power-on, kForEver for
// none.
int LockMutex(pthread_mutex_t* mutex, Nanos until);
int TryLockMutex(pthread_mutex_t* mutex);
int UnlockMutex(pthread_mutex_t* mutex);
int LockSpin(pthread_spinlock_t* lock);
int TryLockSpin(pthread_spinlock_t* lock);
int UnlockSpin(pthread_spinlock_t* lock);
int Once(pthread_once_t* control, void (*start)());
int WaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, Nanos until);
int LockShared(pthread_rwlock_t* lock, Nanos until);
int LockAlone(pthread_rwlock_t* lock, Nanos until);
int TryLockShared(pthread_rwlock_t* lock);
int TryLockAlone(pthread_rwlock_t* lock);
int UnlockShared(pthread_rwlock_t* lock);
int WaitSemaphore(sem_t* semaphore, Nanos until);  // -1 and errno as sem_wait
int TrySemaphore(sem_t* semaphore);
int PostSemaphore(sem_t* semaphore);

// The kernel's wait and wake, as C++ libraries call them: 0 or the number woken, -1 and errno.
long WaitFutex(const std::uint32_t* word, std::uint32_t expected, Nanos until);
long WakeFutex(const std::uint32_t* word, int count);

// For tests: this mutex is never locked, as if its lock calls were missing. Null: none.
void IgnoreMutex(const pthread_mutex_t* mutex);

}  // namespace rack
