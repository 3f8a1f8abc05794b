#include "rack/time_control.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

namespace rack {

std::string BrokenText(const TimeControl& time) {
  if (time.broken.load(std::memory_order_acquire) == 0) return "";
  return {time.reason, strnlen(time.reason, kReasonSize)};
}

namespace {

// A word of the new command carries `begun` with it: who has read one under the last number finds that it is no longer
// the number that was begun last.
void Write(CommandCell& cell, const TimeCommand& command, std::uint32_t number) {
  std::uint32_t words[kCommandWords];
  std::memcpy(words, &command, sizeof words);
  cell.begun.store(number, std::memory_order_relaxed);
  for (std::uint32_t i = 0; i < kCommandWords; ++i) cell.words[i].store(words[i], std::memory_order_release);
}

}  // namespace

void OrderAtStart(TimeControl& time, const TimeCommand& command) {
  Write(time.command, command, 0);
}

std::uint32_t Order(TimeControl& time, const TimeCommand& command) {
  // Released by the number, which ReadOrder acquires before the command. The answers come back likewise: where time
  // stands is written before `standing`, which Stands acquires after the number of the command.
  time.standing.store(0, std::memory_order_relaxed);
  const std::uint32_t number = time.ordered.load(std::memory_order_relaxed) + 1;
  Write(time.command, command, number);
  time.ordered.store(number, std::memory_order_release);
  syscall(SYS_futex, &time.ordered, FUTEX_WAKE, 1, nullptr, nullptr, 0);
  return number;
}

bool ReadOrder(const TimeControl& time, TimeCommand& command, std::uint32_t& number) {
  const CommandCell& cell = time.command;
  number = time.ordered.load(std::memory_order_acquire);
  std::uint32_t words[kCommandWords];
  for (std::uint32_t i = 0; i < kCommandWords; ++i) words[i] = cell.words[i].load(std::memory_order_acquire);
  // The words were acquired, so this look stays behind them, relaxed as it is.
  if (cell.begun.load(std::memory_order_relaxed) != number) return false;
  std::memcpy(&command, words, sizeof command);
  return true;
}

void AwaitStanding(const TimeControl& time) {
  // The caller also wants to know of a controller that has ended, which wakes nobody.
  constexpr timespec kLimit = {0, 5'000'000};
  syscall(SYS_futex, &time.standing, FUTEX_WAIT, 0, &kLimit, nullptr, 0);
}

bool Stands(const TimeControl& time, std::uint32_t number) {
  return time.answered.load(std::memory_order_acquire) == number &&
         time.standing.load(std::memory_order_acquire) != 0;
}

bool Post(TimeControl& time, const std::string& data, std::uint32_t address, std::uint16_t port) {
  const std::uint32_t next = time.posted.load(std::memory_order_relaxed);
  if (data.size() > kMailSize) return false;
  if (next - time.taken.load(std::memory_order_acquire) >= kMailCapacity) return false;
  MailItem& item = time.mail[next % kMailCapacity];
  item.address = address;
  item.port = port;
  item.length = static_cast<std::uint16_t>(data.size());
  std::memcpy(item.data, data.data(), data.size());
  // Released with the datagram, acquired in NextMail; its place is written again only when `taken` was acquired.
  time.posted.store(next + 1, std::memory_order_release);
  return true;
}

const MailItem* NextMail(const TimeControl& time) {
  const std::uint32_t taken = time.taken.load(std::memory_order_relaxed);
  if (time.posted.load(std::memory_order_acquire) == taken) return nullptr;
  return &time.mail[taken % kMailCapacity];
}

void TakeMail(TimeControl& time) {
  time.taken.fetch_add(1, std::memory_order_release);
}

Nanos PassedTime(const TimeSetup& setup, Nanos powerOn, Nanos monotonic) {
  if (setup.mode != TimeMode::Scaled) return monotonic - powerOn;
  const double passed = static_cast<double>(monotonic - setup.realStart);
  return static_cast<Nanos>(passed * setup.factorMillis / 1000.0);
}

}  // namespace rack
