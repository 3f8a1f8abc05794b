#include "rack/rack.h"

#include <algorithm>

namespace rack {
namespace {

constexpr std::uint8_t kSlotSelect = 0;
constexpr std::uint8_t kKeyClear = 1;  // of the CPU card
// A held key is sent again as keyboards do.
constexpr Nanos kFirstRepeat = 500 * kMillisecond;
constexpr Nanos kRepeat = 100 * kMillisecond;
// How often the journal is told of a moving motor's count.
constexpr Nanos kSample = 20 * kMillisecond;
constexpr int kFirstRelay = 16;

std::int32_t CylinderShown(CylinderCardState& card, int channel, Nanos now) {
  const CylinderCard model(card);
  const int place = model.PlaceAt(channel, now) / 1000;
  return model.Status(channel, now) | place << 8;
}

}  // namespace

Rack::Rack(RackState& state) : Rack(state.image, state.live) {
  requests_ = &state.requests;
  journal_ = &state.journal;
}

Rack::Rack(const RackImage& image, RackLive& live)
    : image_(image), live_(live), plant_(live.plant, cards_, *this) {
  for (std::uint32_t entry = 0; entry < image_.entryCount; ++entry) {
    cards_.entries[entry] = &live_.cards[image_.entrySlot[entry]];
  }
  Begin();
}

// Takes what moves as known: the controller that ran before has noted it.
void Rack::Begin() {
  for (int slot = 0; slot < kSlots; ++slot) {
    CardState& card = live_.cards[slot];
    for (int channel = 0; channel < MotorCount(card); ++channel) {
      const PulseChannel motor(*MotorChannel(card, channel));
      movers_[slot][channel] = {live_.now, static_cast<std::int32_t>(motor.EncoderAt(live_.now)),
                                motor.Busy(live_.now)};
    }
    for (int channel = 0; channel < CylinderCount(card); ++channel) {
      movers_[slot][channel].shown = CylinderShown(card.cylinder, channel, live_.now);
    }
  }
}

void Rack::PowerOn(const std::uint16_t (&inputsOn)[kMaxEntries]) {
  const LiveChange change(live_);
  plant_.PowerOn();
  for (std::uint8_t entry = 0; entry < kMaxEntries; ++entry) {
    for (std::uint8_t channel = 0; channel < 16; ++channel) {
      if ((inputsOn[entry] >> channel & 1) == 0) continue;
      plant_.SetInput({entry, SignalKind::Input, channel, 0}, true, 0);
    }
  }
}

int Rack::ReadPort(std::uint8_t port, Nanos now, const Origin& origin) {
  AdvanceTo(now);
  const LiveChange change(live_);
  const auto slot = static_cast<std::uint8_t>(live_.selectedSlot);
  if (Faulty(FaultKind::BusReadsFail, slot)) {
    Note(JournalKind::ReadFailed, slot, port, 0, origin);
    return -1;
  }
  std::uint8_t value = kOpenBus;
  if (slot < kSlots && !Faulty(FaultKind::CardPulled, slot)) {
    value = ReadCard(live_.cards[slot], port, live_.now);
    const bool functionKeys = slot == 0 && port != 0 && port == live_.cards[0].cpu.functionPort;
    if (functionKeys && live_.keys.functionBits != 0) live_.keys.takenRequest = live_.keys.pressRequest;
  }
  Note(JournalKind::Read, slot, port, value, origin);
  return value;
}

void Rack::WritePort(std::uint8_t port, std::uint8_t value, Nanos now, const Origin& origin) {
  if (port != kSlotSelect) quietUntil_ = 0;
  AdvanceTo(now);
  const LiveChange change(live_);
  if (port == kSlotSelect) live_.selectedSlot = value;
  const auto slot = static_cast<std::uint8_t>(live_.selectedSlot);
  Note(JournalKind::Write, slot, port, value, origin);
  if (port == kSlotSelect || slot >= kSlots || Faulty(FaultKind::CardPulled, slot)) return;

  const std::uint32_t outputs = OutputBits(slot);
  const std::int32_t key = slot == 0 ? live_.cards[0].cpu.keyCode : 0;
  WriteCard(live_.cards[slot], port, value, live_.now);
  quietUntil_ = 0;
  if (port == kKeyClear && key != 0 && live_.cards[0].cpu.keyCode == 0) {
    live_.keys.takenRequest = live_.keys.pressRequest;
    ++live_.keys.takenCount;
    Note(JournalKind::KeyTaken, 0, port, key, origin);
  }
  NoteOutputs(slot, outputs, origin);
  SettlePlant(live_.now);
  NoteMovers(slot, false);
}

void Rack::AdvanceTo(Nanos now) {
  const LiveChange change(live_);
  const bool asked = IsAsked();
  if (asked) quietUntil_ = 0;
  Reach(std::max(now, live_.now));
  if (!asked) return;
  TakeRequests();
  quietUntil_ = 0;
}

void Rack::Note(JournalKind kind, std::uint8_t slot, std::uint8_t port, std::int32_t value,
                const Origin& origin) {
  if (journal_ == nullptr) return;
  Append(*journal_, {live_.now, kind, origin.task, slot, port, value, origin.line, origin.file});
}

// Own events are those that do not belong to the plant: keys, ends of faults, what the journal is told of
// movers.
void Rack::Reach(Nanos now) {
  if (now < quietUntil_) {
    live_.now = now;
    return;
  }
  for (Nanos next = NextOwnEvent(); next <= now; next = NextOwnEvent()) {
    SettlePlant(next);
    live_.now = std::max(next, live_.now);
    HandleKeys();
    EndFaults();
    for (int slot = 0; slot < kSlots; ++slot) NoteMovers(slot, true);
    SettlePlant(live_.now);
  }
  SettlePlant(now);
  live_.now = now;
  quietUntil_ = std::min(NextOwnEvent(), plant_.NextEvent().value_or(kNever));
}

void Rack::SettlePlant(Nanos at) {
  while (!plant_.Advance(at)) {
  }
}

Nanos Rack::NextOwnEvent() {
  Nanos next = kNever;
  const KeyState& keys = live_.keys;
  if (keys.code != 0) next = std::min({next, keys.nextRepeat, keys.release});
  if (keys.functionBits != 0) next = std::min(next, keys.functionRelease);
  for (const FaultRecord& fault : live_.faults) {
    if (fault.kind != FaultKind::None && fault.end != 0) next = std::min(next, fault.end);
  }
  if (journal_ == nullptr) return next;
  for (int slot = 0; slot < kSlots; ++slot) next = std::min(next, NextOfMovers(slot));
  return next;
}

Nanos Rack::NextOfMovers(int slot) {
  Nanos next = kNever;
  CardState& card = live_.cards[slot];
  for (int channel = 0; channel < MotorCount(card); ++channel) {
    const Mover& mover = movers_[slot][channel];
    if (!mover.busy) continue;
    const PulseChannel motor(*MotorChannel(card, channel));
    next = std::min({next, mover.sampledAt + kSample, motor.MoveEnd().value_or(kNever)});
  }
  for (int channel = 0; channel < CylinderCount(card); ++channel) {
    const auto end = CylinderCard(card.cylinder).NextEvent(channel, live_.now);
    if (end && *end > live_.now) next = std::min(next, *end);
  }
  return next;
}

void Rack::HandleKeys() {
  KeyState& keys = live_.keys;
  if (keys.code != 0 && keys.release <= live_.now) keys.code = 0;
  if (keys.code != 0 && keys.nextRepeat <= live_.now) {
    keys.nextRepeat += kRepeat;
    PressKey(keys.code, true);
  }
  if (keys.functionBits == 0 || keys.functionRelease > live_.now) return;
  keys.functionBits = 0;
  live_.cards[0].cpu.functionKeys = 0;
  Note(JournalKind::FunctionKeys, 0, 0, 0);
}

void Rack::EndFaults() {
  for (FaultRecord& fault : live_.faults) {
    if (fault.kind != FaultKind::None && fault.end != 0 && fault.end <= live_.now) End(fault);
  }
}

void Rack::NoteMovers(int slot, bool sample) {
  CardState& card = live_.cards[slot];
  for (int channel = 0; channel < MotorCount(card); ++channel) NoteMotor(slot, channel, sample);
  for (int channel = 0; channel < CylinderCount(card); ++channel) NoteCylinder(slot, channel);
}

void Rack::NoteMotor(int slot, int channel, bool sample) {
  Mover& mover = movers_[slot][channel];
  const PulseChannel motor(*MotorChannel(live_.cards[slot], channel));
  const bool busy = motor.Busy(live_.now);
  const bool due = busy != mover.busy || !busy || (sample && mover.sampledAt + kSample <= live_.now);
  if (!due) return;
  const auto count = static_cast<std::int32_t>(motor.EncoderAt(live_.now));
  const auto slotByte = static_cast<std::uint8_t>(slot);
  const auto channelByte = static_cast<std::uint8_t>(channel);
  if (count != mover.shown) Note(JournalKind::MotorCount, slotByte, channelByte, count);
  if (!busy && mover.busy) {
    Note(JournalKind::MotorPulses, slotByte, channelByte,
         static_cast<std::int32_t>(motor.PulsesAt(live_.now)));
    Note(JournalKind::MotorPosition, slotByte, channelByte,
         static_cast<std::int32_t>(motor.PositionAt(live_.now)));
  }
  if (busy != mover.busy) Note(JournalKind::MotorMove, slotByte, channelByte, busy ? 1 : 0);
  mover = {live_.now, count, busy};
}

void Rack::NoteCylinder(int slot, int channel) {
  Mover& mover = movers_[slot][channel];
  const std::int32_t shown = CylinderShown(live_.cards[slot].cylinder, channel, live_.now);
  if (shown == mover.shown) return;
  mover.shown = shown;
  Note(JournalKind::CylinderState, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(channel),
       shown);
}

void Rack::InputEdge(SignalRef input, bool level, Nanos at) {
  const int slot = SlotOfEntry(image_, input.entry);
  if (slot < 0 || input.channel >= InputCount(live_.cards[slot])) return;
  live_.now = std::max(at, live_.now);
  InputLevels& inputs = live_.inputs[slot];
  const std::uint16_t before = inputs.Shown();
  const unsigned bit = 1U << input.channel;
  inputs.natural = static_cast<std::uint16_t>(level ? inputs.natural | bit : inputs.natural & ~bit);
  ShowInputs(slot, before);
}

void Rack::Counted(int link, std::uint32_t count, Nanos at) {
  live_.now = std::max(at, live_.now);
  Note(JournalKind::CounterValue, 0, static_cast<std::uint8_t>(link), static_cast<std::int32_t>(count));
}

void Rack::ShowInputs(int slot, std::uint16_t before) {
  const std::uint16_t shown = live_.inputs[slot].Shown();
  for (int channel = 0; channel < InputCount(live_.cards[slot]); ++channel) {
    const int level = shown >> channel & 1;
    SetInputLevel(live_.cards[slot], channel, level != 0);
    if (level == (before >> channel & 1)) continue;
    Note(JournalKind::InputEdge, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(channel), level);
  }
}

std::uint32_t Rack::OutputBits(int slot) const {
  const CardState& card = live_.cards[slot];
  if (card.kind == CardKind::Cpu) return card.cpu.outputs;
  return card.kind == CardKind::Io ? card.io.outputs : 0;
}

void Rack::NoteOutputs(int slot, std::uint32_t before, const Origin& origin) {
  const std::uint32_t changed = OutputBits(slot) ^ before;
  if (changed == 0) return;
  for (int channel = 0; channel < OutputCount(live_.cards[slot]); ++channel) {
    if ((changed >> channel & 1) == 0) continue;
    const auto kind = channel < kFirstRelay ? JournalKind::OutputChange : JournalKind::RelayChange;
    const bool level = OutputLevel(live_.cards[slot], channel);
    Note(kind, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(channel), level ? 1 : 0, origin);
  }
}

void Rack::PressKey(std::uint32_t code, bool repeated) {
  CpuCard(live_.cards[0].cpu).LatchKey(static_cast<std::uint8_t>(code));
  Note(JournalKind::Key, 0, repeated ? 1 : 0, static_cast<std::int32_t>(code));
}

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
  if (request.value <= 0 || request.value > 0xFF || request.duration < 0) return RequestResult::BadValue;
  KeyState& keys = live_.keys;
  keys.code = static_cast<std::uint32_t>(request.value);
  keys.release = live_.now + request.duration;
  keys.nextRepeat = live_.now + kFirstRepeat;
  keys.pressRequest = number;
  keys.takenRequest = number - 1;  // not yet: the first request has the number 0
  ++keys.pressCount;
  PressKey(keys.code, false);
  return RequestResult::Done;
}

RequestResult Rack::PressFunctionKeys(const Request& request, std::uint32_t number) {
  CpuCardState& cpu = live_.cards[0].cpu;
  if (cpu.functionPort == 0) return RequestResult::NoFunctionKeys;
  if (request.value <= 0 || request.value > 0x0F || request.duration < 0) return RequestResult::BadValue;
  KeyState& keys = live_.keys;
  keys.functionBits = static_cast<std::uint32_t>(request.value);
  keys.functionRelease = live_.now + request.duration;
  keys.pressRequest = number;
  keys.takenRequest = number - 1;  // not yet: the first request has the number 0
  ++keys.pressCount;
  cpu.functionKeys = static_cast<std::uint8_t>(request.value);
  Note(JournalKind::FunctionKeys, 0, 0, request.value);
  return RequestResult::Done;
}

RequestResult Rack::CheckFault(const Request& request) const {
  if (request.fault == FaultKind::BusReadsFail) return RequestResult::Done;
  if (request.slot >= kSlots) return RequestResult::NoSuchCard;
  const CardState& card = live_.cards[request.slot];
  int channels = 0;
  switch (request.fault) {
    case FaultKind::CardPulled:
      return card.kind == CardKind::None ? RequestResult::NoSuchCard : RequestResult::Done;
    case FaultKind::CardSilent:
      return CylinderCount(card) == 0 ? RequestResult::NoSuchCard : RequestResult::Done;
    case FaultKind::InputStuck:
      channels = InputCount(card);
      break;
    case FaultKind::CylinderAlarm:
      channels = CylinderCount(card);
      break;
    case FaultKind::MotorBlocked:
    case FaultKind::MotorLosesSteps:
      channels = MotorCount(card);
      break;
    default:
      return RequestResult::BadValue;
  }
  if (channels == 0) return RequestResult::NoSuchCard;
  if (request.channel >= channels) return RequestResult::NoSuchChannel;
  if (request.fault == FaultKind::MotorLosesSteps && request.value <= 0) return RequestResult::BadValue;
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
    Note(JournalKind::FaultBegins, fault.slot, fault.channel, static_cast<std::int32_t>(fault.kind));
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
  Note(JournalKind::FaultEnds, ended.slot, ended.channel, static_cast<std::int32_t>(ended.kind));
}

// Pulled cards and failing reads are looked up at each access.
void Rack::Impose(const FaultRecord& fault, bool begins) {
  CardState& card = live_.cards[fault.slot < kSlots ? fault.slot : 0];
  switch (fault.kind) {
    case FaultKind::InputStuck:
      ApplyStuck(fault.slot);
      break;
    case FaultKind::CylinderAlarm: {
      CylinderCard cylinders(card.cylinder);
      const auto again = static_cast<std::uint8_t>(std::min<std::int32_t>(fault.value, kAlarmForEver));
      if (begins) cylinders.RaiseAlarm(fault.channel, again, live_.now);
      if (!begins) cylinders.EndAlarmCause(fault.channel, live_.now);
      break;
    }
    case FaultKind::MotorBlocked:
      PulseChannel(*MotorChannel(card, fault.channel)).SetBlocked(begins, live_.now);
      break;
    case FaultKind::MotorLosesSteps: {
      const auto every = static_cast<std::uint32_t>(begins ? fault.value : 0);
      PulseChannel(*MotorChannel(card, fault.channel)).SetLoseEvery(every, live_.now);
      break;
    }
    case FaultKind::CardSilent:
      for (int channel = 0; channel < kCylinderChannels; ++channel) {
        CylinderCard(card.cylinder).SetNoAcknowledge(channel, begins, live_.now);
      }
      break;
    default:
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

bool Rack::Faulty(FaultKind kind, int slot) const {
  return std::any_of(std::begin(live_.faults), std::end(live_.faults), [&](const FaultRecord& fault) {
    return fault.kind == kind && (kind == FaultKind::BusReadsFail || fault.slot == slot);
  });
}

}  // namespace rack
