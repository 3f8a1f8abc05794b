// The C library's calls that are answered in the controller's place.
//
// Only the two device names, program files, files of the board outside the machine's directory, sync and
// restart are looked at; every other call is passed on. A restart or sync never reaches the system, whatever
// the environment says.
#if defined(_FILE_OFFSET_BITS) && _FILE_OFFSET_BITS == 64
#error "with large-file names on, open would be compiled under the name open64: both are defined here"
#endif

#include <fcntl.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "preload/bus_target.h"
#include "preload/console_writer.h"
#include "preload/next.h"
#include "preload/session.h"
#include "preload/time_source.h"

namespace rack {
namespace {

constexpr const char* kDevices[] = {"/dev/em_isa", "/dev/em335x_isa"};
constexpr int kMaxHandles = 8;
constexpr std::size_t kLongPath = 4096;
constexpr int kFixedHandle = 100;

std::atomic<BusTarget*> PlacedBus{nullptr};
std::atomic<std::uint32_t> Syncs{0};
std::atomic<std::uint32_t> Restarts{0};
std::atomic<std::uint32_t> RestartCommand{0};
// Handles of the device, as descriptor plus 1; 0: not used.
std::atomic<int> Handles[kMaxHandles];

BusTarget* Bus() {
  BusTarget* placed = PlacedBus.load(std::memory_order_acquire);
  return placed != nullptr ? placed : Session::Get();
}

Session* OwnSession() {
  return PlacedBus.load(std::memory_order_acquire) != nullptr ? nullptr : Session::Get();
}

// 1 or 2 as in DeviceName, 0 for any other path.
std::uint32_t DeviceNumber(const char* path) {
  for (std::uint32_t i = 0; i < 2; ++i) {
    if (path != nullptr && std::strcmp(path, kDevices[i]) == 0) return i + 1;
  }
  return 0;
}

bool IsHandle(int descriptor) {
  for (const std::atomic<int>& handle : Handles) {
    if (handle.load(std::memory_order_acquire) == descriptor + 1) return descriptor >= 0;
  }
  return false;
}

bool ReplaceHandle(int from, int to) {
  for (std::atomic<int>& handle : Handles) {
    int expected = from;
    if (handle.compare_exchange_strong(expected, to)) return true;
  }
  return false;
}

int PassOpen(const char* path, int flags, unsigned mode) {
  static Next next(calls::open);
  return next(path, flags, mode);
}

// The same file under a number that does not depend on what else is open; as it is where the process may not have
// so many files open.
int MovedHandle(int descriptor) {
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, kFixedHandle);
  if (moved < 0) return descriptor;
  close(descriptor);
  return moved;
}

int OpenDevice(std::uint32_t number) {
  BusTarget* bus = Bus();
  const bool exists = bus != nullptr && static_cast<std::uint32_t>(bus->Device()) == number;
  if (Session* session = OwnSession()) session->DeviceTried(exists);
  if (!exists) {
    errno = ENOENT;
    return -1;
  }
  // A descriptor of its own, so that no other file gets the same number.
  int descriptor = PassOpen("/dev/null", O_RDWR | O_CLOEXEC, 0);
  if (descriptor >= 0 && CurrentTime().ShowsFixed()) descriptor = MovedHandle(descriptor);
  if (descriptor < 0) return -1;
  if (ReplaceHandle(0, descriptor + 1)) return descriptor;
  close(descriptor);
  errno = EMFILE;
  return -1;
}

// Without the mode: for the names that take none.
template <class Function, class... Mode>
int Open(Call<Function> call, const char* path, int flags, Mode... mode) {
  if (const std::uint32_t device = DeviceNumber(path)) return OpenDevice(device);
  return Next(call)(path, flags, mode...);
}

template <class Function, class... Mode>
int OpenAt(Call<Function> call, int directory, const char* path, int flags, Mode... mode) {
  if (const std::uint32_t device = DeviceNumber(path)) return OpenDevice(device);
  return Next(call)(directory, path, flags, mode...);
}

ssize_t ReadDevice(void* buffer, std::size_t count) {
  BusTarget* bus = Bus();
  if (bus == nullptr || count == 0) return 0;
  auto* const byte = static_cast<std::uint8_t*>(buffer);
  const int value = bus->Read(byte[0]);
  if (value < 0) {
    errno = EIO;
    return -1;
  }
  byte[0] = static_cast<std::uint8_t>(value);
  return 1;
}

ssize_t WriteDevice(const void* buffer, std::size_t count) {
  BusTarget* bus = Bus();
  if (bus == nullptr || count < 2) {
    errno = EINVAL;
    return -1;
  }
  const auto* const bytes = static_cast<const std::uint8_t*>(buffer);
  bus->Write(bytes[1], bytes[0]);
  return static_cast<ssize_t>(count);
}

FILE* OpenStream(Call<FILE*(const char*, const char*)> call, const char* path, const char* mode) {
  Next next(call);
  Session* session = OwnSession();
  if (session == nullptr || path == nullptr) return next(path, mode);
  char kept[kLongPath];
  if (!session->Redirect(path, kept, sizeof kept)) {
    errno = ENAMETOOLONG;
    return nullptr;
  }
  FILE* stream = next(kept, mode);
  const int reason = errno;
  session->FileOpened(path, stream);
  errno = reason;
  return stream;
}

// The place of the last byte that is another one; there is one.
std::size_t LastOther(const char* bytes, std::size_t size, char fill) {
  char piece[64];
  std::memset(piece, fill, sizeof piece);
  while (size > sizeof piece && std::memcmp(bytes + size - sizeof piece, piece, sizeof piece) == 0)
    size -= sizeof piece;
  while (bytes[size - 1] == fill) --size;
  return size - 1;
}

// Reads a line; of a program, also tells the session. A line may hold zero bytes: what it ends with is seen by reading it
// into a buffer that is full of another byte. The controller's own buffer keeps what a read at the end of a file leaves.
template <class Read>
char* ReadLine(char* buffer, std::size_t size, FILE* stream, const void* caller, Read read) {
  constexpr char kFill = 1;
  Session* session = OwnSession();
  if (session == nullptr || !session->IsProgram(stream)) return read(buffer);
  char own[kLongPath];
  if (size == 0 || size > sizeof own) {
    char* const line = read(buffer);
    session->LineRead(stream, caller, line, line == nullptr ? 0 : std::strlen(line));
    return line;
  }
  std::memset(own, kFill, size);
  if (read(own) == nullptr) {
    session->LineRead(stream, caller, nullptr, 0);
    return nullptr;
  }
  const std::size_t end = LastOther(own, size, kFill);
  std::memcpy(buffer, own, end + 1);
  session->LineRead(stream, caller, buffer, end);
  return buffer;
}

int Restart(int command) {
  RestartCommand = static_cast<std::uint32_t>(command);
  ++Restarts;
  Session* session = OwnSession();
  if (session != nullptr && !session->RestartFails()) _exit(kRestartStatus);
  errno = EPERM;
  return -1;
}

void Sync() {
  ++Syncs;
  if (Session* session = OwnSession()) session->Synced();
}

void NoteConsole(const void* text, ssize_t written) {
  const int reason = errno;
  const auto count = static_cast<std::size_t>(written > 0 ? written : 0);
  Session* session = OwnSession();
  if (session != nullptr && count != 0) session->ConsoleWritten(static_cast<const char*>(text), count);
  CurrentTime().ConsoleEnds();
  errno = reason;
}

ssize_t WriteConsole(int descriptor, const void* text, std::size_t size) {
  static Next next(calls::write);
  const std::size_t taken = descriptor == STDOUT_FILENO ? CurrentTime().ConsoleTakes(size) : size;
  if (taken == 0 && size > 0) {
    errno = EAGAIN;
    return -1;
  }
  Session* const session = OwnSession();
  const auto* const bytes = static_cast<const char*>(text);
  if (session != nullptr && session->HoldConsole(descriptor, bytes, taken)) {
    NoteConsole(text, static_cast<ssize_t>(taken));
    return static_cast<ssize_t>(taken);
  }
  const bool whole = CurrentTime().ConsoleBegins();
  const ssize_t written = whole ? WriteWhole(descriptor, bytes, taken) : next(descriptor, text, taken);
  NoteConsole(text, descriptor == STDOUT_FILENO ? written : 0);
  return written;
}

// The mode of an open call is there only when the flags say so.
bool TakesMode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

}  // namespace

void UseBus(BusTarget* bus) {
  PlacedBus.store(bus, std::memory_order_release);
}

InterceptedCalls CallsSoFar() {
  return {Syncs, Restarts, RestartCommand};
}

}  // namespace rack

#define RACK_MODE_ARGUMENT(flags)  \
  unsigned mode = 0;               \
  if (rack::TakesMode(flags)) {    \
    va_list rest;                  \
    va_start(rest, flags);         \
    mode = va_arg(rest, unsigned); \
    va_end(rest);                  \
  }

extern "C" {

int open(const char* path, int flags, ...) {
  RACK_MODE_ARGUMENT(flags)
  return rack::Open(rack::calls::open, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  RACK_MODE_ARGUMENT(flags)
  return rack::Open(rack::calls::open64, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  RACK_MODE_ARGUMENT(flags)
  return rack::OpenAt(rack::calls::openat, directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
  RACK_MODE_ARGUMENT(flags)
  return rack::OpenAt(rack::calls::openat64, directory, path, flags, mode);
}

// Names that fortified builds call.
int __open_2(const char* path, int flags) {
  return rack::Open(rack::calls::__open_2, path, flags);
}
int __open64_2(const char* path, int flags) {
  return rack::Open(rack::calls::__open64_2, path, flags);
}

int __openat_2(int directory, const char* path, int flags) {
  return rack::OpenAt(rack::calls::__openat_2, directory, path, flags);
}

int __openat64_2(int directory, const char* path, int flags) {
  return rack::OpenAt(rack::calls::__openat64_2, directory, path, flags);
}

ssize_t read(int descriptor, void* buffer, size_t count) {
  static rack::Next next(rack::calls::read);
  if (rack::IsHandle(descriptor)) return rack::ReadDevice(buffer, count);
  rack::CurrentTime().ReadFrom(descriptor);
  return next(descriptor, buffer, count);
}

ssize_t __read_chk(int descriptor, void* buffer, size_t count, size_t size) {
  static rack::Next next(rack::calls::__read_chk);
  if (rack::IsHandle(descriptor) && count <= size) return rack::ReadDevice(buffer, count);
  rack::CurrentTime().ReadFrom(descriptor);
  return next(descriptor, buffer, count, size);
}

ssize_t write(int descriptor, const void* buffer, size_t count) {
  static rack::Next next(rack::calls::write);
  if (rack::IsHandle(descriptor)) return rack::WriteDevice(buffer, count);
  if (descriptor != STDOUT_FILENO && descriptor != STDERR_FILENO) return next(descriptor, buffer, count);
  return rack::WriteConsole(descriptor, buffer, count);
}

int close(int descriptor) {
  static rack::Next next(rack::calls::close);
  if (descriptor >= 0 && rack::ReplaceHandle(descriptor + 1, 0)) {
    if (rack::Session* session = rack::OwnSession()) session->DeviceClosed();
  }
  return next(descriptor);
}

FILE* fopen(const char* path, const char* mode) {
  return rack::OpenStream(rack::calls::fopen, path, mode);
}
FILE* fopen64(const char* path, const char* mode) {
  return rack::OpenStream(rack::calls::fopen64, path, mode);
}

int fclose(FILE* stream) {
  static rack::Next next(rack::calls::fclose);
  if (rack::Session* session = rack::OwnSession()) session->FileClosed(stream);
  return next(stream);
}

void rewind(FILE* stream) {
  static rack::Next next(rack::calls::rewind);
  next(stream);
  if (rack::Session* session = rack::OwnSession()) session->FileRewound(stream);
}

char* fgets(char* buffer, int size, FILE* stream) {
  static rack::Next next(rack::calls::fgets);
  return rack::ReadLine(buffer, static_cast<std::size_t>(size > 0 ? size : 0), stream,
                        __builtin_return_address(0), [&](char* line) { return next(line, size, stream); });
}

char* __fgets_chk(char* buffer, size_t room, int size, FILE* stream) {
  static rack::Next next(rack::calls::__fgets_chk);
  return rack::ReadLine(buffer, static_cast<std::size_t>(size > 0 ? size : 0), stream,
                        __builtin_return_address(0),
                        [&](char* line) { return next(line, room, size, stream); });
}

int chmod(const char* path, mode_t mode) noexcept {
  static rack::Next next(rack::calls::chmod);
  char kept[rack::kLongPath];
  rack::Session* session = rack::OwnSession();
  if (session == nullptr) return next(path, mode);
  if (session->Redirect(path, kept, sizeof kept)) return next(kept, mode);
  errno = ENAMETOOLONG;
  return -1;
}

int reboot(int command) noexcept {
  return rack::Restart(command);
}

void sync() noexcept {
  rack::Sync();
}

// Six arguments are taken, however many the caller has given: some of them are whatever lies there, as for the call
// itself.
[[gnu::no_sanitize_address]] long syscall(long number, ...) noexcept {
  static rack::Next next(rack::calls::syscall);
  va_list rest;
  va_start(rest, number);
  long arguments[6];
  for (long& argument : arguments) argument = va_arg(rest, long);
  va_end(rest);
  // The restart call has two magic numbers in front of the command.
  if (number == SYS_reboot) return rack::Restart(static_cast<int>(arguments[2]));
  if (number == SYS_sync) {
    rack::Sync();
    return 0;
  }
  long result = 0;
  if (rack::CurrentTime().SystemCall(number, arguments, result)) return result;
  return next(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

}  // extern "C"

RACK_ARE_DEFINED(RACK_MACHINE_CALLS)
