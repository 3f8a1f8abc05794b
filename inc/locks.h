// Scope object for the plain mutexes of the controller.
#pragma once

#include <pthread.h>

// Holds a mutex from its construction to the end of its scope.
class ScopedLock {
 public:
  explicit ScopedLock(pthread_mutex_t& mutex) : Mutex(mutex) { pthread_mutex_lock(&Mutex); }
  ~ScopedLock() { pthread_mutex_unlock(&Mutex); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  pthread_mutex_t& Mutex;
};
