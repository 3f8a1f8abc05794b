// Cylinder card: 3 positioning cylinders with 16 positions each.
// "ch": acts on the channel last written to port 5; with another number than 0 to 2 there, writes are lost
// and the status reads 0xFF.
//
//   Port  Read                                                Write
//   3     version                                             -
//   4     type, 0x82                                          -
//   5     ch  bit 0 set while the card holds a command that   channel select, 0 to 2
//         it has not let go yet, others 0
//   6     ch  status                                          ch  command
//   7     -                                                   delay: a command begins so many units after it
//                                                             was given; without a unit at once
//   8     -                                                   -
//
// Command   0x10 reset, 0x20 setup, 0x30 + n move to position n; other bytes are not taken.
// Status    bit 7 alarm
//           bit 6 moving
//           bit 5 not in position (travelling, or stopped between two positions)
//           bit 4 in position
//           bit 3 a reset runs
//           bit 0 a command has been taken and is not finished
// In position: 0x10. Travelling or setting up: 0x61. Resetting: 0x29. Stopped on the way: 0x20. Alarm: 0x80.
//
// An alarm or a reset stops the cylinder where it is; the alarm hides bits 6 to 3.
// A cylinder that jams stands where it is, in no alarm, and is not in position while it is kept from the position of its
// command: 0x21. Commands are taken and move nothing; when it is free again it goes on to where the last one sends it.
// Bit 0 of the status sets 1 us after the command, bit 0 of port 5 clears 2 us after it. A command replaces
// the one that runs; during an alarm or a reset only a reset has an effect, the others are taken and let go.
// A command while the card holds one replaces it. On a strict card it is lost, and bit 0 of port 5 sets 1 us after
// the command, as the status does.
// Any other port and "-" read 0xFF; writes marked "-" and to other ports are lost.
#pragma once

#include <optional>

#include "cards/card.h"

namespace rack {

constexpr int kCylinderChannels = 3;
constexpr std::uint8_t kAlarmForEver = 0xFF;
constexpr std::uint8_t kNoGoal = 0xFF;

// Bits of the status.
constexpr std::uint8_t kCylinderAlarm = 0x80;
constexpr std::uint8_t kCylinderMoving = 0x40;
constexpr std::uint8_t kCylinderNotInPosition = 0x20;
constexpr std::uint8_t kCylinderInPosition = 0x10;
constexpr std::uint8_t kCylinderResetting = 0x08;
constexpr std::uint8_t kCylinderTaken = 0x01;

constexpr std::int32_t kCylinderPosition = 1000;  // thousandths

struct CylinderChannelState {
  Nanos commandAt;  // when the command last written came
  Nanos start;      // when the phase began
  Nanos end;        // when it ends
  // Thousandths of a position.
  std::int32_t from;
  std::int32_t to;
  std::uint8_t phase;
  std::uint8_t alarm;          // 1: in alarm
  std::uint8_t alarmsToCome;   // how many resets end in alarm again; kAlarmForEver: all
  std::uint8_t noAcknowledge;  // fault, 1: commands are held and neither taken nor let go
  std::uint8_t handshake;      // what became of the command last written
  std::uint8_t jammed;         // fault, 1: nothing moves it
  std::uint8_t goal;           // while jammed: the position that it is kept from, kNoGoal: none
  std::uint8_t reserved;
};
static_assert(kSharable<CylinderChannelState> && sizeof(CylinderChannelState) == 40);

struct CylinderCardState {
  std::uint8_t version;
  std::uint8_t type;
  std::uint8_t selected;
  std::uint8_t delay;
  std::uint8_t strict;  // 1: a command is lost while the card holds the last one
  std::uint8_t reserved[3];
  Nanos travelTime;  // for one position
  Nanos setupTime;
  Nanos resetTime;
  Nanos delayUnit;  // what each unit of the delay register takes; 0: the register has no effect
  CylinderChannelState channels[kCylinderChannels];
};
static_assert(kSharable<CylinderCardState> && sizeof(CylinderCardState) == 160);

class CylinderCard {
 public:
  using State = CylinderCardState;
  static RowsOf<RegisterName> Registers();
  static RowsOf<CardSetting> Settings();
  static CylinderCardState& Cylinders(State& state) { return state; }
  static int Selected(const State& state) { return state.selected; }

  explicit CylinderCard(State& state) : state_(state) {}
  // All cylinders stand at position 0; 100 ms per position, setup 500 ms, reset 50 ms.
  void PowerOn(std::uint8_t type);
  std::uint8_t Read(std::uint8_t port, Nanos now);
  void Write(std::uint8_t port, std::uint8_t value, Nanos now);
  // What the card cannot make sense of.
  Protest ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos now) const;

  std::uint8_t Status(int channel, Nanos now) const;
  // The position, 0 to 15, at which the cylinder stands; -1 while it moves, stands between two, or is not
  // there.
  int StandsAt(int channel, Nanos now) const;
  // Where it is, in thousandths of a position.
  std::int32_t PlaceAt(int channel, Nanos now) const;
  bool InAlarm(int channel, Nanos now) const;
  // The position of the command given last.
  int Target(int channel) const;
  // When the running command ends; nothing when none runs at that time.
  std::optional<Nanos> NextEvent(int channel, Nanos now) const;

  // The cylinder stops where it is. The reset clears the alarm unless it is to come back that many times.
  void RaiseAlarm(int channel, std::uint8_t alarmsToCome, Nanos now);
  // The alarm stays until it is reset, and then does not come back.
  void EndAlarmCause(int channel, Nanos now);
  void SetNoAcknowledge(int channel, bool fault, Nanos now);
  // It stands without an alarm, and goes on when the fault is over.
  void SetJammed(int channel, bool fault, Nanos now);

 private:
  bool HoldsCommand(int channel, Nanos now) const;
  bool ShowsHeld(int channel, Nanos now) const;
  CylinderChannelState& Settle(int channel, Nanos now);
  void Travel(CylinderChannelState& channel, int position, Nanos delay, Nanos now) const;
  void Command(std::uint8_t value, Nanos now);

  CylinderCardState& state_;
};

}  // namespace rack
