// The functions that this library stands in front of.
#pragma once

#include <dlfcn.h>
#include <pthread.h>

namespace rack {

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The library's own mutex: not one of the controller's, so its lock costs no time and passes no turn.
class OwnMutex {
 public:
  void lock() {
    static auto* const next = Next<int(pthread_mutex_t*)>("pthread_mutex_lock");
    next(&mutex_);
  }
  void unlock() {
    static auto* const next = Next<int(pthread_mutex_t*)>("pthread_mutex_unlock");
    next(&mutex_);
  }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace rack
