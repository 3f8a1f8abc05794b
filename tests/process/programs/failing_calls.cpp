// Linked into a controller: lets its calls of one name fail, as VELMO_FAILING_CALL says: "read 3" the third one, "read 3+"
// that one and all behind it. Only what the controller itself calls is counted, not what the rack's library in front of the
// C library calls. VELMO_CALL_RECORD names a file for a CallRecord, VELMO_CALL_LIST one in which each call gets a line.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "Velmo.h"
#include "call_record.h"

extern "C" {
extern const char __executable_start;
extern const char etext;
}

namespace {

thread_local int Role = kMainRole;

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
// Looked up once: the look-up takes a lock of the system's, which virtual time does not know.
#define NEXT(name)                                         \
  ([] {                                                    \
    static auto* const next = Next<decltype(name)>(#name); \
    return next;                                           \
  }())

bool IsController(const void* caller) {
  return caller >= &__executable_start && caller < &etext;
}

CallRecord* MapRecord() {
  const char* const path = std::getenv("VELMO_CALL_RECORD");
  const int file = path == nullptr ? -1 : NEXT(open)(path, O_RDWR | O_CLOEXEC);
  if (file < 0) return nullptr;
  void* const map = mmap(nullptr, sizeof(CallRecord), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  NEXT(close)(file);
  return map == MAP_FAILED ? nullptr : static_cast<CallRecord*>(map);
}

// Null when nobody wants one. Touched by one thread at a time, in virtual time.
CallRecord* Record() {
  static CallRecord* const record = MapRecord();
  return record;
}

// Makes no call itself: the controller runs as it would without.
void NoteCall() {
  CallRecord* const record = Record();
  if (record != nullptr) ++record->made[Role];
}

// What a call is about: a text, or what a descriptor stands for. Looked up only when it is asked for.
class About {
 public:
  About(const char* text) : text_(text) {}
  explicit About(int descriptor) : descriptor_(descriptor) {}
  explicit About(FILE* stream) : descriptor_(fileno(stream)) {}

  void Write(char* place, std::size_t size) const {
    if (text_ != nullptr || descriptor_ == STDOUT_FILENO || descriptor_ == STDERR_FILENO) {
      const char* const output = descriptor_ == STDOUT_FILENO ? "console" : "errors";
      std::snprintf(place, size, "%s", text_ != nullptr ? text_ : output);
      return;
    }
    char link[40];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor_);
    const ssize_t length = readlink(link, place, size - 1);
    place[length < 0 ? 0 : length] = '\0';
    if (std::strcmp(place, "/dev/null") == 0) std::snprintf(place, size, "bus");
  }

 private:
  const char* text_ = nullptr;
  int descriptor_ = -1;
};

// Of a controller that is looked at for the calls that it makes.
void List(const char* call, const About& about) {
  static const char* const path = std::getenv("VELMO_CALL_LIST");
  if (path == nullptr) return;
  static const int file = NEXT(open)(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  char subject[256];
  about.Write(subject, sizeof subject);
  char line[512];
  const int length = std::snprintf(line, sizeof line, "%s %d %s\n", call, Role, subject);
  (void)!NEXT(write)(file, line, static_cast<size_t>(length));
}

// The order of a call that is to fail.
struct Wanted {
  Wanted() {
    const char* const text = std::getenv("VELMO_FAILING_CALL");
    if (text == nullptr || std::sscanf(text, "%31s %ld", call, &from) != 2) return;
    isForEver = text[std::strlen(text) - 1] == '+';
  }
  char call[32] = "";
  long from = 0;
  bool isForEver = false;
};

bool IsToFail(const char* call, const About& about, const void* caller) {
  if (!IsController(caller)) return false;
  static const Wanted wanted;
  static std::atomic<long> made{0};
  NoteCall();
  List(call, about);
  if (std::strcmp(wanted.call, call) != 0) return false;
  const long number = ++made;
  const bool fails = wanted.isForEver ? number >= wanted.from : number == wanted.from;
  CallRecord* const record = Record();
  if (fails && record != nullptr && record->failed++ == 0) {
    record->failedRole = Role;
    about.Write(record->failedAt, sizeof record->failedAt);
  }
  return fails;
}

int FailWith(int error) {
  errno = error;
  return -1;
}

// A thread knows what it is.
struct Start {
  void* (*entry)(void*);
  int role;
};
Start Starts[] = {{thread_Task0, 0}, {thread_Task1, 1},  {thread_Task2, 2}, {thread_Task3, 3},
                  {thread_Task4, 4}, {thread_Task5, 5},  {thread_Task6, 6}, {thread_Task7, 7},
                  {thread_Task8, 8}, {thread_TaskNet, 9}};

void* RunAs(void* argument) {
  const Start& start = *static_cast<Start*>(argument);
  Role = start.role;
  return start.entry(nullptr);
}

FILE* OpenStream(FILE* (*next)(const char*, const char*), const char* path, const char* mode,
                 const void* caller) {
  if (!IsToFail("fopen", path, caller)) return next(path, mode);
  errno = EMFILE;
  return nullptr;
}

}  // namespace

#define CALLER __builtin_return_address(0)

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return IsToFail("open", path, CALLER) ? FailWith(EMFILE) : NEXT(open)(path, flags, mode);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
  return IsToFail("read", About(descriptor), CALLER) ? FailWith(EIO) : NEXT(read)(descriptor, buffer, size);
}

ssize_t write(int descriptor, const void* buffer, size_t size) {
  return IsToFail("write", About(descriptor), CALLER) ? FailWith(EIO) : NEXT(write)(descriptor, buffer, size);
}

int close(int descriptor) {
  const bool fails = IsToFail("close", About(descriptor), CALLER);
  const int result = NEXT(close)(descriptor);
  return fails ? FailWith(EIO) : result;
}

FILE* fopen(const char* path, const char* mode) {
  return OpenStream(NEXT(fopen), path, mode, CALLER);
}
FILE* fopen64(const char* path, const char* mode) {
  return OpenStream(NEXT(fopen64), path, mode, CALLER);
}

char* fgets(char* buffer, int size, FILE* stream) {
  if (!IsToFail("fgets", About(stream), CALLER)) return NEXT(fgets)(buffer, size, stream);
  errno = EIO;
  return nullptr;
}

int fclose(FILE* stream) {
  const bool fails = IsToFail("fclose", About(stream), CALLER);
  const int result = NEXT(fclose)(stream);
  return fails ? FailWith(EIO) : result;
}

DIR* opendir(const char* path) {
  if (!IsToFail("opendir", path, CALLER)) return NEXT(opendir)(path);
  errno = EMFILE;
  return nullptr;
}

dirent* readdir(DIR* directory) {
  if (!IsToFail("readdir", "directory", CALLER)) return NEXT(readdir)(directory);
  errno = EIO;
  return nullptr;
}
dirent64* readdir64(DIR* directory) {
  if (!IsToFail("readdir", "directory", CALLER)) return NEXT(readdir64)(directory);
  errno = EIO;
  return nullptr;
}

int remove(const char* path) noexcept {
  return IsToFail("remove", path, CALLER) ? FailWith(EROFS) : NEXT(remove)(path);
}

int rename(const char* from, const char* to) noexcept {
  return IsToFail("rename", from, CALLER) ? FailWith(EROFS) : NEXT(rename)(from, to);
}

int chmod(const char* path, mode_t mode) noexcept {
  return IsToFail("chmod", path, CALLER) ? FailWith(EROFS) : NEXT(chmod)(path, mode);
}

size_t fwrite(const void* data, size_t size, size_t count, FILE* stream) {
  if (!IsToFail("fwrite", About(stream), CALLER)) return NEXT(fwrite)(data, size, count, stream);
  errno = ENOSPC;
  return 0;
}

int socket(int domain, int type, int protocol) noexcept {
  return IsToFail("socket", "network", CALLER) ? FailWith(EMFILE) : NEXT(socket)(domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
  return IsToFail("bind", "network", CALLER) ? FailWith(EADDRINUSE) : NEXT(bind)(descriptor, address, length);
}

ssize_t recvfrom(int descriptor, void* buffer, size_t size, int flags, sockaddr* from, socklen_t* length) {
  if (IsToFail("recvfrom", "network", CALLER)) return FailWith(EIO);
  CallRecord* const record = Record();
  if (record != nullptr) record->isWaiting[Role] = 1;
  const ssize_t count = NEXT(recvfrom)(descriptor, buffer, size, flags, from, length);
  if (record != nullptr) record->isWaiting[Role] = 0;
  return count;
}

ssize_t sendto(int descriptor, const void* data, size_t size, int flags, const sockaddr* to,
               socklen_t length) {
  if (IsToFail("sendto", "network", CALLER)) return FailWith(ENETUNREACH);
  return NEXT(sendto)(descriptor, data, size, flags, to, length);
}

// A signal comes in the middle of the pause; one of a microsecond is too short for that.
int nanosleep(const timespec* length, timespec* rest) {
  constexpr long kShort = 1000;
  const bool fails = IsToFail("nanosleep", "pause", CALLER);
  const long long nanos = length->tv_sec * 1000000000LL + length->tv_nsec;
  if (!fails || nanos <= kShort) return NEXT(nanosleep)(length, rest);
  const long long slept = nanos / 2;
  const timespec part = {static_cast<time_t>(slept / 1000000000), static_cast<long>(slept % 1000000000)};
  NEXT(nanosleep)(&part, nullptr);
  const long long left = nanos - slept;
  if (rest != nullptr) *rest = {static_cast<time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
  return FailWith(EINTR);
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept {
  if (IsToFail("pthread_mutex_init", "lock", CALLER)) return ENOMEM;
  return NEXT(pthread_mutex_init)(mutex, attributes);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept {
  if (!IsController(CALLER)) return NEXT(pthread_create)(thread, attributes, entry, argument);
  for (Start& start : Starts) {
    if (start.entry != entry) continue;
    char about[24];
    std::snprintf(about, sizeof about, "thread %d", start.role);
    if (IsToFail("pthread_create", about, CALLER)) return EAGAIN;
    return NEXT(pthread_create)(thread, attributes, &RunAs, &start);
  }
  return NEXT(pthread_create)(thread, attributes, entry, argument);
}
}

#ifdef VELMO_FAILS_MALLOC
namespace {

void* Allocate(std::size_t size, const void* caller) {
  char about[24];
  std::snprintf(about, sizeof about, "%zu bytes", size);
  if (!IsToFail("malloc", about, caller)) return std::malloc(size);
  errno = ENOMEM;
  return nullptr;
}

}  // namespace

// What the controller allocates itself. A stream's or a directory's memory is the C library's affair, and shows as a call of
// it that fails.
void* operator new(std::size_t size) {
  void* const place = Allocate(size, CALLER);
  if (place == nullptr) throw std::bad_alloc();
  return place;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size, CALLER);
}
void operator delete(void* place) noexcept {
  std::free(place);
}
void operator delete(void* place, std::size_t) noexcept {
  std::free(place);
}
#endif
