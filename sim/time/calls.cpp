// The C library's calls that take time, tell it or wait: answered by virtual or scaled time, else passed on.
//
// `clock`, `usleep` and `sleep` do not pass through clock_gettime and nanosleep in the C library, so each is
// answered itself. In virtual time also what differs from run to run is answered as fixed: process and thread
// numbers, the working directory, the network.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "preload/next.h"
#include "time/locks.h"
#include "time/scheduler.h"
#include "time/shown_time.h"

namespace rack {
namespace {

constexpr pid_t kShownProcess = 1000;
constexpr int kMaxSockets = 16;
constexpr in_port_t kAnyPort = 40000;            // what a socket gets that asks for no port of its own
constexpr Nanos kLookAgain = 10 * kMillisecond;  // at what only the outside can change

// --- Times

Nanos UntilPoint(clockid_t clock, const timespec* time) {
  return time == nullptr ? kForEver : PointOfTime(clock, *time);
}

int SleepNanos(Nanos length, timespec* rest) {
  static Next next(calls::nanosleep);
  if (InTurn()) {
    SpendCall();
    const Nanos now = VirtualNow();
    SleepUntil(length < kForEver - now ? now + length : kForEver);
    return 0;
  }
  const timespec real = ToTimespec(IsScaled() ? RealLength(length) : length);
  const int result = next(&real, rest);
  if (result != 0 && rest != nullptr && IsScaled())
    *rest = ToTimespec(ToNanos(*rest) * length / ToNanos(real));
  return result;
}

bool IsLength(const timespec* time) {
  return time->tv_sec >= 0 && time->tv_nsec >= 0 && time->tv_nsec < kSecond;
}

bool IsControlled() {
  return InTurn() || IsScaled();
}

// --- Calls that wait for the outside: time goes on meanwhile

// Tries again and again until it is met or the time is reached.
template <class Attempt>
bool Until(Nanos until, Attempt attempt) {
  SpendCall();
  for (;;) {
    if (attempt()) return true;
    if (VirtualNow() >= until) return false;
    SleepUntil(std::min(until, VirtualNow() + kLookAgain));
  }
}

int Poll(pollfd* files, nfds_t count, int millis) {
  static Next next(calls::poll);
  if (!InTurn()) return next(files, count, millis);
  int found = 0;
  Until(millis < 0 ? kForEver : VirtualNow() + millis * kMillisecond, [&] {
    found = next(files, count, 0);
    return found != 0;
  });
  return found;
}

int Select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* limit) {
  static Next next(calls::select);
  if (!InTurn()) return next(count, read, write, except, limit);
  const Nanos until =
      limit == nullptr ? kForEver : VirtualNow() + limit->tv_sec * kSecond + limit->tv_usec * kMicrosecond;
  fd_set* const sets[] = {read, write, except};
  fd_set asked[3];
  for (int i = 0; i < 3; ++i) {
    if (sets[i] != nullptr) asked[i] = *sets[i];
  }
  int found = 0;
  Until(until, [&] {
    for (int i = 0; i < 3; ++i) {
      if (sets[i] != nullptr) *sets[i] = asked[i];
    }
    timeval none = {0, 0};
    found = next(count, read, write, except, &none);
    return found != 0;
  });
  return found;
}

// A socket of the run's own network.
struct OwnSocket {
  int handle;  // descriptor plus 1; 0: row not used
  in_port_t port;
};
OwnSocket Sockets[kMaxSockets];  // touched in turn only

OwnSocket* FindSocket(int handle) {
  OwnSocket* const end = Sockets + kMaxSockets;
  OwnSocket* const found =
      std::find_if(Sockets, end, [=](const OwnSocket& row) { return row.handle == handle; });
  return found == end ? nullptr : found;
}

OwnSocket* SocketOf(int descriptor) {
  return descriptor < 0 ? nullptr : FindSocket(descriptor + 1);
}

int Bind(int descriptor, const sockaddr* address, socklen_t length) {
  static Next next(calls::bind);
  if (!InTurn() || address->sa_family != AF_INET) return next(descriptor, address, length);
  SpendCall();
  OwnSocket* const known = SocketOf(descriptor);
  OwnSocket* const row = known != nullptr ? known : FindSocket(0);
  sockaddr_in wanted = {};
  std::memcpy(&wanted, address, std::min<std::size_t>(length, sizeof wanted));
  if (row != nullptr) *row = {descriptor + 1, wanted.sin_port != 0 ? wanted.sin_port : htons(kAnyPort)};
  return 0;
}

void CopyAddress(const sockaddr_in& from, sockaddr* address, socklen_t* length) {
  std::memcpy(address, &from, std::min<std::size_t>(*length, sizeof from));
  *length = sizeof from;
}

int NameOfSocket(int descriptor, sockaddr* address, socklen_t* length) {
  static Next next(calls::getsockname);
  const OwnSocket* const own = InTurn() ? SocketOf(descriptor) : nullptr;
  if (own == nullptr) return next(descriptor, address, length);
  sockaddr_in bound = {};
  bound.sin_family = AF_INET;
  bound.sin_port = own->port;
  CopyAddress(bound, address, length);
  return 0;
}

ssize_t TakeMail(void* buffer, std::size_t size, sockaddr* sender, socklen_t* length) {
  while (NextMail() == nullptr) WaitForMail();
  const MailItem& item = *NextMail();
  const std::size_t count = std::min<std::size_t>(size, item.length);
  std::memcpy(buffer, item.data, count);
  sockaddr_in from = {};
  from.sin_family = AF_INET;
  from.sin_port = htons(item.port);
  from.sin_addr.s_addr = htonl(item.address);
  if (sender != nullptr && length != nullptr) CopyAddress(from, sender, length);
  MailTaken();
  return static_cast<ssize_t>(count);
}

ssize_t Receive(int descriptor, void* buffer, std::size_t size, int flags, sockaddr* sender,
                socklen_t* length) {
  static Next next(calls::recvfrom);
  if (!InTurn() || (flags & MSG_DONTWAIT) != 0) return next(descriptor, buffer, size, flags, sender, length);
  SpendCall();
  if (SocketOf(descriptor) != nullptr) return TakeMail(buffer, size, sender, length);
  ssize_t count = -1;
  Until(kForEver, [&] {
    count = next(descriptor, buffer, size, flags | MSG_DONTWAIT, sender, length);
    return count >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
  });
  return count;
}

ssize_t SendTo(int descriptor, const void* data, std::size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  static Next next(calls::sendto);
  if (!InTurn() || SocketOf(descriptor) == nullptr)
    return next(descriptor, data, size, flags, address, length);
  SpendCall();
  ReplySent();
  return static_cast<ssize_t>(size);
}

// Every command's argument is a number or a pointer, or is not looked at.
int ControlFile(int (*next)(int, int, ...), int descriptor, int command, long argument) {
  const bool waits = command == F_SETLKW || command == F_SETLKW64 || command == F_OFD_SETLKW;
  if (InTurn() && waits) Refuse("fcntl to wait for a lock");
  return next(descriptor, command, argument);
}

// --- Fixed answers

char* WorkingDirectory(char* buffer, std::size_t size) {
  static Next next(calls::getcwd);
  if (!InTurn() || buffer == nullptr || size < 2) return next(buffer, size);
  std::strcpy(buffer, ".");
  return buffer;
}

}  // namespace
}  // namespace rack

#define RACK_CONTROL_ARGUMENT(command)      \
  va_list rest;                             \
  va_start(rest, command);                  \
  const long argument = va_arg(rest, long); \
  va_end(rest);

using rack::InTurn;
using rack::IsScaled;
using rack::Next;

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static Next next(rack::calls::pthread_mutex_lock);
  return InTurn() ? rack::LockMutex(mutex, rack::kForEver) : next(mutex);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  static Next next(rack::calls::pthread_mutex_trylock);
  return InTurn() ? rack::TryLockMutex(mutex) : next(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static Next next(rack::calls::pthread_mutex_unlock);
  return InTurn() ? rack::UnlockMutex(mutex) : next(mutex);
}

int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* until) noexcept {
  static Next next(rack::calls::pthread_mutex_timedlock);
  if (InTurn()) return rack::LockMutex(mutex, rack::UntilPoint(CLOCK_REALTIME, until));
  const timespec real = IsScaled() ? rack::RealPoint(CLOCK_REALTIME, *until) : *until;
  return next(mutex, &real);
}

int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock, const timespec* until) noexcept {
  static Next next(rack::calls::pthread_mutex_clocklock);
  if (InTurn()) return rack::LockMutex(mutex, rack::UntilPoint(clock, until));
  const timespec real = IsScaled() ? rack::RealPoint(clock, *until) : *until;
  return next(mutex, clock, &real);
}

int pthread_spin_lock(pthread_spinlock_t* lock) noexcept {
  static Next next(rack::calls::pthread_spin_lock);
  return InTurn() ? rack::LockSpin(lock) : next(lock);
}

int pthread_spin_trylock(pthread_spinlock_t* lock) noexcept {
  static Next next(rack::calls::pthread_spin_trylock);
  return InTurn() ? rack::TryLockSpin(lock) : next(lock);
}

int pthread_spin_unlock(pthread_spinlock_t* lock) noexcept {
  static Next next(rack::calls::pthread_spin_unlock);
  return InTurn() ? rack::UnlockSpin(lock) : next(lock);
}

int pthread_once(pthread_once_t* control, void (*start)()) {
  static Next next(rack::calls::pthread_once);
  return InTurn() ? rack::Once(control, start) : next(control, start);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  static Next next(rack::calls::pthread_cond_wait);
  return InTurn() ? rack::WaitCondition(condition, mutex, rack::kForEver) : next(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until) {
  static Next next(rack::calls::pthread_cond_timedwait);
  if (InTurn()) return rack::WaitCondition(condition, mutex, rack::UntilPoint(CLOCK_REALTIME, until));
  const timespec real = IsScaled() ? rack::RealPoint(CLOCK_REALTIME, *until) : *until;
  return next(condition, mutex, &real);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* until) {
  static Next next(rack::calls::pthread_cond_clockwait);
  if (InTurn()) return rack::WaitCondition(condition, mutex, rack::UntilPoint(clock, until));
  const timespec real = IsScaled() ? rack::RealPoint(clock, *until) : *until;
  return next(condition, mutex, clock, &real);
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
  static Next next(rack::calls::pthread_cond_signal);
  if (!InTurn()) return next(condition);
  rack::WakeFirst(condition, false);
  return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
  static Next next(rack::calls::pthread_cond_broadcast);
  if (!InTurn()) return next(condition);
  rack::WakeAll(condition);
  return 0;
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
  static Next next(rack::calls::pthread_rwlock_rdlock);
  return InTurn() ? rack::LockShared(lock, rack::kForEver) : next(lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
  static Next next(rack::calls::pthread_rwlock_wrlock);
  return InTurn() ? rack::LockAlone(lock, rack::kForEver) : next(lock);
}

int pthread_rwlock_tryrdlock(pthread_rwlock_t* lock) noexcept {
  static Next next(rack::calls::pthread_rwlock_tryrdlock);
  return InTurn() ? rack::TryLockShared(lock) : next(lock);
}

int pthread_rwlock_trywrlock(pthread_rwlock_t* lock) noexcept {
  static Next next(rack::calls::pthread_rwlock_trywrlock);
  return InTurn() ? rack::TryLockAlone(lock) : next(lock);
}

int pthread_rwlock_timedrdlock(pthread_rwlock_t* lock, const timespec* until) noexcept {
  static Next next(rack::calls::pthread_rwlock_timedrdlock);
  if (InTurn()) return rack::LockShared(lock, rack::UntilPoint(CLOCK_REALTIME, until));
  const timespec real = IsScaled() ? rack::RealPoint(CLOCK_REALTIME, *until) : *until;
  return next(lock, &real);
}

int pthread_rwlock_timedwrlock(pthread_rwlock_t* lock, const timespec* until) noexcept {
  static Next next(rack::calls::pthread_rwlock_timedwrlock);
  if (InTurn()) return rack::LockAlone(lock, rack::UntilPoint(CLOCK_REALTIME, until));
  const timespec real = IsScaled() ? rack::RealPoint(CLOCK_REALTIME, *until) : *until;
  return next(lock, &real);
}

int pthread_rwlock_clockrdlock(pthread_rwlock_t* lock, clockid_t clock, const timespec* until) noexcept {
  static Next next(rack::calls::pthread_rwlock_clockrdlock);
  if (InTurn()) return rack::LockShared(lock, rack::UntilPoint(clock, until));
  const timespec real = IsScaled() ? rack::RealPoint(clock, *until) : *until;
  return next(lock, clock, &real);
}

int pthread_rwlock_clockwrlock(pthread_rwlock_t* lock, clockid_t clock, const timespec* until) noexcept {
  static Next next(rack::calls::pthread_rwlock_clockwrlock);
  if (InTurn()) return rack::LockAlone(lock, rack::UntilPoint(clock, until));
  const timespec real = IsScaled() ? rack::RealPoint(clock, *until) : *until;
  return next(lock, clock, &real);
}

int pthread_rwlock_unlock(pthread_rwlock_t* lock) noexcept {
  static Next next(rack::calls::pthread_rwlock_unlock);
  return InTurn() ? rack::UnlockShared(lock) : next(lock);
}

int sem_wait(sem_t* semaphore) {
  static Next next(rack::calls::sem_wait);
  return InTurn() ? rack::WaitSemaphore(semaphore, rack::kForEver) : next(semaphore);
}

int sem_timedwait(sem_t* semaphore, const timespec* until) {
  static Next next(rack::calls::sem_timedwait);
  if (InTurn()) return rack::WaitSemaphore(semaphore, rack::UntilPoint(CLOCK_REALTIME, until));
  const timespec real = IsScaled() ? rack::RealPoint(CLOCK_REALTIME, *until) : *until;
  return next(semaphore, &real);
}

int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* until) {
  static Next next(rack::calls::sem_clockwait);
  if (InTurn()) return rack::WaitSemaphore(semaphore, rack::UntilPoint(clock, until));
  const timespec real = IsScaled() ? rack::RealPoint(clock, *until) : *until;
  return next(semaphore, clock, &real);
}

int sem_trywait(sem_t* semaphore) noexcept {
  static Next next(rack::calls::sem_trywait);
  return InTurn() ? rack::TrySemaphore(semaphore) : next(semaphore);
}

int sem_post(sem_t* semaphore) noexcept {
  static Next next(rack::calls::sem_post);
  return InTurn() ? rack::PostSemaphore(semaphore) : next(semaphore);
}

int sched_yield() noexcept {
  static Next next(rack::calls::sched_yield);
  if (!InTurn()) return next();
  rack::SpendCall();
  rack::YieldTurn();
  return 0;
}

int nanosleep(const timespec* length, timespec* rest) {
  if (rack::IsLength(length)) return rack::SleepNanos(rack::ToNanos(*length), rest);
  errno = EINVAL;
  return -1;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest) {
  static Next next(rack::calls::clock_nanosleep);
  if (!rack::IsControlled() || !rack::IsLength(time)) return next(clock, flags, time, rest);
  if ((flags & TIMER_ABSTIME) == 0) return rack::SleepNanos(rack::ToNanos(*time), rest) == 0 ? 0 : errno;
  if (!InTurn()) {
    const timespec real = rack::RealPoint(clock, *time);
    return next(clock, flags, &real, rest);
  }
  rack::SpendCall();
  rack::SleepUntil(rack::PointOfTime(clock, *time));
  return 0;
}

int usleep(useconds_t micros) {
  return rack::SleepNanos(micros * rack::kMicrosecond, nullptr);
}

unsigned sleep(unsigned seconds) {
  static Next next(rack::calls::sleep);
  if (!rack::IsControlled()) return next(seconds);
  return rack::SleepNanos(seconds * rack::kSecond, nullptr) == 0 ? 0 : seconds;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static Next next(rack::calls::clock_gettime);
  if (!rack::IsControlled()) return next(clock, time);
  *time = rack::ClockTime(clock);
  return 0;
}

clock_t clock() noexcept {
  static Next next(rack::calls::clock);
  if (!rack::IsControlled()) return next();
  return static_cast<clock_t>(rack::ToNanos(rack::ClockTime(CLOCK_PROCESS_CPUTIME_ID)) / rack::kMicrosecond);
}

int gettimeofday(timeval* time, void* zone) noexcept {
  static Next next(rack::calls::gettimeofday);
  if (!rack::IsControlled()) return next(time, zone);
  const timespec now = rack::ClockTime(CLOCK_REALTIME);
  *time = {now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

time_t time(time_t* place) noexcept {
  static Next next(rack::calls::time);
  if (!rack::IsControlled()) return next(place);
  const time_t now = rack::ClockTime(CLOCK_REALTIME).tv_sec;
  if (place != nullptr) *place = now;
  return now;
}

int poll(pollfd* files, nfds_t count, int millis) {
  return rack::Poll(files, count, millis);
}

// Name that fortified builds call.
int __poll_chk(pollfd* files, nfds_t count, int millis, size_t room) {
  static Next next(rack::calls::__poll_chk);
  if (room / sizeof(pollfd) < count) return next(files, count, millis, room);
  return rack::Poll(files, count, millis);
}

int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* limit) {
  return rack::Select(count, read, write, except, limit);
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
  return rack::Bind(descriptor, address, length);
}

ssize_t recvfrom(int descriptor, void* buffer, size_t size, int flags, sockaddr* sender, socklen_t* length) {
  return rack::Receive(descriptor, buffer, size, flags, sender, length);
}

// Name that fortified builds call.
ssize_t __recvfrom_chk(int descriptor, void* buffer, size_t size, size_t room, int flags, sockaddr* sender,
                       socklen_t* length) {
  return rack::Receive(descriptor, buffer, size < room ? size : room, flags, sender, length);
}

ssize_t recv(int descriptor, void* buffer, size_t size, int flags) {
  return rack::Receive(descriptor, buffer, size, flags, nullptr, nullptr);
}

int getsockname(int descriptor, sockaddr* address, socklen_t* length) noexcept {
  return rack::NameOfSocket(descriptor, address, length);
}

ssize_t sendto(int descriptor, const void* data, size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  return rack::SendTo(descriptor, data, size, flags, address, length);
}

// The argument is taken also where the caller has given none.
[[gnu::no_sanitize_address]] int fcntl(int descriptor, int command, ...) {
  static Next next(rack::calls::fcntl);
  RACK_CONTROL_ARGUMENT(command)
  return rack::ControlFile(next, descriptor, command, argument);
}

[[gnu::no_sanitize_address]] int fcntl64(int descriptor, int command, ...) {
  static Next next(rack::calls::fcntl64);
  RACK_CONTROL_ARGUMENT(command)
  return rack::ControlFile(next, descriptor, command, argument);
}

pid_t getpid() noexcept {
  static Next next(rack::calls::getpid);
  return InTurn() ? rack::kShownProcess : next();
}

pid_t gettid() noexcept {
  static Next next(rack::calls::gettid);
  return InTurn() ? rack::kShownProcess + static_cast<pid_t>(rack::ThreadNumber()) : next();
}

char* getcwd(char* buffer, size_t size) noexcept {
  return rack::WorkingDirectory(buffer, size);
}

char* __getcwd_chk(char* buffer, size_t size, size_t room) noexcept {
  return rack::WorkingDirectory(buffer, size < room ? size : room);
}

}  // extern "C"

RACK_ARE_DEFINED(RACK_TIME_CALLS)
