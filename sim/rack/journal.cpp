#include "rack/journal.h"

#include <cstring>

namespace rack {

void Append(JournalRing& ring, const JournalRecord& record) {
  std::uint32_t words[kRecordWords];
  std::memcpy(words, &record, sizeof words);
  const std::uint32_t number = ring.next.load(std::memory_order_relaxed);
  JournalCell& cell = ring.cells[number % kJournalCapacity];
  // A stamp of 0 goes out before any word does: a reader that sees a new word under an old stamp finds the
  // stamp gone.
  cell.stamp.store(0, std::memory_order_relaxed);
  for (std::uint32_t i = 0; i < kRecordWords; ++i) cell.words[i].store(words[i], std::memory_order_release);
  cell.stamp.store(number + 1, std::memory_order_release);
  ring.next.store(number + 1, std::memory_order_release);
}

JournalReader::JournalReader(const JournalRing& ring, Start start) : ring_(ring) {
  position_ = ring.next.load(std::memory_order_acquire);
  if (start == Start::Newest) return;
  // Until the ring is full, its last cell is untouched and the oldest record is number 0.
  const bool wrapped = ring.cells[kJournalCapacity - 1].stamp.load(std::memory_order_acquire) != 0;
  position_ = wrapped ? position_ - kJournalCapacity : 0;
}

JournalReader::Result JournalReader::Next(JournalRecord& record, std::uint64_t& lost) {
  for (;;) {
    const std::uint32_t behind = ring_.next.load(std::memory_order_acquire) - position_;
    if (behind == 0) return Result::Nothing;
    if (behind > kJournalCapacity) {
      lost += behind - kJournalCapacity;
      position_ += behind - kJournalCapacity;
    }
    const JournalCell& cell = ring_.cells[position_ % kJournalCapacity];
    const std::uint32_t stamp = cell.stamp.load(std::memory_order_acquire);
    std::uint32_t words[kRecordWords];
    for (std::uint32_t i = 0; i < kRecordWords; ++i) words[i] = cell.words[i].load(std::memory_order_acquire);
    // The words were acquired, so the second look at the stamp stays behind them, relaxed as it is.
    const bool whole = stamp == position_ + 1 && cell.stamp.load(std::memory_order_relaxed) == stamp;
    ++position_;
    if (!whole) {
      ++lost;
      continue;
    }
    std::memcpy(&record, words, sizeof record);
    return Result::Record;
  }
}

}  // namespace rack
