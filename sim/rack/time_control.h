// How a machine's time goes, and how a tool stops it: the part of the rack's state that both sides share.
//
// Who writes what:
//  - TimeSetup: the tool, at power-on; constant from then on.
//  - command: the tool, one tool at a time (StateFile::SenderLock), between `begun` and `ordered`.
//  - mail: the tool appends, then `posted`; the controller's side takes, then `taken`.
//  - standing: the controller's side sets it, a command takes it back.
//  - the rest: the controller's side.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "cards/card.h"
#include "rack/triggers.h"

namespace rack {

enum class TimeMode : std::uint32_t {
  Real = 0,
  Scaled,  // real time, faster or slower
  Virtual  // time passes only by what the controller does and waits for
};

// What the controller's threads are in virtual time.
enum class ThreadKind : std::uint8_t {
  Possible = 0,  // fibres, or real ones where something is in the way
  Real,
  Fibres  // refused where something is in the way
};

struct TimeSetup {
  TimeMode mode;
  std::uint32_t seed;          // 0: threads take turns in the order in which they came
  std::uint32_t factorMillis;  // Scaled: thousandths of a second of the machine per second
  std::uint32_t consoleBaud;   // Virtual: bits per second of the console, 0: it takes all at once
  std::uint32_t accessNanos;   // Virtual: what a bus access costs
  std::uint8_t startStopped;   // Virtual: 1: time stands before the controller's first step
  std::uint8_t tellsThreads;  // Virtual: 1: the controller's side says on standard error what its threads are
  ThreadKind threads;         // Virtual: what they are to be
  std::uint8_t holdsConsole;  // Virtual: 1: whoever runs the controller writes what it still holds
  Nanos realStart;            // Scaled: CLOCK_MONOTONIC at power-on
  Nanos endAt;                // Virtual: the run ends at this time since power-on, 0: never
};
static_assert(sizeof(TimeSetup) == 40);

constexpr std::uint32_t kUsualAccessNanos = 1000;
// PowerOn of a machine in virtual time: its clock shows the same in every run.
constexpr Nanos kVirtualPowerOn = 1000 * kSecond;

constexpr std::uint8_t kAnyTask = 0xFF;
constexpr int kHoldFileSize = 208;

// Lets a standing machine go on, and says where it is to stand next. The first of several that is met counts;
// all zero: nowhere.
struct TimeCommand {
  Nanos holdAt;            // time since power-on, 0: none. Met when everything before it has happened
  std::uint32_t holdLine;  // line of holdFile, 0: none
  std::uint8_t holdTask;   // task of holdLine or of a step, 1 to 8 or kAnyTask
  std::uint8_t step;       // 1: at the next line that is read to be executed
  std::uint8_t reserved[2];
  char holdFile[kHoldFileSize];  // as the controller opens it, "plc1/FLOW.PLC"
  TriggerTable triggers;         // virtual time stands where one of them fits
};
static_assert(sizeof(TimeCommand) == 16 + kHoldFileSize + sizeof(TriggerTable));

constexpr std::uint32_t kCommandWords = sizeof(TimeCommand) / sizeof(std::uint32_t);
static_assert(sizeof(TimeCommand) % sizeof(std::uint32_t) == 0);

// A command as the two sides share it. The next one may be written while the last is being read: `begun` is then ahead of
// the number that was read.
struct CommandCell {
  std::atomic<std::uint32_t> begun;  // number of the command that is, or is being, written
  std::uint32_t reserved;
  std::atomic<std::uint32_t> words[kCommandWords];
};
static_assert(sizeof(CommandCell) == 8 + sizeof(TimeCommand));

constexpr std::uint32_t kMailCapacity = 16;
constexpr std::uint32_t kMailSize = 2048;

struct MailItem {
  std::uint32_t address;  // of the sender, as a number: 127.0.0.1 is 0x7F000001
  std::uint16_t port;     // of the sender
  std::uint16_t length;
  char data[kMailSize];
};
static_assert(sizeof(MailItem) == 8 + kMailSize);

constexpr int kReasonSize = 1024;

constexpr int kWaitingTasks = 9;  // by task from 1; row 0 is not used
constexpr int kLockNames = 32;
constexpr int kLockNameSize = 48;
constexpr std::uint32_t kHolderEnded = 15;    // a holder that has ended
constexpr std::uint32_t kHolderThreads = 16;  // from here on, a holder is a thread's number and this

// The lock for which a PLC task waits in virtual time. `row` is published last.
struct LockWait {
  std::atomic<Nanos> since;
  std::atomic<std::uint32_t>
      row;  // 0: it waits for none; row of lockNames, counted from 1, or a higher number
  std::atomic<std::uint32_t> holder;  // 0: it passes from hand to hand; 1 to 8: that task; others: see above
};
static_assert(sizeof(LockWait) == 16);

struct TimeControl {
  TimeSetup setup;
  CommandCell command;
  std::atomic<std::uint32_t> ordered;   // commands given
  std::atomic<std::uint32_t> answered;  // commands taken up
  std::atomic<std::uint32_t> standing;  // 1: time stands, until the next command
  std::uint32_t standsTask;             // where it stands: task, 0 for a time
  std::uint32_t standsFile;             // number of the program file, as in RackLive::programFiles
  std::uint32_t standsLine;
  std::atomic<std::uint32_t> beat;       // changes while the controller makes calls that time knows
  std::atomic<std::uint32_t> turn;       // thread number of the thread whose turn it is
  std::atomic<std::uint32_t> inConsole;  // 1: it writes to the console, which may take long
  std::atomic<std::uint32_t> broken;     // 1: time cannot go on, and `reason` says why; the controller ends
  std::atomic<std::uint32_t> ended;      // 1: endAt was reached
  std::uint8_t reserved[3];
  ThreadKind threads;                  // Virtual: what the controller's threads are
  std::atomic<std::uint32_t> posted;   // datagrams to the controller
  std::atomic<std::uint32_t> taken;    // of them received
  std::atomic<std::uint32_t> replies;  // datagrams that the controller has sent
  std::uint32_t reserved2;
  LockWait lockWaits[kWaitingTasks];
  char lockNames[kLockNames]
                [kLockNameSize];  // as the program calls them, each written once; empty: it has no name
  MailItem mail[kMailCapacity];
  char reason[kReasonSize];  // a sentence, before `broken` is set
};
static_assert(sizeof(TimeControl) == 40 + sizeof(CommandCell) + 64 + kWaitingTasks * sizeof(LockWait) +
                                         kLockNames * kLockNameSize + kMailCapacity * sizeof(MailItem) +
                                         kReasonSize);
static_assert(offsetof(TimeControl, ordered) == 40 + sizeof(CommandCell));

// Status of a controller whose threads wait for each other, and of one that has made a call which virtual time
// does not answer.
constexpr int kDeadlockStatus = 86;
constexpr int kRefusedStatus = 87;

// Why virtual time could not go on, as a sentence; empty while nothing is wrong.
std::string BrokenText(const TimeControl& time);

// The tool's side. REQUIRES of all of them: the caller is the only sender at this moment (StateFile::SenderLock).

// The command that a controller finds at its start.
void OrderAtStart(TimeControl& time, const TimeCommand& command);
// Gives a command; its number, for Stands.
std::uint32_t Order(TimeControl& time, const TimeCommand& command);
// Returns when time stands, or after a few milliseconds.
void AwaitStanding(const TimeControl& time);
// Whether time stands after this command (0: the start) was taken up.
bool Stands(const TimeControl& time, std::uint32_t number);
// A datagram for the controller. False: it does not fit, or too many wait to be received.
bool Post(TimeControl& time, const std::string& data, std::uint32_t address = 0x7F000001,
          std::uint16_t port = 40000);

// The controller's side: the command given last, and its number. False: the next one is being written, and its number will
// follow; or the tool that wrote it has ended on the way, and the next tool writes it anew.
bool ReadOrder(const TimeControl& time, TimeCommand& command, std::uint32_t& number);
// The controller's side: the datagram received next, null when there is none; and that it has been taken.
const MailItem* NextMail(const TimeControl& time);
void TakeMail(TimeControl& time);

// Time since power-on that has passed by real time when the clock shows this; for Real and Scaled.
Nanos PassedTime(const TimeSetup& setup, Nanos powerOn, Nanos monotonic);

}  // namespace rack
