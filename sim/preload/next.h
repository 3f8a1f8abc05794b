// The functions that this library stands in front of.
#pragma once

#include <dlfcn.h>
#include <pthread.h>

#include "preload/answered_calls.h"

namespace rack {

template <class Function>
Function* Next(Call<Function> call) {
  void* next = call.version != nullptr ? dlvsym(RTLD_NEXT, call.name, call.version) : nullptr;
  if (next == nullptr) next = dlsym(RTLD_NEXT, call.name);
  return reinterpret_cast<Function*>(next);
}

// The library's own mutex: not one of the controller's, so its lock costs no time and passes no turn.
class OwnMutex {
 public:
  void lock() {
    static auto* const next = Next(calls::pthread_mutex_lock);
    next(&mutex_);
  }
  void unlock() {
    static auto* const next = Next(calls::pthread_mutex_unlock);
    next(&mutex_);
  }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace rack
