// The machine at one moment, as plain values: what `show`, `watch` and the explanations work from.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace rack::tool {

enum class CardKind { None, Cpu, Io, Stepper, Cylinder, Servo };

// How a card kind is called in the tool's texts.
const char* CardName(CardKind kind);

enum class SignalKind { Input, Output };

// A signal that the rack file names. Channels from 16 on of an I/O card's outputs are its relays.
struct NamedSignal {
  std::string name;
  SignalKind kind = SignalKind::Input;
  int entry = 0;
  int channel = 0;
};

struct MotorView {
  bool busy = false;
  bool blocked = false;    // a fault holds the motor
  long long steps = 0;     // programmed steps of the last move
  long long position = 0;  // where the motor stands, in steps
  long long count = 0;     // encoder counter
  int frequencyCode = 0;   // 0: the move never progresses
};

struct CylinderView {
  int position = 0;  // where it stands, or where it came from while it travels
  int target = 0;
  bool moving = false;
  bool alarm = false;
};

struct CardView {
  CardKind kind = CardKind::None;
  int slot = 0;
  bool pulled = false;    // every read answers 0xFF
  bool busFails = false;  // the driver's reads fail: every read answers 0xFF to the controller
  int selectedChannel = 0;
  std::uint32_t inputs = 0;  // as the controller reads them
  std::uint32_t forced = 0;  // inputs that a person or a fault holds
  std::uint32_t outputs = 0;
  std::uint32_t relays = 0;
  std::uint8_t keyCode = 0;  // latched code of the CPU card
  std::uint8_t functionKeys = 0;
  std::vector<MotorView> motors;
  std::vector<CylinderView> cylinders;
};

// What a PLC task's reads of its program files show.
struct TaskView {
  int task = 0;
  bool ended = false;      // its reset program was missing at the start
  bool inBlock = false;    // lines come from a called block
  bool sourceOpen = true;  // the file it reads from is open
  bool stepMode = false;
  std::string mainFile;  // empty after EXIT
  std::string file;      // of the line below
  int line = 0;          // 1 for the first line, 0 before any
  std::string text;
  long long standsNanos = 0;    // since that line was read
  unsigned endOfFileReads = 0;  // reads that found the end of the file since that line
  bool labelMissing = false;    // the label search of the last GO reached the end of the file
  std::string failedOpen;       // path of the last program file that could not be opened, while that matters
};

struct Snapshot {
  bool running = false;
  int pid = 0;
  long long nowNanos = 0;  // since power-on
  unsigned restarts = 0;
  unsigned syncs = 0;
  std::vector<CardView> cards;  // by entry of the card table
  std::vector<TaskView> tasks;
  std::vector<NamedSignal> signals;
  std::vector<std::string> faults;  // each as a sentence
};

// "clamp_closed (0.5)" for a named signal, "0.5" for another.
std::string SignalText(const Snapshot& snapshot, SignalKind kind, int entry, int channel);

// The name of a signal, or its address when it has none.
std::string SignalName(const Snapshot& snapshot, SignalKind kind, int entry, int channel);

}  // namespace rack::tool
