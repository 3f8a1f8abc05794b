// The machine at one moment, as plain values: what the displays and the explanations work from.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rack/state.h"

namespace rack {

// A signal that the rack file names. Channels from 16 on of an I/O card's outputs are its relays.
struct NamedSignal {
  std::string name;
  SignalKind kind = SignalKind::Input;
  int entry = 0;
  int channel = 0;
};

struct MotorView {
  bool busy = false;
  bool blocked = false;           // a fault holds the motor
  std::int64_t position = 0;      // where the motor stands, in steps
  std::int64_t endsInNanos = -1;  // until the end of the running move; negative when it never ends
  std::int64_t rate = 0;          // pulses per second of the move that started last
  std::optional<std::int64_t> hardStopLow;
  std::optional<std::int64_t> hardStopHigh;
  std::int64_t lostNow = 0;  // steps that the running move has lost at a hard stop
};

struct CylinderView {
  int thousandths = 0;  // where it is, in thousandths of a position
  int target = 0;       // position of the command given last
  std::uint8_t status = 0;
  bool jammed = false;  // a fault holds it
};

struct CardView {
  CardKind kind = CardKind::None;
  int slot = 0;
  bool pulled = false;           // every read answers 0xFF
  int selectedChannel = 0;       // of the motor and cylinder cards
  std::uint16_t inputs = 0;      // as the card shows them
  std::uint16_t forced = 0;      // inputs that a person or a fault holds
  std::uint16_t taken = 0;       // those of them that a person holds
  std::uint16_t natural = 0;     // inputs as the machine drives them
  std::uint16_t switchedOn = 0;  // of these, the ones that somebody switched on, also at power-on
  std::uint32_t outputs = 0;     // relays from bit 16
  std::uint8_t keyCode = 0;      // latched code of the CPU card
  std::uint8_t functionKeys = 0;
  bool hasFunctionKeys = false;
  std::vector<MotorView> motors;
  std::vector<std::int64_t> counts;  // counters: on a motor card those of its encoders
  std::vector<CylinderView> cylinders;
};

// What a PLC task's reads of its program files show.
struct TaskView {
  int task = 0;
  bool stepMode = false;
  std::string mainFile;                  // open main program, empty: none
  std::string blockFile;                 // open block, empty: none
  std::string file;                      // of the line below, empty before any
  int line = 0;                          // 1 for the first line
  std::string text;                      // trimmed
  std::int64_t standsNanos = 0;          // since that line was read
  unsigned endReads = 0;                 // reads that found the end of the file since that line
  bool labelMissing = false;             // the label search made for that line found nothing
  std::string missingFile;               // a program file that could not be opened since that line
  std::int64_t accessNanos = -1;         // since its last bus access; negative before any
  std::int64_t pauseNanos = 10'000'000;  // between two commands, as G_ST has set it
  std::string longWait;                  // a wait of its thread that should be short, in words
  std::int64_t longWaitNanos = -1;       // how long it has lasted; negative: nobody knows
};

// What hangs on the cards: a row of the rack file, and how it stands.
struct LinkView {
  PlantLink link{};
  PlantLinkState state{};
};

// Virtual time that stands.
struct StandingView {
  bool stands = false;
  int task = 0;  // that is about to execute the line; 0: time stands at no line
  std::string file;
  int line = 0;
  std::string text;
};

struct CounterView {
  int link = 0;  // row of the plant's list
  std::string name;
  unsigned count = 0;
  unsigned goal = 0;  // 0: none
};

// What a card has protested against last.
struct ProtestView {
  int entry = 0;       // of the card
  unsigned count = 0;  // protests of that card since power-on
  std::int64_t atNanos = 0;
  std::string who;   // "plc1"
  std::string file;  // program line that was executed, empty: none
  int line = 0;
  std::string text;  // "card 2 has no register 10"
};

struct Snapshot {
  bool running = false;
  bool busFails = false;  // the driver's reads fail
  bool noDriver = false;  // the rack file gives the board no driver
  TimeMode timeMode = TimeMode::Real;
  bool asFibres = false;  // virtual time: what the controller's threads are
  StandingView standing;
  int keyPort = 0;         // function_port of the rack file, 0: none
  int configuredPort = 0;  // FunctionPort of Velmo.conf as the controller takes it, 0: none
  int process = 0;
  std::string broken;         // why virtual time could not go on, as a sentence; empty: nothing is wrong
  std::int64_t nowNanos = 0;  // since power-on
  std::string waitsFor;       // the reader for which time stands, empty: none
  unsigned restarts = 0;
  unsigned syncs = 0;
  std::vector<CardView> cards;  // by entry of the card table
  std::vector<TaskView> tasks;
  std::vector<NamedSignal> signals;
  std::vector<CounterView> counters;
  std::vector<ProtestView> protests;
  std::vector<LinkView> links;
  std::vector<std::string> faults;        // each as a sentence
  std::vector<FaultRecord> faultRecords;  // the same, as the rack has them
};

// "clamp_closed (0.5)" for a named signal, "0.5" for another.
std::string SignalText(const Snapshot& snapshot, SignalKind kind, int entry, int channel);

// Whether the rack file names a signal.
bool HasName(const Snapshot& snapshot, SignalKind kind, int entry, int channel);
// What keeps a motor from moving, "blocked"; empty: nothing.
std::string HeldBy(const MotorView& motor);
// "1.5": where a cylinder is, in positions.
std::string PlaceText(const CylinderView& cylinder);

// The name of a signal, or its address when it has none.
std::string SignalLabel(const Snapshot& snapshot, SignalKind kind, int entry, int channel);

}  // namespace rack
