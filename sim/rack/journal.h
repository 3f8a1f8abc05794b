// The rack's journal: what happened on the bus and in the machine, in the order of its recording.
//
// A ring in the rack's state. The controller's side appends; any number of readers in other processes follow
// it. A reader that falls behind by more than the ring holds is told how many records it lost.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "cards/card.h"

namespace rack {

enum class JournalKind : std::uint8_t {
  // With the word of each kind: kWords in journal.cpp.
  None = 0,
  Read,            // slot, port, value: the byte that the controller got
  ReadFailed,      // slot, port: the read call itself failed
  Write,           // slot, port, value
  InputEdge,       // slot, channel, value 0 or 1: what the card shows from this time on
  OutputChange,    // slot, channel, value 0 or 1
  RelayChange,     // slot, channel, value 0 or 1
  Key,             // value: scan code that the keypad sent; port 1: sent again by a held key
  KeyTaken,        // value: scan code that the controller has read and cleared
  FunctionKeys,    // value: function-key bits held down from this time on
  MotorMove,       // slot, channel, value 1: a move has started, 0: it has ended
  MotorCount,      // slot, channel, value: encoder count
  CylinderState,   // slot, channel, value: status byte in bits 0 to 7, position in bits 8 to 15
  CounterValue,    // channel: number of the plant's link, value: its count
  FaultBegins,     // slot, channel, value: FaultKind; line: the fault's own value
  FaultEnds,       // the same
  Device,          // value 1: the controller has opened the device, 0: closed it
  ProgramLine,     // task, file, line: the controller has read this line
  ProgramEnd,      // task, file, line: a read found the end of the file
  ProgramOpened,   // task, file
  ProgramMissing,  // task, file: could not be opened
  Sync,            // the controller flushed the file systems
  Restart,         // the controller asked for a restart
  ConsoleText,     // task; value: so many bytes have been written to standard output at this time
  MotorPulses,     // slot, channel, value: pulses of the move that ends
  MotorPosition,   // slot, channel, value: where the motor stands at its end, in steps
  CardProtests,    // slot, port; value: byte written in bits 0 to 7, Protest in bits 8 to 15
  InputTaken,      // slot, channel, value 0 or 1: a hand holds the input at this level from now on
  InputGivenBack,  // slot, channel: no hand holds it any more
  HardStop,  // slot, channel, value 1: the motor pushes against its hard stop from now on, line: where, in steps;
             // value 0: no longer, line: steps lost there
  Repeats  // a poll goes on, see poll_folder.h. slot: accesses of a round; value: accesses that came since;
           // line: number of the round's first record; file: nanoseconds since the last of them
};

// A read or a write of the bus.
constexpr bool IsAccess(JournalKind kind) {
  return kind == JournalKind::Read || kind == JournalKind::Write || kind == JournalKind::ReadFailed;
}

// The word of a kind, "read"; records of one kind have the same.
const char* WordOf(JournalKind kind);
// The kind of a word; None when it is none.
JournalKind KindOfWord(const std::string& word);
// All words, in the order of the kinds.
std::vector<std::string> KindWords();

// What a record of CardProtests holds.
constexpr std::int32_t ProtestValue(Protest protest, std::uint8_t value) {
  return static_cast<std::int32_t>(protest) << 8 | value;
}
constexpr Protest ProtestIn(std::int32_t value) {
  return static_cast<Protest>(value >> 8 & 0xFF);
}

// Who did it, where the card interface is silent about it.
constexpr std::uint8_t kMainThread = 0xFE;
constexpr std::uint8_t kUnknownTask = 0xFF;

// One record. task: 0 keypad, 1 to 8 PLC task, 9 network, kMainThread or kUnknownTask. file: number of the
// program file in the state's list, counted from 1, 0 for none. `line` counts from 1.
struct JournalRecord {
  Nanos time;
  JournalKind kind;
  std::uint8_t task;
  std::uint8_t slot;
  std::uint8_t port;  // or channel
  std::int32_t value;
  std::uint32_t line;
  std::uint32_t file;
};
static_assert(sizeof(JournalRecord) == 24);

constexpr std::uint32_t kJournalCapacity = 1U << 18;
constexpr std::uint32_t kRecordWords = sizeof(JournalRecord) / sizeof(std::uint32_t);

// A record as it lies in the ring: its number plus one, 0 while it is being written, then its contents word
// by word.
struct JournalCell {
  std::atomic<std::uint32_t> stamp;
  std::atomic<std::uint32_t> words[kRecordWords];
  std::uint32_t reserved;
};
static_assert(sizeof(JournalCell) == 32);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

struct JournalRing {
  std::atomic<std::uint32_t> next;  // number of the record to be written next; wraps at 32 bits
  std::uint32_t reserved;
  JournalCell cells[kJournalCapacity];
};

// Appends a record and yields its number. One writer at a time.
std::uint32_t Append(JournalRing& ring, const JournalRecord& record);

class JournalReader {
 public:
  enum class Result { Record, Nothing };

  // Starts behind the newest record, or with the oldest one that the ring still holds.
  enum class Start { Newest, Oldest };
  JournalReader(const JournalRing& ring, Start start);

  // The next record. `lost` is increased by the records that were overwritten before they could be read.
  Result Next(JournalRecord& record, std::uint64_t& lost);

  // Number of the record that comes next, counted from 0 at power-on; at the start with the oldest one, so
  // many were overwritten before.
  std::uint32_t Number() const { return position_; }

 private:
  const JournalRing& ring_;
  std::uint32_t position_;
};

}  // namespace rack
