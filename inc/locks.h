// Locks, the scope object that takes them, and what Clang proves with it: that nothing guarded is touched without its lock.
#pragma once

#include <pthread.h>

// Clang's thread safety analysis. Other compilers have none.
#ifdef __clang__
#define THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define THREAD_ANNOTATION(attribute)
#endif
#define CAPABILITY(kind) THREAD_ANNOTATION(capability(kind))
#define SCOPED_CAPABILITY THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(lock) THREAD_ANNOTATION(guarded_by(lock))
#define REQUIRES(lock) THREAD_ANNOTATION(requires_capability(lock))
#define ACQUIRE(lock) THREAD_ANNOTATION(acquire_capability(lock))
#define RELEASE() THREAD_ANNOTATION(release_capability())
#define ASSERT_CAPABILITY(lock) THREAD_ANNOTATION(assert_capability(lock))
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANNOTATION(no_thread_safety_analysis)

// What holding a plain mutex stands for: the analysis knows no pthread_mutex_t. Stands beside its lock.
class CAPABILITY("role") LockRole {};

// A mutex that is made where it is declared.
class CAPABILITY("mutex") OwnLock {
 public:
  // In a function of its own, a lambda, that is called under the lock.
  void AssertHeld() const ASSERT_CAPABILITY(this) {}

  pthread_mutex_t Mutex = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a lock from its construction to the end of its scope.
class SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(OwnLock& lock) ACQUIRE(lock) : Mutex(lock.Mutex) { pthread_mutex_lock(&Mutex); }
  ScopedLock(pthread_mutex_t& mutex, [[maybe_unused]] const LockRole& role) ACQUIRE(role) : Mutex(mutex) {
    pthread_mutex_lock(&Mutex);
  }
  ~ScopedLock() RELEASE() { pthread_mutex_unlock(&Mutex); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  pthread_mutex_t& Mutex;
};
