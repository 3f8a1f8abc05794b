// Console bytes of virtual time that are written in one piece with those behind them: in the state, where they outlive a
// controller that is killed. Its side appends and writes them; whoever ran it writes the rest when it has ended.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rack {

constexpr std::uint32_t kConsoleHoldSize = 32 * 1024;

struct ConsoleHold {
  std::atomic<std::uint32_t> begin;  // held are the bytes from here
  std::atomic<std::uint32_t> end;    // to here; both 0 again when none is
  char bytes[kConsoleHoldSize];
};
static_assert(sizeof(ConsoleHold) == 8 + kConsoleHoldSize);

// Appends whole or not at all.
bool HoldConsole(ConsoleHold& hold, const char* text, std::size_t size);
// What is held, and that so much of it was written.
std::size_t HeldConsole(const ConsoleHold& hold, const char*& text);
void ConsoleWritten(ConsoleHold& hold, std::size_t size);
// The controller has ended: writes to this descriptor what it held.
void FinishConsole(ConsoleHold& hold, int descriptor);

}  // namespace rack
