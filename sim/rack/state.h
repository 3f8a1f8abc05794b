// The rack's state: one file, mapped into memory by the controller's side and by the tools.
//
// Fixed-width fields at the same offsets in 32-bit and 64-bit processes, no lock inside. Who writes what:
//  - image: the tool, when it creates the file (power-on); constant from then on.
//  - live: the controller's side only, within a LiveChange.
//  - requests: see requests.h. journal, polls: the controller's side; after its end the tool that ran it, in FinishPolls.
//    time: see time_control.h.
// The file outlasts a restart of the controller, as the cards' registers do.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

#include "cards/card_kinds.h"
#include "plant/plant.h"
#include "rack/console_hold.h"
#include "rack/poll_folder.h"
#include "rack/readers.h"
#include "rack/requests.h"
#include "rack/time_control.h"

namespace rack {

constexpr int kSlots = 13;  // slot 0 is the CPU card, 1 to 12 the plug-in slots
constexpr int kMaxFaults = 32;
constexpr int kMaxSignals = 512;
constexpr int kSignalNameSize = 40;  // terminating zero included
constexpr int kTaskRecords = 10;     // 0 keypad, 1 to 8 PLC tasks, 9 network
constexpr int kMaxProgramFiles = 256;
constexpr std::uint32_t kOtherProgramFile = kMaxProgramFiles + 1;  // number of every file beyond these
constexpr int kPathSize = 208;
constexpr int kLineSize = 1024;
constexpr int kPauseSize = 32;  // of a line that sets a pause, what matters of it

// Which of the two device names exists.
enum class DeviceName : std::uint32_t { None = 0, EmIsa, Em335xIsa };

struct SignalName {
  std::uint8_t output;  // 1: an output or relay, 0: an input
  std::uint8_t entry;
  std::uint8_t channel;
  std::uint8_t reserved;
  char name[kSignalNameSize];  // empty: row not used, nor any behind it
};
static_assert(sizeof(SignalName) == 44);

// What the rack file says of the rack as a whole, and the options of the run.
struct RackImage {
  DeviceName device;
  std::uint32_t restartFails;  // 1: the restart call returns an error instead of ending the process
  std::uint32_t entryCount;    // rows of the card table after the controller's scan
  std::uint8_t entrySlot[kMaxEntries];
  SignalName signals[kMaxSignals];
  char linkNames[kMaxLinks][kSignalNameSize];  // what the rack file calls the plant's links; empty: nothing
  CardState cards[kSlots];                     // by slot, as they are at power-on
};
static_assert(offsetof(RackImage, cards) == 24 + 44 * kMaxSignals + 40 * kMaxLinks);

// Inputs 0 to 15 of a card, one bit each. The card shows the natural level, over it what was set by hand,
// over both what a fault holds.
struct InputLevels {
  std::uint16_t natural;
  std::uint16_t setMask;
  std::uint16_t setLevel;
  std::uint16_t stuckMask;
  std::uint16_t stuckLevel;
  std::uint16_t reserved;

  std::uint16_t Shown() const {
    const unsigned set = (natural & ~unsigned{setMask}) | (setLevel & unsigned{setMask});
    return static_cast<std::uint16_t>((set & ~unsigned{stuckMask}) | (stuckLevel & unsigned{stuckMask}));
  }
};
static_assert(sizeof(InputLevels) == 12);

struct FaultRecord {
  FaultKind kind;  // None: row not used
  std::uint8_t slot;
  std::uint8_t channel;
  std::uint8_t reserved;
  std::int32_t value;
  Nanos begin;
  Nanos end;  // 0: lasts until it is cleared
};
static_assert(sizeof(FaultRecord) == 24);

// What the card in a slot has protested against last.
struct ProtestRecord {
  Nanos at;
  std::uint32_t count;  // protests since power-on, 0: none
  std::uint32_t file;   // program line that was executed, as in JournalRecord
  std::uint32_t line;
  std::int32_t value;  // as in JournalRecord
  std::uint8_t task;
  std::uint8_t port;
  std::uint8_t reserved[6];
};
static_assert(sizeof(ProtestRecord) == 32);

// The key that is held down, and what became of keys pressed by request.
struct KeyState {
  std::uint32_t code;          // 0: none is held
  std::uint32_t functionBits;  // held function keys
  Nanos nextRepeat;
  Nanos release;  // kNever: a request lets it go
  Nanos functionRelease;
  std::uint32_t pressRequest;  // number of the request that pressed last
  std::uint32_t takenRequest;  // number of the last press whose code (function bits) the controller has taken
  std::uint32_t takenCount;    // codes taken since power-on
  std::uint32_t pressCount;    // presses since power-on; with none, the two numbers above mean nothing
};
static_assert(sizeof(KeyState) == 48);

// What the controller's own file calls tell about a task. File numbers count from 1 in
// RackLive::programFiles.
struct TaskRecord {
  std::uint32_t mainFile;      // open main program, 0: none
  std::uint32_t blockFile;     // open block file, 0: none
  std::uint32_t file;          // file of the line read last, 0: none yet
  std::uint32_t line;          // its line, counted from 1
  std::uint32_t endReads;      // reads at the end of a file since that line: it is executed again at each
  std::uint32_t failedOpens;   // program files that could not be opened, since power-on
  std::uint32_t searches;      // label searches since power-on
  std::uint32_t searchFailed;  // 1: the last label search found nothing
  Nanos lineSince;             // when the line was read
  Nanos lastEndRead;
  Nanos failedAt;
  Nanos lastAccess;  // last bus access of this thread
  std::uint8_t lastSlot;
  std::uint8_t lastPort;
  std::uint8_t reserved[2];
  std::uint32_t thread;        // number of its thread, as the system counts
  char text[kLineSize];        // the line, as read
  char failedPath[kPathSize];  // the file that could not be opened last
  char pauseText[kPauseSize];  // the line read last that sets the pause between commands
};
static_assert(sizeof(TaskRecord) == 72 + kLineSize + kPathSize + kPauseSize);
static_assert(offsetof(TaskRecord, lineSince) == 32);

struct ControllerRecord {
  std::int32_t process;    // process number of the controller that attached last
  std::uint32_t attaches;  // controllers that opened (or tried to open) the device since power-on
  std::uint32_t deviceOpen;
  std::uint32_t syncs;
  std::uint32_t restarts;
  std::uint32_t reserved;
  Nanos attachedAt;
  Nanos restartAt;
};
static_assert(sizeof(ControllerRecord) == 40);

// What the controller's scan of this start made of the slots.
enum class Probe : std::uint8_t {
  None = 0,
  Read,
  Unreadable  // the card was pulled, or the read failed
};
struct ScannedSlot {
  Probe probe;
  std::uint8_t code;    // what the probe has read
  std::uint8_t listed;  // 1: in the list that the controller has printed
  std::uint8_t listedCode;
};
struct ScanRecord {
  // Number of the start (ControllerRecord::attaches) whose list is complete: what follows then stays as it is
  // until the next start. 0 before.
  std::atomic<std::uint32_t> over;
  ScannedSlot slots[kSlots];
};
static_assert(sizeof(ScanRecord) == 4 + 4 * kSlots);

// Whether the tasks are in step mode, by the keys that the controller has taken since it opened the device: Plus turns it
// on, Dec off, Enter only where no Plus came since the last Dec.
struct StepMode {
  std::uint8_t on;
  std::uint8_t latched;
  std::uint8_t reserved[2];

  void Take(std::int32_t code);
};
static_assert(sizeof(StepMode) == 4);

struct RackLive {
  std::atomic<std::uint32_t> change;  // odd while the controller's side is changing what follows
  std::uint32_t selectedSlot;
  Nanos now;  // time up to which the machine has been worked out
  ControllerRecord controller;
  KeyState keys;
  InputLevels inputs[kSlots];
  ScanRecord scan;
  StepMode step;
  FaultRecord faults[kMaxFaults];
  CardState cards[kSlots];         // by slot
  ProtestRecord protests[kSlots];  // by slot
  PlantState plant;
  TaskRecord tasks[kTaskRecords];
  char programFiles[kMaxProgramFiles][kPathSize];
};
static_assert(offsetof(RackLive, controller) == 16);
static_assert(offsetof(RackLive, keys) == 56);
static_assert(offsetof(RackLive, inputs) == 104);
static_assert(offsetof(RackLive, faults) == 320);
static_assert(offsetof(RackLive, cards) == 320 + 24 * kMaxFaults);

constexpr char kStateMagic[8] = {'V', 'e', 'l', 'm', 'o', 'R', 'c', 'k'};
constexpr std::uint32_t kStateVersion = 6;

struct RackState {
  char magic[8];
  std::uint32_t version;
  std::uint32_t size;
  Nanos powerOn;  // what CLOCK_MONOTONIC shows the controller at power-on: the rack's time 0
  RackImage image;
  alignas(8) RackLive live;
  RequestRing requests;
  JournalRing journal;
  PollTracks polls;
  TimeControl time;
  ReaderTable readers;
  ConsoleHold console;
};
static_assert(offsetof(RackState, powerOn) == 16);
static_assert(offsetof(RackState, image) == 24);
static_assert(std::is_standard_layout_v<RackState>);

// A rack as the rack file describes it, before its power-on.
struct RackSetup {
  RackImage image;
  TimeSetup time;
  PlantState plant;                     // its links
  std::uint16_t inputsOn[kMaxEntries];  // inputs that are switched on at power-on, by entry
};

// An empty rack: device "em_isa", a CPU card with one task, nothing in the slots.
void MakeEmptySetup(RackSetup& setup);
// A card with its power-on registers in a slot (0 to 12; slot 0 takes only the CPU card).
void InsertCard(RackSetup& setup, int slot, CardKind kind);
// Numbers the card table's rows as the controller's scan will: the CPU card, then the slots in rising order.
void AssignEntries(RackSetup& setup);

// Slot of a row of the card table, -1 when the row is not used.
int SlotOfEntry(const RackImage& image, int entry);
// Row of the card in a slot, -1 when it has none.
int EntryOfSlot(const RackImage& image, int slot);

// The row of a signal's name, null when the channel has none.
const SignalName* NameOf(const RackImage& image, bool output, int entry, int channel);
// The signal of that name (upper and lower case differ), null when there is none.
const SignalName* FindSignal(const RackImage& image, const char* name);

// Exit status of a controller that ended by an intercepted restart.
constexpr int kRestartStatus = 85;
// Environment variable that tells the preloaded library its state file.
constexpr const char* kStateVariable = "VELMO_RACK_STATE";

// CLOCK_MONOTONIC in nanoseconds.
Nanos MonotonicNow();

// A mapping of a state file. What fails says why in `error`.
class StateFile {
 public:
  StateFile() = default;
  ~StateFile();
  StateFile(const StateFile&) = delete;
  StateFile& operator=(const StateFile&) = delete;

  // Power-on: creates or replaces the file, with the given rack at its time 0.
  bool Create(const std::string& path, const RackSetup& setup, std::string& error);
  bool Open(const std::string& path, std::string& error);
  // Whether the file has been replaced since: the machine was powered on again.
  bool Replaced() const;
  void Close();

  RackState* State() const { return mapped_; }

  // Held by a tool while it sends requests, against the other tools and against its own threads: the lock on
  // the file does not part threads that share the descriptor.
  class SenderLock {
   public:
    explicit SenderLock(const StateFile& file);
    ~SenderLock();
    SenderLock(const SenderLock&) = delete;
    SenderLock& operator=(const SenderLock&) = delete;

   private:
    std::lock_guard<std::mutex> thread_;
    int descriptor_;
  };

 private:
  bool Map(int descriptor, std::string& error);

  RackState* mapped_ = nullptr;
  int descriptor_ = -1;
  std::string path_;
  mutable std::mutex sender_;
};

// Puts the power-on state of a rack into zeroed memory.
void PowerOn(RackState& state, const RackSetup& setup, Nanos monotonic);

// The controller has ended, in whatever way: the journal is told what was counted of its polls. By whoever ran it.
void FinishPolls(RackState& state);

// A copy of what the controller's side keeps changing. False when no steady moment was found within about 100
// ms (the controller ended in the middle of a change): the copy may then be torn.
bool CopyLive(RackLive& live, RackLive& copy);

// Marks a change of RackLive for readers. The controller's side only, one thread at a time.
class LiveChange {
 public:
  explicit LiveChange(RackLive& live);
  ~LiveChange();
  LiveChange(const LiveChange&) = delete;
  LiveChange& operator=(const LiveChange&) = delete;

 private:
  RackLive& live_;
};

}  // namespace rack
