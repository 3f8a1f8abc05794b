// Requests to the rack: how another program turns a signal, presses a key or raises a fault.
//
// A ring in the rack's state. Only the tool's side writes requests and moves `sent`; only the controller's side
// applies them, at its next bus access and in order, writes the results and moves `done`. Several tools take
// turns by a lock on the state file.
#pragma once

#include <atomic>
#include <cstdint>

#include "cards/card.h"

namespace rack {

enum class RequestKind : std::uint32_t {
  None = 0,
  SetInput,             // slot, channel, value 0 or 1: the input shows this level until it is released
  ReleaseInput,         // slot, channel: the machine drives the input again
  PressKey,             // value: scan code; duration: how long it is held, or kUntilReleased
  PressFunctionKeys,    // value: function-key bits; duration: likewise
  ReleaseKey,           // value: scan code. Another key that is held by now stays held
  ReleaseFunctionKeys,  // value: function-key bits. Others that are held stay held
  BeginFault,           // fault; slot, channel, value by its kind; duration: 0 until it is cleared
  EndFault,             // fault, slot, channel: as they were given
  EndAllFaults
};

// Duration of a press that a release ends, or the next press.
constexpr Nanos kUntilReleased = -1;

enum class FaultKind : std::uint8_t {
  None = 0,
  CardPulled,       // slot: reads give 0xFF, writes are lost
  InputStuck,       // slot, channel, value 0 or 1
  CylinderAlarm,    // slot, channel; value: alarms that come back after a reset
  MotorBlocked,     // slot, channel: pulses come, the motor stands still
  MotorLosesSteps,  // slot, channel; value: every so many steps one is lost
  CardSilent,       // slot: the card does not acknowledge commands
  BusReadsFail,     // the read call of the device fails
  CylinderJams      // slot, channel: it stands without an alarm
};

// What a fault holds.
enum class FaultTarget { None, Rack, Card, CylinderCard, Input, Motor, Cylinder };
// What its value is: a level, a number from 0 on, or every so many, from 1 on.
enum class FaultValue { None, Level, Count, Every };

struct FaultNeeds {
  FaultTarget target;  // None: there is no such kind
  FaultValue value;
};

// What a fault of this kind is given.
constexpr FaultNeeds NeedsOf(FaultKind kind) {
  switch (kind) {
    case FaultKind::CardPulled:
      return {FaultTarget::Card, FaultValue::None};
    case FaultKind::InputStuck:
      return {FaultTarget::Input, FaultValue::Level};
    case FaultKind::CylinderAlarm:
      return {FaultTarget::Cylinder, FaultValue::Count};
    case FaultKind::MotorBlocked:
      return {FaultTarget::Motor, FaultValue::None};
    case FaultKind::MotorLosesSteps:
      return {FaultTarget::Motor, FaultValue::Every};
    case FaultKind::CardSilent:
      return {FaultTarget::CylinderCard, FaultValue::None};
    case FaultKind::BusReadsFail:
      return {FaultTarget::Rack, FaultValue::None};
    case FaultKind::CylinderJams:
      return {FaultTarget::Cylinder, FaultValue::None};
    case FaultKind::None:
      break;
  }
  return {FaultTarget::None, FaultValue::None};
}

// How many kinds there are. They are numbered from 1 on without a gap.
constexpr int CountFaultKinds() {
  int kinds = 0;
  while (NeedsOf(static_cast<FaultKind>(kinds + 1)).target != FaultTarget::None) ++kinds;
  return kinds;
}
constexpr int kFaultKinds = CountFaultKinds();

enum class RequestResult : std::uint32_t {
  Pending = 0,
  Done,
  NoSuchCard,  // no card in this slot, or one without such channels
  NoSuchChannel,
  NoFunctionKeys,  // the CPU card has no function-key register
  TooManyFaults,
  NoSuchFault,
  BadValue
};

struct Request {
  RequestKind kind;
  FaultKind fault;
  std::uint8_t slot;
  std::uint8_t channel;
  std::uint8_t reserved;
  std::int32_t value;
  std::uint32_t reserved2;
  Nanos duration;
};
static_assert(sizeof(Request) == 24);

constexpr std::uint32_t kRequestCapacity = 64;
constexpr std::uint32_t kRequestWords = sizeof(Request) / sizeof(std::uint32_t);

struct RequestCell {
  std::atomic<std::uint32_t> result;  // RequestResult
  std::atomic<std::uint32_t> words[kRequestWords];
};
static_assert(sizeof(RequestCell) == 28);

struct RequestRing {
  std::atomic<std::uint32_t> sent;  // requests ever sent; wraps at 32 bits
  std::atomic<std::uint32_t> done;  // requests ever applied
  RequestCell cells[kRequestCapacity];
};

// Puts a request into the ring and yields its number. False when the ring is full: nobody has applied
// requests for a while. REQUIRES: the caller is the only sender at this moment (StateFile::SenderLock).
bool Send(RequestRing& ring, const Request& request, std::uint32_t& number);

// What became of a request; Pending until the controller's side has applied it. A request that more than
// kRequestCapacity others have followed counts as Done.
RequestResult ResultOf(const RequestRing& ring, std::uint32_t number);

// The controller's side: the oldest request not yet applied. False when there is none.
bool NextRequest(const RequestRing& ring, Request& request, std::uint32_t& number);
// The controller's side: the request of NextRequest is done with.
void Finish(RequestRing& ring, RequestResult result);

}  // namespace rack
