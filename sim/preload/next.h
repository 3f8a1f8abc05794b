// The functions that this library stands in front of.
#pragma once

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>

#include "preload/answered_calls.h"

namespace rack {

// One of them, looked up at its first call. A local static of a plain pointer would be made under the guard of the C++
// library, which waits by a call that virtual time answers: a thread with the turn and one without would not wake each
// other.
template <class Function>
class Next {
 public:
  constexpr explicit Next(Call<Function> call) : call_(call) {}

  operator Function*() {
    Function* next = known_.load(std::memory_order_relaxed);
    if (next != nullptr) return next;
    void* found = call_.version != nullptr ? dlvsym(RTLD_NEXT, call_.name, call_.version) : nullptr;
    if (found == nullptr) found = dlsym(RTLD_NEXT, call_.name);
    next = reinterpret_cast<Function*>(found);
    known_.store(next, std::memory_order_relaxed);
    return next;
  }

 private:
  Call<Function> call_;
  std::atomic<Function*> known_{nullptr};
};

// The library's own mutex: not one of the controller's, so its lock costs no time and passes no turn.
class OwnMutex {
 public:
  void lock() {
    static Next next(calls::pthread_mutex_lock);
    next(&mutex_);
  }
  void unlock() {
    static Next next(calls::pthread_mutex_unlock);
    next(&mutex_);
  }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace rack
