// In the controller's place: waits in the way that the argument names, and prints what came of it. It prints the same
// without the simulated rack. Every wait for another thread is a real one: that thread is late by a pause.
#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <future>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr auto kPause = 20ms;

void Say(const std::string& text) {
  static std::mutex mutex;
  const std::lock_guard hold(mutex);
  const std::string line = text + "\n";
  if (write(STDOUT_FILENO, line.data(), line.size()) < 0) std::abort();
}

std::string Met(bool met) {
  return met ? "met" : "over";
}

// Whether an attempt that is to fail has taken its time.
template <class Attempt>
std::string Lasts(Attempt attempt) {
  const auto start = std::chrono::steady_clock::now();
  const bool met = attempt();
  return Met(met) + (std::chrono::steady_clock::now() - start >= kPause ? ", late" : ", at once");
}

void TimedMutexes() {
  std::timed_mutex plain;
  std::recursive_timed_mutex nested;
  plain.lock();
  nested.lock();
  std::thread([&] {
    Say("plain " + Lasts([&] { return plain.try_lock_for(kPause); }));
    Say("plain " + Lasts([&] { return plain.try_lock_until(std::chrono::system_clock::now() + kPause); }));
    Say("nested " + Lasts([&] { return nested.try_lock_for(kPause); }));
  }).join();
  std::thread waits([&] { Say("plain " + Met(plain.try_lock_for(60s))); });
  std::this_thread::sleep_for(kPause);
  plain.unlock();
  waits.join();
}

void SharedMutexes() {
  std::shared_timed_mutex shared;
  shared.lock_shared();
  std::thread([&] {
    Say("alone " + Lasts([&] { return shared.try_lock_for(kPause); }));
    Say("shared " + Met(shared.try_lock_shared_for(kPause)));
    Say("alone " + Lasts([&] { return shared.try_lock_until(std::chrono::system_clock::now() + kPause); }));
    Say("alone " + Met(shared.try_lock()));
    shared.unlock_shared();
  }).join();
  std::thread waits([&] { Say("alone " + Met(shared.try_lock_for(60s))); });
  std::this_thread::sleep_for(kPause);
  shared.unlock_shared();
  waits.join();
  std::thread([&] { Say("shared " + Lasts([&] { return shared.try_lock_shared_for(kPause); })); }).join();
  pthread_rwlock_t plain = PTHREAD_RWLOCK_INITIALIZER;
  pthread_rwlock_wrlock(&plain);
  Say(std::string("again: ") + std::strerror(pthread_rwlock_wrlock(&plain)));
}

void NestedMutexes() {
  std::recursive_mutex nested;
  nested.lock();
  std::thread waits([&] {
    const std::lock_guard hold(nested);
    Say("other");
  });
  std::this_thread::sleep_for(kPause);
  for (int i = 0; i < 3; ++i) {
    nested.lock();
    nested.unlock();
  }
  Say("inner");
  nested.unlock();
  waits.join();
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_t checked;
  pthread_mutex_init(&checked, &attributes);
  pthread_mutex_lock(&checked);
  Say(std::string("again: ") + std::strerror(pthread_mutex_lock(&checked)));
}

void Semaphores() {
  sem_t semaphore;
  sem_init(&semaphore, 0, 0);
  timespec limit{};
  clock_gettime(CLOCK_MONOTONIC, &limit);
  limit.tv_sec += 1;
  Say("semaphore " + Lasts([&] { return sem_clockwait(&semaphore, CLOCK_MONOTONIC, &limit) == 0; }));
  Say("semaphore " + Met(sem_trywait(&semaphore) == 0));
  std::thread posts([&] {
    std::this_thread::sleep_for(kPause);
    sem_post(&semaphore);
  });
  limit.tv_sec += 60;
  Say("semaphore " + Met(sem_clockwait(&semaphore, CLOCK_MONOTONIC, &limit) == 0));
  posts.join();
}

struct Slow {
  Slow() {
    std::this_thread::sleep_for(kPause);
    Say("made");
  }
};

void MadeOnce() {
  std::once_flag flag;
  const auto come = [&] {
    std::call_once(flag, [] { const Slow once; });
    static const Slow local;
    (void)local;
  };
  std::thread one(come);
  std::thread two(come);
  one.join();
  two.join();
  std::promise<int> promise;
  std::promise<void> given_up;
  std::thread gives([&] {
    given_up.get_future().wait();
    std::this_thread::sleep_for(kPause);
    promise.set_value(7);
  });
  std::future<int> number = promise.get_future();
  Say("future " + Met(number.wait_for(kPause) == std::future_status::ready));
  given_up.set_value();
  Say("future " + std::to_string(number.get()));
  gives.join();
}

constexpr int kWait = 0;
constexpr int kWake = 1;
constexpr int kWaitBitset = 9;
constexpr int kPrivate = 128;

// What the C++ library's latch and atomics do, with libraries of any standard.
void Futexes() {
  int word = 0;
  const timespec limit = {1, 0};
  Say("other value " + std::to_string(syscall(SYS_futex, &word, kWait | kPrivate, 1, nullptr)) + " " +
      std::strerror(errno));
  Say("limit " + std::to_string(syscall(SYS_futex, &word, kWait | kPrivate, 0, &limit)) + " " +
      std::strerror(errno));
  std::thread wakes([&] {
    std::this_thread::sleep_for(kPause);
    __atomic_store_n(&word, 1, __ATOMIC_SEQ_CST);
    Say("woken " + std::to_string(syscall(SYS_futex, &word, kWake | kPrivate, 9)));
  });
  while (__atomic_load_n(&word, __ATOMIC_SEQ_CST) == 0) {
    syscall(SYS_futex, &word, kWaitBitset | kPrivate, 0, nullptr, nullptr, -1);
  }
  wakes.join();
  const timespec pause = {0, 20'000'000};
  Say("pause " + Lasts([&] { return syscall(SYS_nanosleep, &pause, nullptr) == 0; }));
  Say("main " + Met(syscall(SYS_gettid) == syscall(SYS_getpid) && gettid() == syscall(SYS_gettid)));
}

// Limits of 20 s by the controller's clock: without its factor they would be much longer or shorter by it.
void FutexLimits() {
  std::uint32_t word = 0;
  const auto seconds = [] {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
  };
  const auto start = seconds();
  const timespec length = {20, 0};
  syscall(SYS_futex, &word, kWait | kPrivate, 0, &length);
  const auto middle = seconds();
  const timespec point = {middle + 20, 0};
  syscall(SYS_futex, &word, kWaitBitset | kPrivate, 0, &point, nullptr, -1);
  for (const auto passed : {middle - start, seconds() - middle})
    Say(passed < 20 ? "early" : passed > 1000 ? "late" : "in time");
}

void Spins() {
  pthread_spinlock_t spin;
  pthread_spin_init(&spin, 0);
  pthread_spin_lock(&spin);
  std::thread waits([&] {
    Say("spin " + Met(pthread_spin_trylock(&spin) == 0));
    pthread_spin_lock(&spin);
    Say("spin " + Met(true));
    pthread_spin_unlock(&spin);
  });
  std::this_thread::sleep_for(kPause);
  pthread_spin_unlock(&spin);
  waits.join();
}

std::atomic<bool> Done{false};

void AwaitDone() {
  while (!Done.exchange(false)) std::this_thread::sleep_for(1ms);
}

// Each thread is in its own catch block, with its own errno, while the others throw and fail.
void Exceptions() {
  std::string told[3];
  std::thread threads[3];
  for (int number = 0; number < 3; ++number) {
    threads[number] = std::thread([&, number] {
      try {
        throw number;
      } catch (int) {
        errno = 100 + number;
        std::this_thread::sleep_for(kPause);
        told[number] = std::to_string(errno) + " " + std::to_string(std::uncaught_exceptions());
        try {
          throw;
        } catch (int again) {
          told[number] += " caught " + std::to_string(again);
        }
      }
    });
  }
  for (int number = 0; number < 3; ++number) {
    threads[number].join();
    Say(told[number]);
  }
}

// The second thread comes to the start while the first one is at it, and makes it when that has failed.
void MadeAgain() {
  std::once_flag flag;
  const auto come = [&](int number, bool fails) {
    try {
      std::call_once(flag, [&] {
        Done = fails;
        std::this_thread::sleep_for(kPause);
        if (fails) throw number;
        Say("made by " + std::to_string(number));
      });
    } catch (int thrower) {
      Say("not made by " + std::to_string(thrower));
    }
  };
  std::thread one(come, 1, true);
  AwaitDone();
  std::thread two(come, 2, false);
  one.join();
  two.join();
}

pthread_key_t Key;

void Keys() {
  pthread_key_create(&Key, [](void* value) { Say(std::string("destroyed ") + static_cast<char*>(value)); });
  static char names[3][4] = {"the", "one", "two"};
  const auto use = [](int number) {
    const bool empty = pthread_getspecific(Key) == nullptr;
    pthread_setspecific(Key, names[number]);
    if (number == 2) AwaitDone();
    return std::string(empty ? "empty, then " : "set, then ") + static_cast<char*>(pthread_getspecific(Key));
  };
  Say(use(0));
  std::thread one([&] { Say(use(1)); });
  std::thread two([&] { Say(use(2)); });
  one.join();
  Done = true;
  two.join();
  Say(use(0));
  pthread_key_delete(Key);
  Say(std::strerror(pthread_setspecific(Key, names[0])));
}

struct Tidy {
  ~Tidy() {
    Say("tidied up");
    Done = true;
  }
};

void* Leaves(void* place) {
  const Tidy tidy;
  pthread_exit(place);
}

void* LooksAtItself(void* creator) {
  pthread_attr_t own;
  void* bottom = nullptr;
  std::size_t size = 0;
  pthread_getattr_np(pthread_self(), &own);
  pthread_attr_getstack(&own, &bottom, &size);
  const auto offset = static_cast<std::size_t>(reinterpret_cast<char*>(&own) - static_cast<char*>(bottom));
  Say(std::string(size >= 200 * 1024 && size <= 300 * 1024 ? "its size" : "another size") +
      (offset < size ? ", inside" : ", outside"));
  int state = -1;
  pthread_attr_getdetachstate(&own, &state);
  Say(state == PTHREAD_CREATE_DETACHED ? "detached" : "joinable");
  Say(pthread_equal(pthread_self(), *static_cast<pthread_t*>(creator)) != 0 ? "the creator" : "another one");
  char name[16];
  pthread_setname_np(pthread_self(), "looks");
  pthread_getname_np(pthread_self(), name, sizeof name);
  Say(name + std::string(", ") + std::strerror(pthread_setname_np(pthread_self(), "much too long a name")));
  pthread_attr_destroy(&own);
  Done = true;
  return nullptr;
}

void Threads() {
  pthread_t thread;
  pthread_attr_t attributes;
  void* result = nullptr;
  pthread_create(&thread, nullptr, &Leaves, &attributes);
  Say(std::string("joined: ") + std::strerror(pthread_join(thread, &result)));
  Say(result == &attributes ? "its result" : "another result");
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t self = pthread_self();
  pthread_create(&thread, &attributes, &LooksAtItself, &self);
  pthread_join(thread, nullptr);
  Done = false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_create(&thread, &attributes, &LooksAtItself, &self);
  AwaitDone();
  pthread_attr_destroy(&attributes);
  pthread_create(&thread, nullptr, &Leaves, nullptr);
  const int detached = pthread_detach(thread);
  AwaitDone();
  Say(std::string("detached: ") + std::strerror(detached));
  // More one behind the other than there is room for at once.
  int sum = 0;
  for (int i = 0; i < 200; ++i) std::thread([&] { sum += i; }).join();
  Say(std::to_string(sum));
}

struct Way {
  const char* name;
  void (*run)();
};
constexpr Way kWays[] = {{"timed", TimedMutexes},
                         {"shared", SharedMutexes},
                         {"nested", NestedMutexes},
                         {"semaphores", Semaphores},
                         {"once", MadeOnce},
                         {"futexes", Futexes},
                         {"spins", Spins},
                         {"limits", FutexLimits},
                         {"exceptions", Exceptions},
                         {"again", MadeAgain},
                         {"keys", Keys},
                         {"threads", Threads}};

}  // namespace

int main(int count, char** words) {
  for (const Way& way : kWays) {
    if (count > 1 && std::strcmp(words[1], way.name) == 0) way.run();
  }
}
