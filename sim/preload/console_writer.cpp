#include "preload/console_writer.h"

#include <poll.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "preload/next.h"
#include "preload/time_source.h"

namespace rack {
namespace {

constexpr long long kHeldMillis = 20;  // of real time at most, while the turn is passed on

// Real time; to a few milliseconds, which costs no system call.
long long NowMillis() {
  static Next next(calls::clock_gettime);
  timespec now{};
  next(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1'000'000;
}

// A write that is taken leaves errno as it was.
bool IsTerminal() {
  const int reason = errno;
  const bool is = isatty(STDOUT_FILENO) == 1;
  errno = reason;
  return is;
}

}  // namespace

// The system's console may take nothing or a part, where the controller has told it not to wait.
ssize_t WriteWhole(int descriptor, const char* text, std::size_t size) {
  static Next next(calls::write);
  static Next wait(calls::poll);
  for (std::size_t done = 0;;) {
    const ssize_t count = next(descriptor, text + done, size - done);
    if (count > 0) done += static_cast<std::size_t>(count);
    if (done == size) return static_cast<ssize_t>(size);
    if (count < 0 && errno != EAGAIN && errno != EINTR) return done > 0 ? static_cast<ssize_t>(done) : -1;
    pollfd file = {descriptor, POLLOUT, 0};
    wait(&file, 1, -1);
  }
}

// Who looks at a terminal sees each line at once. What is printed by stdio as well would come out of order.
bool ConsoleWriter::MayHold() const {
  static const bool isTerminal = IsTerminal();
  return !gone_ && !isTerminal && __fbufsize(stdout) == 0;
}

bool ConsoleWriter::Hold(const char* text, std::size_t size) {
  if (MayHold() && HoldConsole(hold_, text, size)) return true;
  Write();
  return MayHold() && HoldConsole(hold_, text, size);
}

void ConsoleWriter::Write() {
  const char* text = nullptr;
  const std::size_t size = HeldConsole(hold_, text);
  if (size == 0) return;
  const int reason = errno;
  CurrentTime().ConsoleBegins();
  const ssize_t count = WriteWhole(STDOUT_FILENO, text, size);
  CurrentTime().ConsoleEnds();
  gone_ = count < static_cast<ssize_t>(size);
  ConsoleWritten(hold_, size);
  errno = reason;
}

void ConsoleWriter::WriteInTime() {
  const char* text = nullptr;
  if (HeldConsole(hold_, text) == 0) return;
  const long long now = NowMillis();
  if (now - written_ < kHeldMillis) return;
  written_ = now;
  Write();
}

}  // namespace rack
