// Readers of the journal that must lose nothing: in virtual time the controller's side stands until they have caught up.
//
// A table in the rack's state. A reader takes a slot and keeps its position and its beat up to date. The controller's
// side waits for the slowest of them before it overwrites what that one has not read; it frees the slot of a reader
// whose process has gone, or whose beat has stopped for 5 s. A reader without a slot is told what it loses.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "rack/journal.h"

namespace rack {

constexpr int kReaderSlots = 8;
constexpr int kReaderNameSize = 16;

struct ReaderSlot {
  std::atomic<std::uint32_t> process;   // 0: free
  std::atomic<std::uint32_t> position;  // number of the record that is read next; waited for
  std::atomic<std::uint32_t> beat;
  std::uint32_t reserved;
  std::uint64_t started;       // when the process started, as the system counts it
  char name[kReaderNameSize];  // "trace"
};
static_assert(sizeof(ReaderSlot) == 40);

struct ReaderTable {
  std::atomic<std::uint32_t> changes;   // slots taken
  std::atomic<std::uint32_t> waitsFor;  // number of the slot that is waited for, from 1 on; 0: none
  ReaderSlot slots[kReaderSlots];
};

// "trace (process 123)", what the controller's side waits for; empty: nothing.
std::string WaitedFor(const ReaderTable& table);

using KernelCall = long (*)(long number, ...) noexcept;

// When a process started; 0 when there is none, or it has ended. kernel: within the controller the one behind the
// library, whose own refuses what virtual time does not answer.
std::uint64_t StartOfProcess(std::uint32_t process, KernelCall kernel);

class PatientReader {
 public:
  // Without a table it reads as any other reader does.
  PatientReader(const JournalRing& ring, ReaderTable* table, JournalReader::Start start, const char* name);
  ~PatientReader();
  PatientReader(const PatientReader&) = delete;
  PatientReader& operator=(const PatientReader&) = delete;
  PatientReader(PatientReader&&) = delete;
  PatientReader& operator=(PatientReader&&) = delete;

  // As those of JournalReader. To be called again and again, at least every few seconds.
  JournalReader::Result Next(JournalRecord& record, std::uint64_t& lost);
  std::uint32_t Number() const { return reader_.Number(); }

 private:
  void TakeSlot(ReaderTable& table, const char* name);
  void Publish();

  JournalReader reader_;
  ReaderTable* table_;
  ReaderSlot* slot_ = nullptr;
  std::uint32_t process_ = 0;
  unsigned unpublished_ = 0;
};

}  // namespace rack
