#include "rack/journal.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace rack {

namespace {

struct KindWord {
  JournalKind kind;
  const char* word;
};

constexpr KindWord kWords[] = {
    {JournalKind::None, "none"},
    {JournalKind::Read, "read"},
    {JournalKind::ReadFailed, "read-failed"},
    {JournalKind::Write, "write"},
    {JournalKind::InputEdge, "input"},
    {JournalKind::OutputChange, "output"},
    {JournalKind::RelayChange, "relay"},
    {JournalKind::Key, "key"},
    {JournalKind::KeyTaken, "key-taken"},
    {JournalKind::FunctionKeys, "function-keys"},
    {JournalKind::MotorMove, "motor"},
    {JournalKind::MotorCount, "count"},
    {JournalKind::CylinderState, "cylinder"},
    {JournalKind::CounterValue, "counter"},
    {JournalKind::FaultBegins, "fault"},
    {JournalKind::FaultEnds, "fault-over"},
    {JournalKind::Device, "device"},
    {JournalKind::ProgramLine, "line"},
    {JournalKind::ProgramEnd, "file-end"},
    {JournalKind::ProgramOpened, "program"},
    {JournalKind::ProgramMissing, "program-missing"},
    {JournalKind::Sync, "sync"},
    {JournalKind::Restart, "restart"},
    {JournalKind::ConsoleText, "console"},
    {JournalKind::MotorPulses, "pulses"},
    {JournalKind::MotorPosition, "position"},
    {JournalKind::CardProtests, "protest"},
    {JournalKind::InputTaken, "taken"},
    {JournalKind::InputGivenBack, "given-back"},
    {JournalKind::HardStop, "hard-stop"},
    {JournalKind::Repeats, "repeats"},
};
static_assert(AreRowsOf(kWords, &KindWord::kind, static_cast<std::size_t>(JournalKind::Repeats) + 1),
              "a word for each kind, in order");

}  // namespace

const char* WordOf(JournalKind kind) {
  return kWords[static_cast<std::size_t>(kind)].word;
}

JournalKind KindOfWord(const std::string& word) {
  const auto* const row = std::find_if(std::begin(kWords), std::end(kWords),
                                       [&](const KindWord& each) { return word == each.word; });
  return row == std::end(kWords) ? JournalKind::None : row->kind;
}

std::vector<std::string> KindWords() {
  std::vector<std::string> words;
  for (const KindWord& row : kWords) {
    if (row.kind != JournalKind::None) words.emplace_back(row.word);
  }
  return words;
}

std::uint32_t Append(JournalRing& ring, const JournalRecord& record) {
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
  return number;
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
    if (record.kind > JournalKind::Repeats) {  // of no run of this program
      ++lost;
      continue;
    }
    return Result::Record;
  }
}

}  // namespace rack
