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
int WaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, Nanos until);
int LockShared(pthread_rwlock_t* lock, Nanos until);
int LockAlone(pthread_rwlock_t* lock, Nanos until);
int UnlockShared(pthread_rwlock_t* lock);
int WaitSemaphore(sem_t* semaphore, Nanos until);  // -1 and errno as sem_wait
int PostSemaphore(sem_t* semaphore);

// For tests: this mutex is never locked, as if its lock calls were missing. Null: none.
void IgnoreMutex(const pthread_mutex_t* mutex);

}  // namespace rack
