// How a machine's time goes, and how a tool stops it: the part of the rack's state that both sides share.
//
// Who writes what:
//  - TimeSetup: the tool, at power-on; constant from then on.
//  - Command: the tool, one tool at a time (StateFile::SenderLock), then Ordered.
//  - Mail: the tool appends, then Posted; the controller's side takes, then Taken.
//  - the rest: the controller's side.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "cards/card.h"

namespace rack {

enum class TimeMode : std::uint32_t {
  Real = 0,
  Scaled,  // real time, faster or slower
  Virtual  // time passes only by what the controller does and waits for
};

struct TimeSetup {
  TimeMode Mode;
  std::uint32_t Seed;          // 0: threads take turns in the order in which they came
  std::uint32_t FactorMillis;  // Scaled: thousandths of a second of the machine per second
  std::uint32_t ConsoleBaud;   // Virtual: bits per second of the console, 0: it costs no time
  std::uint32_t AccessNanos;   // Virtual: what a bus access costs
  std::uint32_t StartStopped;  // Virtual: 1: time stands before the controller's first step
  Nanos RealStart;             // Scaled: CLOCK_MONOTONIC at power-on
  Nanos EndAt;                 // Virtual: the run ends at this time since power-on, 0: never
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
  Nanos HoldAt;            // time since power-on, 0: none. Met when everything before it has happened
  std::uint32_t HoldLine;  // line of HoldFile, 0: none
  std::uint8_t HoldTask;   // task of HoldLine or of a step, 1 to 8 or kAnyTask
  std::uint8_t Step;       // 1: at the next line that is read to be executed
  std::uint8_t Reserved[2];
  char HoldFile[kHoldFileSize];  // as the controller opens it, "plc1/FLOW.PLC"
};
static_assert(sizeof(TimeCommand) == 16 + kHoldFileSize);

constexpr std::uint32_t kMailCapacity = 16;
constexpr std::uint32_t kMailSize = 2048;

struct MailItem {
  std::uint32_t Address;  // of the sender, as a number: 127.0.0.1 is 0x7F000001
  std::uint16_t Port;     // of the sender
  std::uint16_t Length;
  char Data[kMailSize];
};
static_assert(sizeof(MailItem) == 8 + kMailSize);

struct TimeControl {
  TimeSetup Setup;
  TimeCommand Command;
  std::atomic<std::uint32_t> Ordered;   // commands given
  std::atomic<std::uint32_t> Answered;  // commands taken up
  std::atomic<std::uint32_t> Standing;  // 1: time stands, until the next command
  std::uint32_t StandsTask;             // where it stands: task, 0 for a time
  std::uint32_t StandsFile;             // number of the program file, as in RackLive::ProgramFiles
  std::uint32_t StandsLine;
  std::atomic<std::uint32_t> Beat;       // changes while the controller makes calls that time knows
  std::atomic<std::uint32_t> Turn;       // thread number of the thread whose turn it is
  std::atomic<std::uint32_t> InConsole;  // 1: it writes to the console, which may take long
  std::atomic<std::uint32_t> Deadlock;   // 1: every thread waits for another one
  std::atomic<std::uint32_t> Ended;      // 1: EndAt was reached
  std::uint32_t Reserved;
  std::atomic<std::uint32_t> Posted;   // datagrams to the controller
  std::atomic<std::uint32_t> Taken;    // of them received
  std::atomic<std::uint32_t> Replies;  // datagrams that the controller has sent
  std::uint32_t Reserved2;
  MailItem Mail[kMailCapacity];
};
static_assert(sizeof(TimeControl) == 40 + sizeof(TimeCommand) + 64 + kMailCapacity * sizeof(MailItem));
static_assert(offsetof(TimeControl, Ordered) == 40 + 16 + kHoldFileSize);

// Status of a controller all of whose threads wait for each other.
constexpr int kDeadlockStatus = 86;

// The tool's side. REQUIRES of all three: the caller is the only sender at this moment
// (StateFile::SenderLock).

// Gives a command; its number, for Stands.
std::uint32_t Order(TimeControl& time, const TimeCommand& command);
// Whether time stands after this command (0: the start) was taken up.
bool Stands(const TimeControl& time, std::uint32_t number);
// A datagram for the controller. False: it does not fit, or too many wait to be received.
bool Post(TimeControl& time, const std::string& data, std::uint32_t address = 0x7F000001,
          std::uint16_t port = 40000);

// The controller's side: the datagram received next, null when there is none; and that it has been taken.
const MailItem* NextMail(const TimeControl& time);
void TakeMail(TimeControl& time);

// Time since power-on that has passed by real time when the clock shows this; for Real and Scaled.
Nanos PassedTime(const TimeSetup& setup, Nanos powerOn, Nanos monotonic);

}  // namespace rack
