// The C library gives out the keys, and keeps the values of real threads, the first one among them.
#include "time/keys.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <new>

#include "preload/next.h"
#include "time/fibre_switch.h"
#include "time/scheduler.h"
#include "time/threads.h"

#if RACK_HAS_FIBRES

namespace rack {
namespace {

using Destructor = void(void*);

struct Key {
  std::atomic<unsigned> use{0};  // odd: in use
  std::atomic<Destructor*> destructor{nullptr};
};
Key Keys[PTHREAD_KEYS_MAX];

bool IsUsed(unsigned key) {
  return key < PTHREAD_KEYS_MAX && Keys[key].use.load(std::memory_order_relaxed) % 2 == 1;
}

// Gives each value that is set to its destructor. False: there was none.
bool DestroyOnce(KeyValue* values) {
  bool any = false;
  for (unsigned key = 0; key < PTHREAD_KEYS_MAX; ++key) {
    void* const value = values[key].value;
    values[key].value = nullptr;
    if (value == nullptr || Keys[key].use.load(std::memory_order_relaxed) != values[key].use) continue;
    Destructor* const destructor = Keys[key].destructor.load(std::memory_order_relaxed);
    if (destructor == nullptr) continue;
    destructor(value);
    any = true;
  }
  return any;
}

}  // namespace

void* KeyValues::Get(unsigned key) const {
  if (values_ == nullptr || !IsUsed(key)) return nullptr;
  const KeyValue& known = values_[key];
  return known.use == Keys[key].use.load(std::memory_order_relaxed) ? known.value : nullptr;
}

bool KeyValues::Set(unsigned key, void* value) {
  if (values_ == nullptr) values_.reset(new (std::nothrow) KeyValue[PTHREAD_KEYS_MAX]());
  if (values_ == nullptr) return false;
  values_[key] = {Keys[key].use.load(std::memory_order_relaxed), value};
  return true;
}

void KeyValues::Destroy() {
  for (int round = 0; values_ != nullptr && round < PTHREAD_DESTRUCTOR_ITERATIONS; ++round) {
    if (!DestroyOnce(values_.get())) return;
  }
}

}  // namespace rack

extern "C" {

int pthread_key_create(pthread_key_t* place, void (*destructor)(void*)) noexcept {
  static rack::Next next(rack::calls::pthread_key_create);
  const int result = next(place, destructor);
  if (result != 0) return result;
  rack::Key& key = rack::Keys[*place];
  key.destructor.store(destructor, std::memory_order_relaxed);
  key.use.fetch_add(1, std::memory_order_relaxed);
  return 0;
}

int pthread_key_delete(pthread_key_t number) noexcept {
  static rack::Next next(rack::calls::pthread_key_delete);
  const int result = next(number);
  if (result == 0) rack::Keys[number].use.fetch_add(1, std::memory_order_relaxed);
  return result;
}

void* pthread_getspecific(pthread_key_t key) noexcept {
  static rack::Next next(rack::calls::pthread_getspecific);
  const rack::KeyValues* const own = rack::OwnKeyValues();
  return own == nullptr ? next(key) : own->Get(key);
}

int pthread_setspecific(pthread_key_t key, const void* value) noexcept {
  static rack::Next next(rack::calls::pthread_setspecific);
  rack::KeyValues* const own = rack::OwnKeyValues();
  if (own == nullptr) return next(key, value);
  if (!rack::IsUsed(key)) return EINVAL;
  return own->Set(key, const_cast<void*>(value)) ? 0 : ENOMEM;
}

}  // extern "C"

RACK_ARE_DEFINED(RACK_KEY_CALLS)

#else

void rack::KeyValues::Destroy() {}

#endif
