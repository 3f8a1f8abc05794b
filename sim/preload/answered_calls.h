// The C library's calls that are answered in the controller's place: each one's name and signature, said once.
//
// A list for each kind of answer, a row for each call: X(name, result, parameters). The library exports these
// calls and no others. Whatever else the controller calls goes straight to the C library.
#pragma once

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <ctime>

// The device, program files, the console and files of the board outside the machine's directory. Fortified
// builds call the names with underscores.
#define RACK_FILE_CALLS(X)                                       \
  X(open, int, (const char*, int, ...))                          \
  X(open64, int, (const char*, int, ...))                        \
  X(openat, int, (int, const char*, int, ...))                   \
  X(openat64, int, (int, const char*, int, ...))                 \
  X(__open_2, int, (const char*, int))                           \
  X(__open64_2, int, (const char*, int))                         \
  X(__openat_2, int, (int, const char*, int))                    \
  X(__openat64_2, int, (int, const char*, int))                  \
  X(read, ssize_t, (int, void*, std::size_t))                    \
  X(__read_chk, ssize_t, (int, void*, std::size_t, std::size_t)) \
  X(write, ssize_t, (int, const void*, std::size_t))             \
  X(close, int, (int))                                           \
  X(fopen, FILE*, (const char*, const char*))                    \
  X(fopen64, FILE*, (const char*, const char*))                  \
  X(fclose, int, (FILE*))                                        \
  X(rewind, void, (FILE*))                                       \
  X(fgets, char*, (char*, int, FILE*))                           \
  X(__fgets_chk, char*, (char*, std::size_t, int, FILE*))        \
  X(chmod, int, (const char*, mode_t) noexcept)

// Restart and sync: they never reach the system.
#define RACK_RESTART_CALLS(X)    \
  X(reboot, int, (int) noexcept) \
  X(sync, void, () noexcept)     \
  X(syscall, long, (long, ...) noexcept)

// The clocks and sleeps, in scaled and in virtual time.
#define RACK_CLOCK_CALLS(X)                                             \
  X(nanosleep, int, (const timespec*, timespec*))                       \
  X(clock_nanosleep, int, (clockid_t, int, const timespec*, timespec*)) \
  X(usleep, int, (useconds_t))                                          \
  X(sleep, unsigned, (unsigned))                                        \
  X(clock_gettime, int, (clockid_t, timespec*) noexcept)                \
  X(clock, clock_t, () noexcept)                                        \
  X(gettimeofday, int, (timeval*, void*) noexcept)                      \
  X(time, time_t, (time_t*) noexcept)

// Threads and what they wait for, in virtual time; limits of locks also in scaled time.
#define RACK_WAIT_CALLS(X)                                                                        \
  X(pthread_create, int, (pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) noexcept)   \
  X(pthread_join, int, (pthread_t, void**))                                                       \
  X(pthread_mutex_lock, int, (pthread_mutex_t*) noexcept)                                         \
  X(pthread_mutex_trylock, int, (pthread_mutex_t*) noexcept)                                      \
  X(pthread_mutex_unlock, int, (pthread_mutex_t*) noexcept)                                       \
  X(pthread_mutex_timedlock, int, (pthread_mutex_t*, const timespec*) noexcept)                   \
  X(pthread_cond_clockwait, int, (pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)) \
  X(pthread_rwlock_rdlock, int, (pthread_rwlock_t*) noexcept)                                     \
  X(pthread_rwlock_wrlock, int, (pthread_rwlock_t*) noexcept)                                     \
  X(pthread_rwlock_unlock, int, (pthread_rwlock_t*) noexcept)                                     \
  X(sem_wait, int, (sem_t*))                                                                      \
  X(sem_timedwait, int, (sem_t*, const timespec*))                                                \
  X(sem_post, int, (sem_t*) noexcept)                                                             \
  X(sched_yield, int, () noexcept)                                                                \
  X(poll, int, (pollfd*, nfds_t, int))                                                            \
  X(select, int, (int, fd_set*, fd_set*, fd_set*, timeval*))

// Likewise. They have two versions; a plain look-up may find the old one, of another layout.
#define RACK_CONDITION_CALLS(X)                                                        \
  X(pthread_cond_wait, int, (pthread_cond_t*, pthread_mutex_t*))                       \
  X(pthread_cond_timedwait, int, (pthread_cond_t*, pthread_mutex_t*, const timespec*)) \
  X(pthread_cond_signal, int, (pthread_cond_t*) noexcept)                              \
  X(pthread_cond_broadcast, int, (pthread_cond_t*) noexcept)

// The network, and what differs from run to run: in virtual time.
#define RACK_OUTSIDE_CALLS(X)                                                                    \
  X(bind, int, (int, const sockaddr*, socklen_t) noexcept)                                       \
  X(recvfrom, ssize_t, (int, void*, std::size_t, int, sockaddr*, socklen_t*))                    \
  X(__recvfrom_chk, ssize_t, (int, void*, std::size_t, std::size_t, int, sockaddr*, socklen_t*)) \
  X(recv, ssize_t, (int, void*, std::size_t, int))                                               \
  X(sendto, ssize_t, (int, const void*, std::size_t, int, const sockaddr*, socklen_t))           \
  X(getpid, pid_t, () noexcept)                                                                  \
  X(gettid, pid_t, () noexcept)                                                                  \
  X(getcwd, char*, (char*, std::size_t) noexcept)                                                \
  X(__getcwd_chk, char*, (char*, std::size_t, std::size_t) noexcept)

// By the file that defines them: preload/interception.cpp and time/calls.cpp.
#define RACK_MACHINE_CALLS(X) RACK_FILE_CALLS(X) RACK_RESTART_CALLS(X)
#define RACK_TIME_CALLS(X) \
  RACK_CLOCK_CALLS(X) RACK_WAIT_CALLS(X) RACK_CONDITION_CALLS(X) RACK_OUTSIDE_CALLS(X)
#define RACK_CALLS(X) RACK_MACHINE_CALLS(X) RACK_TIME_CALLS(X)

// Another signature than that of the C library's header, or of the definition, does not compile.
#define RACK_DECLARATION(name, result, parameters) result name parameters;
extern "C" {
RACK_CALLS(RACK_DECLARATION)
}
#undef RACK_DECLARATION

// At the end of the file that defines them: a row without a definition there does not compile. An alias need
// not say all that its call says, as that it returns new memory; GCC alone warns of it.
#ifdef __clang__
#define RACK_ALIASES_SAY_LESS
#else
#define RACK_ALIASES_SAY_LESS _Pragma("GCC diagnostic ignored \"-Wmissing-attributes\"")
#endif
#define RACK_ALIAS(name, result, parameters) \
  extern "C" [[gnu::alias(#name), gnu::visibility("hidden")]] result rack_defined_##name parameters;
#define RACK_ARE_DEFINED(calls) RACK_ALIASES_SAY_LESS calls(RACK_ALIAS)

namespace rack {

template <class Function>
struct Call {
  const char* name;
  const char* version = nullptr;  // of the C library, where a call has several
};

#define RACK_CALL(name, result, parameters) inline constexpr Call<result parameters> name{#name};
#define RACK_VERSIONED_CALL(name, result, parameters) \
  inline constexpr Call<result parameters> name{#name, "GLIBC_2.3.2"};
namespace calls {
RACK_MACHINE_CALLS(RACK_CALL)
RACK_CLOCK_CALLS(RACK_CALL)
RACK_WAIT_CALLS(RACK_CALL)
RACK_CONDITION_CALLS(RACK_VERSIONED_CALL)
RACK_OUTSIDE_CALLS(RACK_CALL)
}  // namespace calls
#undef RACK_CALL
#undef RACK_VERSIONED_CALL

}  // namespace rack
