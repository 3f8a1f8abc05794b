// The C library's calls that are answered in the controller's place: each one's name and signature, said once.
//
// A list for each kind of answer, a row for each call: X(name, result, parameters). The library exports these
// calls and no others. Whatever else the controller calls goes straight to the C library. What waits or tells the
// time without being answered is a row of RACK_REFUSED_CALLS: in virtual time it ends the run.
#pragma once

#include <aio.h>
#include <fcntl.h>
#include <locale.h>
#include <mqueue.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/msg.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <sys/times.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <threads.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

// A C library whose time has 32 bits has a second call for each that takes or gives a time; a controller that is built
// for 64 bits (_TIME_BITS) calls those.
#define RACK_HAS_LONG_TIMES (__TIMESIZE == 32)

namespace rack {

struct LongTimespec {
  std::int64_t seconds;
  std::int32_t nanos;
  std::int32_t unused;
};

struct LongTimeval {
  std::int64_t seconds;
  std::int64_t micros;
};

}  // namespace rack

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

// Threads, in virtual time.
#define RACK_THREAD_CALLS(X)                                                                    \
  X(pthread_create, int, (pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) noexcept) \
  X(pthread_join, int, (pthread_t, void**))                                                     \
  X(pthread_exit, void, (void*))

// What is asked about a thread, where threads are fibres: what the C library knows is about the one real thread. A
// sanitizer makes some of these calls before anything is ready to answer them, and there are no fibres then.
#ifdef VELMO_SANITIZED
#define RACK_KEY_CALLS(X)
#define RACK_FIBRE_CALLS(X)
#define RACK_FIBRE_REFUSED_CALLS(X)
#else
#define RACK_KEY_CALLS(X)                                                \
  X(pthread_key_create, int, (pthread_key_t*, void (*)(void*)) noexcept) \
  X(pthread_key_delete, int, (pthread_key_t) noexcept)                   \
  X(pthread_getspecific, void*, (pthread_key_t) noexcept)                \
  X(pthread_setspecific, int, (pthread_key_t, const void*) noexcept)
#define RACK_FIBRE_CALLS(X)                                                           \
  X(pthread_self, pthread_t, () noexcept)                                             \
  X(pthread_detach, int, (pthread_t) noexcept)                                        \
  X(pthread_getattr_np, int, (pthread_t, pthread_attr_t*) noexcept)                   \
  X(pthread_setname_np, int, (pthread_t, const char*) noexcept)                       \
  X(pthread_getname_np, int, (pthread_t, char*, std::size_t) noexcept)                \
  X(pthread_setaffinity_np, int, (pthread_t, std::size_t, const cpu_set_t*) noexcept) \
  X(pthread_getaffinity_np, int, (pthread_t, std::size_t, cpu_set_t*) noexcept)       \
  X(pthread_setschedparam, int, (pthread_t, int, const sched_param*) noexcept)        \
  X(pthread_getschedparam, int, (pthread_t, int*, sched_param*) noexcept)             \
  X(pthread_setschedprio, int, (pthread_t, int) noexcept)
// They end the run as RACK_REFUSED_CALLS do, if threads are fibres.
#define RACK_FIBRE_REFUSED_CALLS(X)                                                  \
  X(pthread_kill, int, (pthread_t a, int b) noexcept, (a, b))                        \
  X(pthread_sigqueue, int, (pthread_t a, int b, const sigval c) noexcept, (a, b, c)) \
  X(pthread_getcpuclockid, int, (pthread_t a, __clockid_t * b) noexcept, (a, b))     \
  X(flockfile, void, (FILE * a) noexcept, (a))                                       \
  X(ftrylockfile, int, (FILE * a) noexcept, (a))                                     \
  X(uselocale, locale_t, (locale_t a) noexcept, (a))
#endif

// What threads wait for, in virtual time; limits of locks also in scaled time.
#define RACK_WAIT_CALLS(X)                                                                        \
  X(pthread_mutex_lock, int, (pthread_mutex_t*) noexcept)                                         \
  X(pthread_mutex_trylock, int, (pthread_mutex_t*) noexcept)                                      \
  X(pthread_mutex_unlock, int, (pthread_mutex_t*) noexcept)                                       \
  X(pthread_mutex_timedlock, int, (pthread_mutex_t*, const timespec*) noexcept)                   \
  X(pthread_mutex_clocklock, int, (pthread_mutex_t*, clockid_t, const timespec*) noexcept)        \
  X(pthread_spin_lock, int, (pthread_spinlock_t*) noexcept)                                       \
  X(pthread_spin_trylock, int, (pthread_spinlock_t*) noexcept)                                    \
  X(pthread_spin_unlock, int, (pthread_spinlock_t*) noexcept)                                     \
  X(pthread_once, int, (pthread_once_t*, void (*)()))                                             \
  X(pthread_cond_clockwait, int, (pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)) \
  X(pthread_rwlock_rdlock, int, (pthread_rwlock_t*) noexcept)                                     \
  X(pthread_rwlock_wrlock, int, (pthread_rwlock_t*) noexcept)                                     \
  X(pthread_rwlock_tryrdlock, int, (pthread_rwlock_t*) noexcept)                                  \
  X(pthread_rwlock_trywrlock, int, (pthread_rwlock_t*) noexcept)                                  \
  X(pthread_rwlock_timedrdlock, int, (pthread_rwlock_t*, const timespec*) noexcept)               \
  X(pthread_rwlock_timedwrlock, int, (pthread_rwlock_t*, const timespec*) noexcept)               \
  X(pthread_rwlock_clockrdlock, int, (pthread_rwlock_t*, clockid_t, const timespec*) noexcept)    \
  X(pthread_rwlock_clockwrlock, int, (pthread_rwlock_t*, clockid_t, const timespec*) noexcept)    \
  X(pthread_rwlock_unlock, int, (pthread_rwlock_t*) noexcept)                                     \
  X(sem_wait, int, (sem_t*))                                                                      \
  X(sem_timedwait, int, (sem_t*, const timespec*))                                                \
  X(sem_clockwait, int, (sem_t*, clockid_t, const timespec*))                                     \
  X(sem_trywait, int, (sem_t*) noexcept)                                                          \
  X(sem_post, int, (sem_t*) noexcept)                                                             \
  X(sched_yield, int, () noexcept)                                                                \
  X(poll, int, (pollfd*, nfds_t, int))                                                            \
  X(__poll_chk, int, (pollfd*, nfds_t, int, std::size_t))                                         \
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
  X(getsockname, int, (int, sockaddr*, socklen_t*) noexcept)                                     \
  X(recvfrom, ssize_t, (int, void*, std::size_t, int, sockaddr*, socklen_t*))                    \
  X(__recvfrom_chk, ssize_t, (int, void*, std::size_t, std::size_t, int, sockaddr*, socklen_t*)) \
  X(recv, ssize_t, (int, void*, std::size_t, int))                                               \
  X(sendto, ssize_t, (int, const void*, std::size_t, int, const sockaddr*, socklen_t))           \
  X(fcntl, int, (int, int, ...))                                                                 \
  X(fcntl64, int, (int, int, ...))                                                               \
  X(getpid, pid_t, () noexcept)                                                                  \
  X(gettid, pid_t, () noexcept)                                                                  \
  X(getcwd, char*, (char*, std::size_t) noexcept)                                                \
  X(__getcwd_chk, char*, (char*, std::size_t, std::size_t) noexcept)

// Clocks, sleeps and waits with a time of 64 bits: the same answers.
#if RACK_HAS_LONG_TIMES
#define RACK_LONG_TIME_CALLS(X)                                                                              \
  X(__nanosleep64, int, (const rack::LongTimespec*, rack::LongTimespec*))                                    \
  X(__clock_nanosleep_time64, int, (clockid_t, int, const rack::LongTimespec*, rack::LongTimespec*))         \
  X(__clock_gettime64, int, (clockid_t, rack::LongTimespec*) noexcept)                                       \
  X(__gettimeofday64, int, (rack::LongTimeval*, void*) noexcept)                                             \
  X(__time64, std::int64_t, (std::int64_t*) noexcept)                                                        \
  X(__select64, int, (int, fd_set*, fd_set*, fd_set*, rack::LongTimeval*))                                   \
  X(__pthread_mutex_timedlock64, int, (pthread_mutex_t*, const rack::LongTimespec*) noexcept)                \
  X(__pthread_mutex_clocklock64, int, (pthread_mutex_t*, clockid_t, const rack::LongTimespec*) noexcept)     \
  X(__pthread_cond_timedwait64, int, (pthread_cond_t*, pthread_mutex_t*, const rack::LongTimespec*))         \
  X(__pthread_cond_clockwait64, int,                                                                         \
    (pthread_cond_t*, pthread_mutex_t*, clockid_t, const rack::LongTimespec*))                               \
  X(__pthread_rwlock_timedrdlock64, int, (pthread_rwlock_t*, const rack::LongTimespec*) noexcept)            \
  X(__pthread_rwlock_timedwrlock64, int, (pthread_rwlock_t*, const rack::LongTimespec*) noexcept)            \
  X(__pthread_rwlock_clockrdlock64, int, (pthread_rwlock_t*, clockid_t, const rack::LongTimespec*) noexcept) \
  X(__pthread_rwlock_clockwrlock64, int, (pthread_rwlock_t*, clockid_t, const rack::LongTimespec*) noexcept) \
  X(__sem_timedwait64, int, (sem_t*, const rack::LongTimespec*))                                             \
  X(__sem_clockwait64, int, (sem_t*, clockid_t, const rack::LongTimespec*))                                  \
  X(__fcntl_time64, int, (int, int, ...))
#define RACK_REFUSED_LONG_TIME_CALLS(X)                                                                     \
  X(__epoll_pwait2_time64, int, (int a, void* b, int c, const void* d, const void* e), (a, b, c, d, e))     \
  X(__ppoll64, int, (void* a, nfds_t b, const void* c, const void* d), (a, b, c, d))                        \
  X(__pselect64, int, (int a, void* b, void* c, void* d, const void* e, const void* f), (a, b, c, d, e, f)) \
  X(__aio_suspend_time64, int, (const void* a, int b, const void* c), (a, b, c))                            \
  X(__setitimer64, int, (int a, const void* b, void* c) noexcept, (a, b, c))                                \
  X(__getrusage64, int, (int a, void* b) noexcept, (a, b))                                                  \
  X(__timespec_get64, int, (void* a, int b) noexcept, (a, b))                                               \
  X(__sigtimedwait64, int, (const void* a, void* b, const void* c), (a, b, c))                              \
  X(__recvmsg64, ssize_t, (int a, void* b, int c), (a, b, c))                                               \
  X(__recvmmsg64, int, (int a, void* b, unsigned c, int d, void* e), (a, b, c, d, e))                       \
  X(__sendmsg64, ssize_t, (int a, const void* b, int c), (a, b, c))                                         \
  X(__semtimedop64, int, (int a, void* b, std::size_t c, const void* d) noexcept, (a, b, c, d))             \
  X(__mq_timedreceive_time64, ssize_t, (mqd_t a, char* b, std::size_t c, unsigned* d, const void* e),       \
    (a, b, c, d, e))                                                                                        \
  X(__mq_timedsend_time64, int, (mqd_t a, const char* b, std::size_t c, unsigned d, const void* e),         \
    (a, b, c, d, e))                                                                                        \
  X(__pthread_timedjoin_np64, int, (pthread_t a, void** b, const void* c), (a, b, c))                       \
  X(__pthread_clockjoin_np64, int, (pthread_t a, void** b, clockid_t c, const void* d), (a, b, c, d))       \
  X(__thrd_sleep64, int, (const void* a, void* b), (a, b))                                                  \
  X(__mtx_timedlock64, int, (mtx_t * a, const void* b), (a, b))                                             \
  X(__cnd_timedwait64, int, (cnd_t * a, mtx_t * b, const void* c), (a, b, c))
#else
#define RACK_LONG_TIME_CALLS(X)
#define RACK_REFUSED_LONG_TIME_CALLS(X)
#endif

// What waits for something outside, sets a timer, tells the time or starts a process, and is not answered: in virtual
// time the run ends there, with the call's name. X(name, result, parameters, arguments).
#define RACK_REFUSED_CALLS(X)                                                                         \
  X(epoll_wait, int, (int a, epoll_event* b, int c, int d), (a, b, c, d))                             \
  X(epoll_pwait, int, (int a, epoll_event* b, int c, int d, const sigset_t* e), (a, b, c, d, e))      \
  X(epoll_pwait2, int, (int a, epoll_event* b, int c, const timespec* d, const sigset_t* e),          \
    (a, b, c, d, e))                                                                                  \
  X(ppoll, int, (pollfd * a, nfds_t b, const timespec* c, const sigset_t* d), (a, b, c, d))           \
  X(__ppoll_chk, int, (pollfd * a, nfds_t b, const timespec* c, const sigset_t* d, std::size_t e),    \
    (a, b, c, d, e))                                                                                  \
  X(pselect, int, (int a, fd_set* b, fd_set* c, fd_set* d, const timespec* e, const sigset_t* f),     \
    (a, b, c, d, e, f))                                                                               \
  X(eventfd_read, int, (int a, eventfd_t* b), (a, b))                                                 \
  X(readv, ssize_t, (int a, const iovec* b, int c), (a, b, c))                                        \
  X(aio_suspend, int, (const aiocb* const a[], int b, const timespec* c), (a, b, c))                  \
  X(timerfd_create, int, (int a, int b) noexcept, (a, b))                                             \
  X(timer_create, int, (clockid_t a, sigevent * b, timer_t * c) noexcept, (a, b, c))                  \
  X(setitimer, int, (__itimer_which_t a, const itimerval* b, itimerval* c) noexcept, (a, b, c))       \
  X(alarm, unsigned, (unsigned a) noexcept, (a))                                                      \
  X(ualarm, useconds_t, (useconds_t a, useconds_t b) noexcept, (a, b))                                \
  X(times, clock_t, (tms * a) noexcept, (a))                                                          \
  X(getrusage, int, (__rusage_who_t a, rusage * b) noexcept, (a, b))                                  \
  X(timespec_get, int, (timespec * a, int b) noexcept, (a, b))                                        \
  X(pause, int, (), ())                                                                               \
  X(sigsuspend, int, (const sigset_t* a), (a))                                                        \
  X(sigwait, int, (const sigset_t* a, int* b), (a, b))                                                \
  X(sigwaitinfo, int, (const sigset_t* a, siginfo_t* b), (a, b))                                      \
  X(sigtimedwait, int, (const sigset_t* a, siginfo_t* b, const timespec* c), (a, b, c))               \
  X(fork, pid_t, () noexcept, ())                                                                     \
  X(posix_spawn, int,                                                                                 \
    (pid_t * a, const char* b, const posix_spawn_file_actions_t* c, const posix_spawnattr_t* d,       \
     char* const e[], char* const f[]),                                                               \
    (a, b, c, d, e, f))                                                                               \
  X(posix_spawnp, int,                                                                                \
    (pid_t * a, const char* b, const posix_spawn_file_actions_t* c, const posix_spawnattr_t* d,       \
     char* const e[], char* const f[]),                                                               \
    (a, b, c, d, e, f))                                                                               \
  X(system, int, (const char* a), (a))                                                                \
  X(popen, FILE*, (const char* a, const char* b), (a, b))                                             \
  X(wait, pid_t, (int* a), (a))                                                                       \
  X(waitpid, pid_t, (pid_t a, int* b, int c), (a, b, c))                                              \
  X(waitid, int, (idtype_t a, id_t b, siginfo_t * c, int d), (a, b, c, d))                            \
  X(flock, int, (int a, int b) noexcept, (a, b))                                                      \
  X(lockf, int, (int a, int b, off_t c), (a, b, c))                                                   \
  X(lockf64, int, (int a, int b, off64_t c), (a, b, c))                                               \
  X(connect, int, (int a, const sockaddr* b, socklen_t c), (a, b, c))                                 \
  X(accept, int, (int a, sockaddr* b, socklen_t* c), (a, b, c))                                       \
  X(accept4, int, (int a, sockaddr* b, socklen_t* c, int d), (a, b, c, d))                            \
  X(send, ssize_t, (int a, const void* b, std::size_t c, int d), (a, b, c, d))                        \
  X(sendmsg, ssize_t, (int a, const msghdr* b, int c), (a, b, c))                                     \
  X(recvmsg, ssize_t, (int a, msghdr* b, int c), (a, b, c))                                           \
  X(recvmmsg, int, (int a, mmsghdr* b, unsigned c, int d, timespec* e), (a, b, c, d, e))              \
  X(getaddrinfo, int, (const char* a, const char* b, const addrinfo* c, addrinfo** d), (a, b, c, d))  \
  X(gethostbyname, hostent*, (const char* a), (a))                                                    \
  X(msgrcv, ssize_t, (int a, void* b, std::size_t c, long d, int e), (a, b, c, d, e))                 \
  X(msgsnd, int, (int a, const void* b, std::size_t c, int d), (a, b, c, d))                          \
  X(semop, int, (int a, sembuf* b, std::size_t c) noexcept, (a, b, c))                                \
  X(semtimedop, int, (int a, sembuf* b, std::size_t c, const timespec* d) noexcept, (a, b, c, d))     \
  X(mq_receive, ssize_t, (mqd_t a, char* b, std::size_t c, unsigned* d), (a, b, c, d))                \
  X(mq_timedreceive, ssize_t, (mqd_t a, char* b, std::size_t c, unsigned* d, const timespec* e),      \
    (a, b, c, d, e))                                                                                  \
  X(mq_send, int, (mqd_t a, const char* b, std::size_t c, unsigned d), (a, b, c, d))                  \
  X(mq_timedsend, int, (mqd_t a, const char* b, std::size_t c, unsigned d, const timespec* e),        \
    (a, b, c, d, e))                                                                                  \
  X(pthread_barrier_wait, int, (pthread_barrier_t * a) noexcept, (a))                                 \
  X(pthread_tryjoin_np, int, (pthread_t a, void** b) noexcept, (a, b))                                \
  X(pthread_timedjoin_np, int, (pthread_t a, void** b, const timespec* c), (a, b, c))                 \
  X(pthread_clockjoin_np, int, (pthread_t a, void** b, clockid_t c, const timespec* d), (a, b, c, d)) \
  X(pthread_cancel, int, (pthread_t a), (a))                                                          \
  X(tss_create, int, (tss_t * a, tss_dtor_t b), (a, b))                                               \
  X(thrd_create, int, (thrd_t * a, thrd_start_t b, void* c), (a, b, c))                               \
  X(thrd_join, int, (thrd_t a, int* b), (a, b))                                                       \
  X(thrd_sleep, int, (const timespec* a, timespec* b), (a, b))                                        \
  X(mtx_lock, int, (mtx_t * a), (a))                                                                  \
  X(mtx_trylock, int, (mtx_t * a), (a))                                                               \
  X(mtx_timedlock, int, (mtx_t * a, const timespec* b), (a, b))                                       \
  X(cnd_wait, int, (cnd_t * a, mtx_t * b), (a, b))                                                    \
  X(cnd_timedwait, int, (cnd_t * a, mtx_t * b, const timespec* c), (a, b, c))                         \
  X(call_once, void, (once_flag * a, void (*b)()), (a, b))                                            \
  RACK_REFUSED_LONG_TIME_CALLS(X)

// By the file that defines them: preload/interception.cpp, time/threads.cpp (the first and third), time/keys.cpp,
// time/calls.cpp, time/long_time_calls.cpp and time/refused_calls.cpp.
#define RACK_MACHINE_CALLS(X) RACK_FILE_CALLS(X) RACK_RESTART_CALLS(X)
#define RACK_TIME_CALLS(X) \
  RACK_CLOCK_CALLS(X) RACK_WAIT_CALLS(X) RACK_CONDITION_CALLS(X) RACK_OUTSIDE_CALLS(X)
#define RACK_CALLS(X)   \
  RACK_MACHINE_CALLS(X) \
  RACK_THREAD_CALLS(X) RACK_KEY_CALLS(X) RACK_FIBRE_CALLS(X) RACK_TIME_CALLS(X) RACK_LONG_TIME_CALLS(X)

// Another signature than that of the C library's header, or of the definition, does not compile.
#define RACK_DECLARATION(name, result, parameters) result name parameters;
#define RACK_REFUSED_DECLARATION(name, result, parameters, arguments) result name parameters;
extern "C" {
RACK_CALLS(RACK_DECLARATION)
RACK_REFUSED_CALLS(RACK_REFUSED_DECLARATION)
RACK_FIBRE_REFUSED_CALLS(RACK_REFUSED_DECLARATION)
}
#undef RACK_DECLARATION
#undef RACK_REFUSED_DECLARATION

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
#define RACK_REFUSED_CALL(name, result, parameters, arguments) RACK_CALL(name, result, parameters)
namespace calls {
RACK_MACHINE_CALLS(RACK_CALL)
RACK_THREAD_CALLS(RACK_CALL)
RACK_KEY_CALLS(RACK_CALL)
RACK_FIBRE_CALLS(RACK_CALL)
RACK_CLOCK_CALLS(RACK_CALL)
RACK_WAIT_CALLS(RACK_CALL)
RACK_CONDITION_CALLS(RACK_VERSIONED_CALL)
RACK_OUTSIDE_CALLS(RACK_CALL)
RACK_LONG_TIME_CALLS(RACK_CALL)
RACK_REFUSED_CALLS(RACK_REFUSED_CALL)
RACK_FIBRE_REFUSED_CALLS(RACK_REFUSED_CALL)
}  // namespace calls
#undef RACK_REFUSED_CALL
#undef RACK_CALL
#undef RACK_VERSIONED_CALL

}  // namespace rack
