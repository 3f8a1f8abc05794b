#include "rack/console_hold.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace rack {

bool HoldConsole(ConsoleHold& hold, const char* text, std::size_t size) {
  const std::uint32_t end = hold.end.load(std::memory_order_relaxed);
  if (size > kConsoleHoldSize - end) return false;
  std::memcpy(hold.bytes + end, text, size);
  // Released: who finds the controller ended, and acquires it, reads whole bytes.
  hold.end.store(end + static_cast<std::uint32_t>(size), std::memory_order_release);
  return true;
}

std::size_t HeldConsole(const ConsoleHold& hold, const char*& text) {
  const std::uint32_t end = std::min(hold.end.load(std::memory_order_acquire), kConsoleHoldSize);
  const std::uint32_t begin = std::min(hold.begin.load(std::memory_order_relaxed), end);
  text = hold.bytes + begin;
  return end - begin;
}

void ConsoleWritten(ConsoleHold& hold, std::size_t size) {
  const std::uint32_t begin = hold.begin.load(std::memory_order_relaxed) + static_cast<std::uint32_t>(size);
  hold.begin.store(begin, std::memory_order_release);
  if (begin < hold.end.load(std::memory_order_relaxed)) return;
  // In this order: a controller that is killed in between leaves nothing held.
  hold.end.store(0, std::memory_order_release);
  hold.begin.store(0, std::memory_order_release);
}

void FinishConsole(ConsoleHold& hold, int descriptor) {
  const char* text = nullptr;
  for (std::size_t size = HeldConsole(hold, text); size != 0; size = HeldConsole(hold, text)) {
    const ssize_t count = write(descriptor, text, size);
    if (count < 0 && errno == EINTR) continue;
    ConsoleWritten(hold, count < 0 ? size : static_cast<std::size_t>(count));
  }
  ConsoleWritten(hold, 0);
}

}  // namespace rack
