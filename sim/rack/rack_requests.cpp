// What people and tools ask of the rack: inputs by hand, keys, faults.
#include <algorithm>

#include "rack/rack.h"

namespace rack {
namespace {

// From the press of a held key until it is sent again.
constexpr Nanos kFirstRepeat = 500 * kMillisecond;

bool IsKeyCode(std::int32_t value) {
  return value > 0 && value <= 0xFF;
}

bool AreFunctionKeys(std::int32_t value) {
  return value > 0 && value < 1 << kFunctionKeys;
}

bool IsHold(Nanos duration) {
  return duration >= 0 || duration == kUntilReleased;
}

Nanos HoldEnd(Nanos now, Nanos duration) {
  return duration == kUntilReleased ? kNever : now + duration;
}

}  // namespace

bool Rack::IsAsked() const {
  return requests_ != nullptr &&
         requests_->sent.load(std::memory_order_acquire) != requests_->done.load(std::memory_order_relaxed);
}

void Rack::TakeRequests() {
  Request request{};
  std::uint32_t number = 0;
  while (NextRequest(*requests_, request, number)) {
    const RequestResult result = Apply(request, number);
    SettlePlant(live_.now);
    for (int slot = 0; slot < kSlots; ++slot) NoteMovers(slot, false);
    Finish(*requests_, result);
  }
}

RequestResult Rack::Apply(const Request& request, std::uint32_t number) {
  switch (request.kind) {
    case RequestKind::SetInput:
    case RequestKind::ReleaseInput:
      return SetInput(request);
    case RequestKind::PressKey:
      return Press(request, number);
    case RequestKind::PressFunctionKeys:
      return PressFunctionKeys(request, number);
    case RequestKind::ReleaseKey:
      return Release(request);
    case RequestKind::ReleaseFunctionKeys:
      return ReleaseFunctionKeys(request);
    case RequestKind::BeginFault:
      return BeginFault(request);
    case RequestKind::EndFault:
      return EndFault(request);
    case RequestKind::EndAllFaults:
      for (FaultRecord& fault : live_.faults) {
        if (fault.kind != FaultKind::None) End(fault);
      }
      return RequestResult::Done;
    case RequestKind::None:
      break;
  }
  return RequestResult::BadValue;
}

RequestResult Rack::SetInput(const Request& request) {
  if (request.slot >= kSlots || InputCount(live_.cards[request.slot]) == 0) return RequestResult::NoSuchCard;
  if (request.channel >= InputCount(live_.cards[request.slot])) return RequestResult::NoSuchChannel;
  const bool set = request.kind == RequestKind::SetInput;
  const bool level = set && request.value != 0;
  InputLevels& inputs = live_.inputs[request.slot];
  const std::uint16_t before = inputs.Shown();
  const unsigned bit = 1U << request.channel;
  if (set) Note(JournalKind::InputTaken, request.slot, request.channel, level ? 1 : 0);
  if (!set && (inputs.setMask & bit) != 0)
    Note(JournalKind::InputGivenBack, request.slot, request.channel, 0);
  inputs.setMask = static_cast<std::uint16_t>(set ? inputs.setMask | bit : inputs.setMask & ~bit);
  inputs.setLevel = static_cast<std::uint16_t>(level ? inputs.setLevel | bit : inputs.setLevel & ~bit);
  ShowInputs(request.slot, before);
  // What hangs on the input sees the hand on it too.
  const int entry = EntryOfSlot(image_, request.slot);
  if (entry >= 0) {
    plant_.SetInput({static_cast<std::uint8_t>(entry), SignalKind::Input, request.channel, 0}, level,
                    live_.now);
  }
  return RequestResult::Done;
}

RequestResult Rack::Press(const Request& request, std::uint32_t number) {
  if (!IsKeyCode(request.value) || !IsHold(request.duration)) return RequestResult::BadValue;
  KeyState& keys = live_.keys;
  keys.code = static_cast<std::uint32_t>(request.value);
  keys.release = HoldEnd(live_.now, request.duration);
  keys.nextRepeat = live_.now + kFirstRepeat;
  keys.pressRequest = number;
  keys.takenRequest = number - 1;  // not yet: the first request has the number 0
  ++keys.pressCount;
  PressKey(keys.code, false);
  return RequestResult::Done;
}

RequestResult Rack::PressFunctionKeys(const Request& request, std::uint32_t number) {
  if (live_.cards[0].cpu.functionPort == 0) return RequestResult::NoFunctionKeys;
  if (!AreFunctionKeys(request.value) || !IsHold(request.duration)) return RequestResult::BadValue;
  KeyState& keys = live_.keys;
  keys.functionRelease = HoldEnd(live_.now, request.duration);
  keys.pressRequest = number;
  keys.takenRequest = number - 1;  // not yet: the first request has the number 0
  ++keys.pressCount;
  HoldFunctionKeys(static_cast<std::uint32_t>(request.value));
  return RequestResult::Done;
}

// A key that is up already, or that another one has followed, is released in vain.
RequestResult Rack::Release(const Request& request) {
  if (!IsKeyCode(request.value)) return RequestResult::BadValue;
  if (live_.keys.code == static_cast<std::uint32_t>(request.value)) live_.keys.code = 0;
  return RequestResult::Done;
}

RequestResult Rack::ReleaseFunctionKeys(const Request& request) {
  if (live_.cards[0].cpu.functionPort == 0) return RequestResult::NoFunctionKeys;
  if (!AreFunctionKeys(request.value)) return RequestResult::BadValue;
  const auto released = static_cast<std::uint32_t>(request.value);
  const std::uint32_t held = live_.keys.functionBits;
  if ((held & released) != 0) HoldFunctionKeys(held & ~released);
  return RequestResult::Done;
}

RequestResult Rack::CheckFault(const Request& request) const {
  const FaultNeeds needs = NeedsOf(request.fault);
  if (needs.target == FaultTarget::Rack) return RequestResult::Done;
  if (request.slot >= kSlots) return RequestResult::NoSuchCard;
  const CardState& card = live_.cards[request.slot];
  int channels = 0;
  switch (needs.target) {
    case FaultTarget::Card:
      return card.kind == CardKind::None ? RequestResult::NoSuchCard : RequestResult::Done;
    case FaultTarget::CylinderCard:
      return CylinderCount(card) == 0 ? RequestResult::NoSuchCard : RequestResult::Done;
    case FaultTarget::Input:
      channels = InputCount(card);
      break;
    case FaultTarget::Motor:
      channels = MotorCount(card);
      break;
    case FaultTarget::Cylinder:
      channels = CylinderCount(card);
      break;
    case FaultTarget::Rack:
    case FaultTarget::None:
      return RequestResult::BadValue;
  }
  if (channels == 0) return RequestResult::NoSuchCard;
  if (request.channel >= channels) return RequestResult::NoSuchChannel;
  if (needs.value == FaultValue::Every && request.value <= 0) return RequestResult::BadValue;
  return RequestResult::Done;
}

RequestResult Rack::BeginFault(const Request& request) {
  if (request.duration < 0 || request.value < 0) return RequestResult::BadValue;
  const RequestResult check = CheckFault(request);
  if (check != RequestResult::Done) return check;
  EndFault(request);  // the same fault again replaces the one that is there
  for (FaultRecord& fault : live_.faults) {
    if (fault.kind != FaultKind::None) continue;
    const Nanos end = request.duration == 0 ? 0 : live_.now + request.duration;
    fault = {request.fault, request.slot, request.channel, 0, request.value, live_.now, end};
    Impose(fault, true);
    NoteFault(JournalKind::FaultBegins, fault);
    return RequestResult::Done;
  }
  return RequestResult::TooManyFaults;
}

RequestResult Rack::EndFault(const Request& request) {
  for (FaultRecord& fault : live_.faults) {
    if (fault.kind == FaultKind::None || fault.kind != request.fault) continue;
    if (fault.slot != request.slot || fault.channel != request.channel) continue;
    End(fault);
    return RequestResult::Done;
  }
  return RequestResult::NoSuchFault;
}

void Rack::End(FaultRecord& fault) {
  const FaultRecord ended = fault;
  fault = FaultRecord{};
  Impose(ended, false);
  NoteFault(JournalKind::FaultEnds, ended);
}

void Rack::NoteFault(JournalKind kind, const FaultRecord& fault) {
  Note(kind, fault.slot, fault.channel, static_cast<std::int32_t>(fault.kind),
       {kUnknownTask, 0, static_cast<std::uint32_t>(fault.value)});
}

void Rack::Impose(const FaultRecord& fault, bool begins) {
  CardState& card = live_.cards[fault.slot < kSlots ? fault.slot : 0];
  switch (fault.kind) {
    case FaultKind::InputStuck:
      ApplyStuck(fault.slot);
      break;
    case FaultKind::CylinderAlarm: {
      CylinderCard cylinders(*Cylinders(card));
      const auto again = static_cast<std::uint8_t>(std::min<std::int32_t>(fault.value, kAlarmForEver));
      if (begins) cylinders.RaiseAlarm(fault.channel, again, live_.now);
      if (!begins) cylinders.EndAlarmCause(fault.channel, live_.now);
      break;
    }
    case FaultKind::CylinderJams:
      CylinderCard(*Cylinders(card)).SetJammed(fault.channel, begins, live_.now);
      break;
    case FaultKind::MotorBlocked:
      PulseChannel(*MotorChannel(card, fault.channel)).SetBlocked(begins, live_.now);
      break;
    case FaultKind::MotorLosesSteps: {
      const auto every = static_cast<std::uint32_t>(begins ? fault.value : 0);
      PulseChannel(*MotorChannel(card, fault.channel)).SetLoseEvery(every, live_.now);
      break;
    }
    case FaultKind::CardSilent:
      for (int channel = 0; channel < CylinderCount(card); ++channel) {
        CylinderCard(*Cylinders(card)).SetNoAcknowledge(channel, begins, live_.now);
      }
      break;
    // Looked up at each access.
    case FaultKind::CardPulled:
    case FaultKind::BusReadsFail:
    case FaultKind::None:
      break;
  }
}

void Rack::ApplyStuck(int slot) {
  InputLevels& inputs = live_.inputs[slot];
  const std::uint16_t before = inputs.Shown();
  unsigned mask = 0;
  unsigned level = 0;
  for (const FaultRecord& fault : live_.faults) {
    if (fault.kind != FaultKind::InputStuck || fault.slot != slot) continue;
    mask |= 1U << fault.channel;
    if (fault.value != 0) level |= 1U << fault.channel;
  }
  inputs.stuckMask = static_cast<std::uint16_t>(mask);
  inputs.stuckLevel = static_cast<std::uint16_t>(level);
  ShowInputs(slot, before);
}

}  // namespace rack
