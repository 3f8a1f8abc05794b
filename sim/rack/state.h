// The rack's state: one file, mapped into memory by the controller's side and by the tools.
//
// Fixed-width fields at the same offsets in 32-bit and 64-bit processes, no lock inside. Who writes what:
//  - Image: the tool, when it creates the file (power-on); constant from then on.
//  - Live: the controller's side only, between BeginChange and EndChange.
//  - Requests: see requests.h. Journal: the controller's side appends. Time: see time/control.h.
// The file outlasts a restart of the controller, as the cards' registers do.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

#include "cards/any_card.h"
#include "plant/plant.h"
#include "rack/journal.h"
#include "rack/requests.h"
#include "rack/time_control.h"

namespace rack {

constexpr int kSlots = 13;  // slot 0 is the CPU card, 1 to 12 the plug-in slots
constexpr int kMaxFaults = 32;
constexpr int kMaxSignals = 512;
constexpr int kSignalNameSize = 40;  // terminating zero included
constexpr int kTaskRecords = 10;     // 0 keypad, 1 to 8 PLC tasks, 9 network
constexpr int kMaxProgramFiles = 128;
constexpr int kPathSize = 208;
constexpr int kLineSize = 1024;

// The kind's word in the rack file and on displays: "cpu", "io", "stepper", "cylinder", "servo"; "empty" for
// None.
const char* KindName(CardKind kind);

// Which of the two device names exists.
enum class DeviceName : std::uint32_t { None = 0, EmIsa, Em335xIsa };

struct SignalName {
  std::uint8_t Output;  // 1: an output or relay, 0: an input
  std::uint8_t Entry;
  std::uint8_t Channel;
  std::uint8_t Reserved;
  char Name[kSignalNameSize];  // empty: row not used, nor any behind it
};
static_assert(sizeof(SignalName) == 44);

// What the rack file says of the rack as a whole, and the options of the run.
struct RackImage {
  DeviceName Device;
  std::uint32_t RestartFails;  // 1: the restart call returns an error instead of ending the process
  std::uint32_t EntryCount;    // rows of the card table after the controller's scan
  std::uint8_t EntrySlot[kMaxEntries];
  SignalName Signals[kMaxSignals];
  char LinkNames[kMaxLinks][kSignalNameSize];  // what the rack file calls the plant's links; empty: nothing
};
static_assert(sizeof(RackImage) == 24 + 44 * kMaxSignals + 40 * kMaxLinks);

// Inputs 0 to 15 of a card, one bit each. The card shows the natural level, over it what was set by hand,
// over both what a fault holds.
struct InputLevels {
  std::uint16_t Natural;
  std::uint16_t SetMask;
  std::uint16_t SetLevel;
  std::uint16_t StuckMask;
  std::uint16_t StuckLevel;
  std::uint16_t Reserved;

  std::uint16_t Shown() const {
    const unsigned set = (Natural & ~unsigned{SetMask}) | (SetLevel & unsigned{SetMask});
    return static_cast<std::uint16_t>((set & ~unsigned{StuckMask}) | (StuckLevel & unsigned{StuckMask}));
  }
};
static_assert(sizeof(InputLevels) == 12);

struct FaultRecord {
  FaultKind Kind;  // None: row not used
  std::uint8_t Slot;
  std::uint8_t Channel;
  std::uint8_t Reserved;
  std::int32_t Value;
  Nanos Begin;
  Nanos End;  // 0: lasts until it is cleared
};
static_assert(sizeof(FaultRecord) == 24);

// The key that is held down, and what became of keys pressed by request.
struct KeyState {
  std::uint32_t Code;          // 0: none is held
  std::uint32_t FunctionBits;  // held function keys
  Nanos NextRepeat;
  Nanos Release;
  Nanos FunctionRelease;
  std::uint32_t PressRequest;  // number of the request that pressed last
  std::uint32_t TakenRequest;  // number of the last press whose code (function bits) the controller has taken
  std::uint32_t TakenCount;    // codes taken since power-on
  std::uint32_t PressCount;    // presses since power-on; with none, the two numbers above mean nothing
};
static_assert(sizeof(KeyState) == 48);

// What the controller's own file calls tell about a task. File numbers count from 1 in
// RackLive::ProgramFiles.
struct TaskRecord {
  std::uint32_t MainFile;      // open main program, 0: none
  std::uint32_t BlockFile;     // open block file, 0: none
  std::uint32_t File;          // file of the line read last, 0: none yet
  std::uint32_t Line;          // its line, counted from 1
  std::uint32_t EndReads;      // reads at the end of a file since that line: it is executed again at each
  std::uint32_t FailedOpens;   // program files that could not be opened, since power-on
  std::uint32_t Searches;      // label searches since power-on
  std::uint32_t SearchFailed;  // 1: the last label search found nothing
  Nanos LineSince;             // when the line was read
  Nanos LastEndRead;
  Nanos FailedAt;
  Nanos LastAccess;  // last bus access of this thread
  std::uint8_t LastSlot;
  std::uint8_t LastPort;
  std::uint8_t Reserved[6];
  char Text[kLineSize];        // the line, as read
  char FailedPath[kPathSize];  // the file that could not be opened last
};
static_assert(sizeof(TaskRecord) == 72 + kLineSize + kPathSize);
static_assert(offsetof(TaskRecord, LineSince) == 32);

struct ControllerRecord {
  std::int32_t Process;    // process number of the controller that attached last
  std::uint32_t Attaches;  // controllers that opened (or tried to open) the device since power-on
  std::uint32_t DeviceOpen;
  std::uint32_t Syncs;
  std::uint32_t Restarts;
  std::uint32_t Reserved;
  Nanos AttachedAt;
  Nanos RestartAt;
};
static_assert(sizeof(ControllerRecord) == 40);

struct RackLive {
  std::atomic<std::uint32_t> Change;  // odd while the controller's side is changing what follows
  std::uint32_t SelectedSlot;
  Nanos Now;  // time up to which the machine has been worked out
  ControllerRecord Controller;
  KeyState Keys;
  InputLevels Inputs[kSlots];
  std::uint32_t Reserved;
  FaultRecord Faults[kMaxFaults];
  CardState Cards[kSlots];  // by slot
  PlantState Plant;
  TaskRecord Tasks[kTaskRecords];
  char ProgramFiles[kMaxProgramFiles][kPathSize];
};
static_assert(offsetof(RackLive, Controller) == 16);
static_assert(offsetof(RackLive, Keys) == 56);
static_assert(offsetof(RackLive, Inputs) == 104);
static_assert(offsetof(RackLive, Faults) == 264);
static_assert(offsetof(RackLive, Cards) == 264 + 24 * kMaxFaults);

constexpr char kStateMagic[8] = {'V', 'e', 'l', 'm', 'o', 'R', 'c', 'k'};
constexpr std::uint32_t kStateVersion = 2;

struct RackState {
  char Magic[8];
  std::uint32_t Version;
  std::uint32_t Size;
  Nanos PowerOn;  // what CLOCK_MONOTONIC shows the controller at power-on: the rack's time 0
  RackImage Image;
  alignas(8) RackLive Live;
  RequestRing Requests;
  JournalRing Journal;
  TimeControl Time;
};
static_assert(offsetof(RackState, PowerOn) == 16);
static_assert(offsetof(RackState, Image) == 24);
static_assert(std::is_standard_layout_v<RackState>);

// A rack as the rack file describes it, before its power-on.
struct RackSetup {
  RackImage Image;
  TimeSetup Time;
  CardState Cards[kSlots];
  PlantState Plant;                     // its links
  std::uint16_t InputsOn[kMaxEntries];  // inputs that are switched on at power-on, by entry
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

  RackState* State() const { return Mapped; }

  // Held by a tool while it sends requests.
  class SenderLock {
   public:
    explicit SenderLock(const StateFile& file);
    ~SenderLock();
    SenderLock(const SenderLock&) = delete;
    SenderLock& operator=(const SenderLock&) = delete;

   private:
    int Descriptor;
  };

 private:
  bool Map(int descriptor, std::string& error);

  RackState* Mapped = nullptr;
  int Descriptor = -1;
  std::string Path;
};

// Puts the power-on state of a rack into zeroed memory.
void PowerOn(RackState& state, const RackSetup& setup, Nanos monotonic);

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
  RackLive& Live;
};

}  // namespace rack
