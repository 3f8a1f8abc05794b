#include "rack/time_control.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

namespace rack {

std::uint32_t Order(TimeControl& time, const TimeCommand& command) {
  time.Command = command;
  const std::uint32_t number = time.Ordered.load(std::memory_order_relaxed) + 1;
  time.Ordered.store(number, std::memory_order_release);
  syscall(SYS_futex, &time.Ordered, FUTEX_WAKE, 1, nullptr, nullptr, 0);
  return number;
}

bool Stands(const TimeControl& time, std::uint32_t number) {
  return time.Answered.load(std::memory_order_acquire) == number &&
         time.Standing.load(std::memory_order_acquire) != 0;
}

bool Post(TimeControl& time, const std::string& data, std::uint32_t address, std::uint16_t port) {
  const std::uint32_t next = time.Posted.load(std::memory_order_relaxed);
  if (data.size() > kMailSize) return false;
  if (next - time.Taken.load(std::memory_order_acquire) >= kMailCapacity) return false;
  MailItem& item = time.Mail[next % kMailCapacity];
  item.Address = address;
  item.Port = port;
  item.Length = static_cast<std::uint16_t>(data.size());
  std::memcpy(item.Data, data.data(), data.size());
  time.Posted.store(next + 1, std::memory_order_release);
  return true;
}

const MailItem* NextMail(const TimeControl& time) {
  const std::uint32_t taken = time.Taken.load(std::memory_order_relaxed);
  if (time.Posted.load(std::memory_order_acquire) == taken) return nullptr;
  return &time.Mail[taken % kMailCapacity];
}

void TakeMail(TimeControl& time) {
  time.Taken.fetch_add(1, std::memory_order_release);
}

Nanos PassedTime(const TimeSetup& setup, Nanos powerOn, Nanos monotonic) {
  if (setup.Mode != TimeMode::Scaled) return monotonic - powerOn;
  const double passed = static_cast<double>(monotonic - setup.RealStart);
  return static_cast<Nanos>(passed * setup.FactorMillis / 1000.0);
}

}  // namespace rack
