#include "preload/journal_room.h"

#include <linux/futex.h>
#include <sys/syscall.h>

#include <ctime>

#include "preload/next.h"

namespace rack {

namespace {

constexpr std::uint32_t kMargin = 8192;  // more than one call of the controller writes
constexpr long kPiece = 200'000'000;     // ns of one wait
constexpr int kPiecesWithoutBeat = 25;   // 5 s

// Whether the first number comes at or behind the second; they wrap.
bool Reaches(std::uint32_t number, std::uint32_t limit) {
  return static_cast<std::int32_t>(number - limit) >= 0;
}

}  // namespace

void JournalRoom::Await(RackState& state, ConsoleWriter& console) {
  if (state.time.setup.mode != TimeMode::Virtual) return;
  const std::uint32_t next = state.journal.next.load(std::memory_order_relaxed);
  const std::uint32_t changes = state.readers.changes.load(std::memory_order_acquire);
  if (known_ && changes == changes_ && !Reaches(next, until_)) return;
  known_ = true;
  changes_ = changes;
  for (ReaderSlot* slot = Slowest(state); Reaches(next, until_); slot = Slowest(state)) {
    console.Write();
    WaitFor(state, *slot);
  }
}

// The reader that is furthest behind, null without one; sets up to where there is room.
ReaderSlot* JournalRoom::Slowest(RackState& state) {
  constexpr std::uint32_t kHeld = kJournalCapacity - kMargin;
  const std::uint32_t next = state.journal.next.load(std::memory_order_relaxed);
  ReaderSlot* slowest = nullptr;
  until_ = next + kHeld;
  for (ReaderSlot& slot : state.readers.slots) {
    if (slot.process.load(std::memory_order_acquire) == 0) continue;
    const std::uint32_t until = slot.position.load(std::memory_order_acquire) + kHeld;
    if (Reaches(until, until_)) continue;
    until_ = until;
    slowest = &slot;
  }
  return slowest;
}

// Waits until the reader has moved on, or frees its slot.
void JournalRoom::WaitFor(RackState& state, ReaderSlot& slot) {
  static Next call(calls::syscall);
  const std::uint32_t position = slot.position.load(std::memory_order_acquire);
  const std::uint32_t process = slot.process.load(std::memory_order_acquire);
  std::uint32_t beat = slot.beat.load(std::memory_order_relaxed);
  const auto number = static_cast<std::uint32_t>(&slot - state.readers.slots) + 1;
  state.readers.waitsFor.store(number, std::memory_order_release);
  int silent = 0;
  while (slot.position.load(std::memory_order_acquire) == position && process != 0 &&
         slot.process.load(std::memory_order_acquire) == process) {
    const timespec piece = {0, kPiece};
    call(SYS_futex, &slot.position, FUTEX_WAIT, position, &piece, nullptr, 0);
    state.time.beat.fetch_add(1, std::memory_order_relaxed);  // this is no standstill
    const std::uint32_t now = slot.beat.load(std::memory_order_relaxed);
    silent = now == beat ? silent + 1 : 0;
    beat = now;
    const bool gone = StartOfProcess(process, call) != slot.started;
    std::uint32_t expected = process;
    if (gone || silent >= kPiecesWithoutBeat) slot.process.compare_exchange_strong(expected, 0);
  }
  state.readers.waitsFor.store(0, std::memory_order_release);
}

}  // namespace rack
