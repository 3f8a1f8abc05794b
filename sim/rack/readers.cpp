#include "rack/readers.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rack {

namespace {

constexpr unsigned kPublishEvery = 1024;

}  // namespace

std::uint64_t StartOfProcess(std::uint32_t process, KernelCall kernel) {
  constexpr int kFieldsToStart = 20;  // of /proc/PID/stat, counted from the state behind the name
  char path[40];
  std::snprintf(path, sizeof path, "/proc/%u/stat", process);
  char text[1024];
  const long file = kernel(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC, 0);
  if (file < 0) return 0;
  const long count = kernel(SYS_read, file, text, sizeof text - 1);
  kernel(SYS_close, file);
  if (count <= 0) return 0;
  text[count] = '\0';
  // The name of the program stands in brackets and may hold some itself.
  const char* field = std::strrchr(text, ')');
  if (field == nullptr || field[1] == '\0' || field[2] == 'Z' || field[2] == 'X') return 0;
  for (int i = 0; i < kFieldsToStart && field != nullptr; ++i) field = std::strchr(field + 1, ' ');
  return field == nullptr ? 0 : std::strtoull(field, nullptr, 10);
}

std::string WaitedFor(const ReaderTable& table) {
  const std::uint32_t number = table.waitsFor.load(std::memory_order_acquire);
  if (number == 0 || number > kReaderSlots) return "";
  const ReaderSlot& slot = table.slots[number - 1];
  return std::string(slot.name, strnlen(slot.name, kReaderNameSize)) + " (process " +
         std::to_string(slot.process.load(std::memory_order_relaxed)) + ")";
}

PatientReader::PatientReader(const JournalRing& ring, ReaderTable* table, JournalReader::Start start,
                             const char* name)
    : reader_(ring, start), table_(table), process_(static_cast<std::uint32_t>(getpid())) {
  if (table != nullptr) TakeSlot(*table, name);
}

PatientReader::~PatientReader() {
  if (slot_ == nullptr) return;
  std::uint32_t own = process_;
  slot_->process.compare_exchange_strong(own, 0);
  syscall(SYS_futex, &slot_->position, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

// The process is written last but one: a slot counts from the change of the table on.
void PatientReader::TakeSlot(ReaderTable& table, const char* name) {
  for (ReaderSlot& slot : table.slots) {
    std::uint32_t free = 0;
    if (!slot.process.compare_exchange_strong(free, process_)) continue;
    slot_ = &slot;
    slot.position.store(reader_.Number(), std::memory_order_relaxed);
    slot.started = StartOfProcess(process_, &syscall);
    std::memset(slot.name, 0, sizeof slot.name);
    std::memcpy(slot.name, name, strnlen(name, sizeof slot.name - 1));
    table.changes.fetch_add(1, std::memory_order_release);
    return;
  }
}

JournalReader::Result PatientReader::Next(JournalRecord& record, std::uint64_t& lost) {
  const JournalReader::Result result = reader_.Next(record, lost);
  if (result == JournalReader::Result::Nothing || ++unpublished_ == kPublishEvery) Publish();
  return result;
}

void PatientReader::Publish() {
  unpublished_ = 0;
  if (slot_ == nullptr) return;
  slot_->beat.fetch_add(1, std::memory_order_relaxed);
  slot_->position.store(reader_.Number(), std::memory_order_release);
  if (table_->waitsFor.load(std::memory_order_acquire) == 0) return;
  syscall(SYS_futex, &slot_->position, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

}  // namespace rack
