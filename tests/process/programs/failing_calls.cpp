// Linked into a controller: lets one of its calls fail, as VELMO_FAILING_CALL says ("pthread_create 3": the third one).
#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// Counts the calls of that name, from the main thread alone.
bool IsToFail(const char* call) {
  static int made = 0;
  const char* const wanted = std::getenv("VELMO_FAILING_CALL");
  const std::size_t length = std::strlen(call);
  if (wanted == nullptr || std::strncmp(wanted, call, length) != 0 || wanted[length] != ' ') return false;
  return ++made == std::atoi(wanted + length);
}

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept {
  if (IsToFail("pthread_mutex_init")) return ENOMEM;
  return Next<int(pthread_mutex_t*, const pthread_mutexattr_t*)>("pthread_mutex_init")(mutex, attributes);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept {
  if (IsToFail("pthread_create")) return EAGAIN;
  using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  return Next<Create>("pthread_create")(thread, attributes, entry, argument);
}
}
