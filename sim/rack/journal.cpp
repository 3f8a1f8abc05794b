#include "rack/journal.h"

#include <cstring>

namespace rack {

void Append(JournalRing& ring, const JournalRecord& record) {
  std::uint32_t words[kRecordWords];
  std::memcpy(words, &record, sizeof words);
  const std::uint32_t number = ring.Next.load(std::memory_order_relaxed);
  JournalCell& cell = ring.Cells[number % kJournalCapacity];
  // A stamp of 0 goes out before any word does: a reader that sees a new word under an old stamp finds the
  // stamp gone.
  cell.Stamp.store(0, std::memory_order_relaxed);
  for (std::uint32_t i = 0; i < kRecordWords; ++i) cell.Words[i].store(words[i], std::memory_order_release);
  cell.Stamp.store(number + 1, std::memory_order_release);
  ring.Next.store(number + 1, std::memory_order_release);
}

JournalReader::JournalReader(const JournalRing& ring, Start start) : Ring(ring) {
  Position = ring.Next.load(std::memory_order_acquire);
  if (start == Start::Newest) return;
  // Until the ring is full, its last cell is untouched and the oldest record is number 0.
  const bool wrapped = ring.Cells[kJournalCapacity - 1].Stamp.load(std::memory_order_acquire) != 0;
  Position = wrapped ? Position - kJournalCapacity : 0;
}

JournalReader::Result JournalReader::Next(JournalRecord& record, std::uint64_t& lost) {
  for (;;) {
    const std::uint32_t behind = Ring.Next.load(std::memory_order_acquire) - Position;
    if (behind == 0) return Result::Nothing;
    if (behind > kJournalCapacity) {
      lost += behind - kJournalCapacity;
      Position += behind - kJournalCapacity;
    }
    const JournalCell& cell = Ring.Cells[Position % kJournalCapacity];
    const std::uint32_t stamp = cell.Stamp.load(std::memory_order_acquire);
    std::uint32_t words[kRecordWords];
    for (std::uint32_t i = 0; i < kRecordWords; ++i) words[i] = cell.Words[i].load(std::memory_order_acquire);
    const bool whole = stamp == Position + 1 && cell.Stamp.load(std::memory_order_relaxed) == stamp;
    ++Position;
    if (!whole) {
      ++lost;
      continue;
    }
    std::memcpy(&record, words, sizeof record);
    return Result::Record;
  }
}

}  // namespace rack
