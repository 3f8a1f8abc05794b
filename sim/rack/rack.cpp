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

Rack::Rack(RackState& state) : Rack(state.Image, state.Live) {
  Requests = &state.Requests;
  Journal = &state.Journal;
}

Rack::Rack(const RackImage& image, RackLive& live)
    : Image(image), Live(live), Machine(live.Plant, View, *this) {
  for (std::uint32_t entry = 0; entry < Image.EntryCount; ++entry) {
    View.Entries[entry] = &Live.Cards[Image.EntrySlot[entry]];
  }
  Begin();
}

// Takes what moves as known: the controller that ran before has noted it.
void Rack::Begin() {
  for (int slot = 0; slot < kSlots; ++slot) {
    CardState& card = Live.Cards[slot];
    for (int channel = 0; channel < MotorCount(card); ++channel) {
      const PulseChannel motor(*MotorChannel(card, channel));
      Movers[slot][channel] = {Live.Now, static_cast<std::int32_t>(motor.EncoderAt(Live.Now)),
                               motor.Busy(Live.Now)};
    }
    for (int channel = 0; channel < CylinderCount(card); ++channel) {
      Movers[slot][channel].Shown = CylinderShown(card.Cylinder, channel, Live.Now);
    }
  }
}

void Rack::PowerOn(const std::uint16_t (&inputsOn)[kMaxEntries]) {
  const LiveChange change(Live);
  Machine.PowerOn();
  for (std::uint8_t entry = 0; entry < kMaxEntries; ++entry) {
    for (std::uint8_t channel = 0; channel < 16; ++channel) {
      if ((inputsOn[entry] >> channel & 1) == 0) continue;
      Machine.SetInput({entry, SignalKind::Input, channel, 0}, true, 0);
    }
  }
}

int Rack::ReadPort(std::uint8_t port, Nanos now, const Origin& origin) {
  AdvanceTo(now);
  const LiveChange change(Live);
  const auto slot = static_cast<std::uint8_t>(Live.SelectedSlot);
  if (Faulty(FaultKind::BusReadsFail, slot)) {
    Note(JournalKind::ReadFailed, slot, port, 0, origin);
    return -1;
  }
  std::uint8_t value = kOpenBus;
  if (slot < kSlots && !Faulty(FaultKind::CardPulled, slot)) {
    value = ReadCard(Live.Cards[slot], port, Live.Now);
    const bool functionKeys = slot == 0 && port != 0 && port == Live.Cards[0].Cpu.FunctionPort;
    if (functionKeys && Live.Keys.FunctionBits != 0) Live.Keys.TakenRequest = Live.Keys.PressRequest;
  }
  Note(JournalKind::Read, slot, port, value, origin);
  return value;
}

void Rack::WritePort(std::uint8_t port, std::uint8_t value, Nanos now, const Origin& origin) {
  if (port != kSlotSelect) QuietUntil = 0;
  AdvanceTo(now);
  const LiveChange change(Live);
  if (port == kSlotSelect) Live.SelectedSlot = value;
  const auto slot = static_cast<std::uint8_t>(Live.SelectedSlot);
  Note(JournalKind::Write, slot, port, value, origin);
  if (port == kSlotSelect || slot >= kSlots || Faulty(FaultKind::CardPulled, slot)) return;

  const std::uint32_t outputs = OutputBits(slot);
  const std::int32_t key = slot == 0 ? Live.Cards[0].Cpu.KeyCode : 0;
  WriteCard(Live.Cards[slot], port, value, Live.Now);
  QuietUntil = 0;
  if (port == kKeyClear && key != 0 && Live.Cards[0].Cpu.KeyCode == 0) {
    Live.Keys.TakenRequest = Live.Keys.PressRequest;
    ++Live.Keys.TakenCount;
    Note(JournalKind::KeyTaken, 0, port, key, origin);
  }
  NoteOutputs(slot, outputs, origin);
  SettlePlant(Live.Now);
  NoteMovers(slot, false);
}

void Rack::AdvanceTo(Nanos now) {
  const LiveChange change(Live);
  const bool asked = IsAsked();
  if (asked) QuietUntil = 0;
  Reach(std::max(now, Live.Now));
  if (!asked) return;
  TakeRequests();
  QuietUntil = 0;
}

void Rack::Note(JournalKind kind, std::uint8_t slot, std::uint8_t port, std::int32_t value,
                const Origin& origin) {
  if (Journal == nullptr) return;
  Append(*Journal, {Live.Now, kind, origin.Task, slot, port, value, origin.Line, origin.File});
}

// Own events are those that do not belong to the plant: keys, ends of faults, what the journal is told of
// movers.
void Rack::Reach(Nanos now) {
  if (now < QuietUntil) {
    Live.Now = now;
    return;
  }
  for (Nanos next = NextOwnEvent(); next <= now; next = NextOwnEvent()) {
    SettlePlant(next);
    Live.Now = std::max(next, Live.Now);
    HandleKeys();
    EndFaults();
    for (int slot = 0; slot < kSlots; ++slot) NoteMovers(slot, true);
    SettlePlant(Live.Now);
  }
  SettlePlant(now);
  Live.Now = now;
  QuietUntil = std::min(NextOwnEvent(), Machine.NextEvent().value_or(kNever));
}

void Rack::SettlePlant(Nanos at) {
  while (!Machine.Advance(at)) {
  }
}

Nanos Rack::NextOwnEvent() {
  Nanos next = kNever;
  const KeyState& keys = Live.Keys;
  if (keys.Code != 0) next = std::min({next, keys.NextRepeat, keys.Release});
  if (keys.FunctionBits != 0) next = std::min(next, keys.FunctionRelease);
  for (const FaultRecord& fault : Live.Faults) {
    if (fault.Kind != FaultKind::None && fault.End != 0) next = std::min(next, fault.End);
  }
  if (Journal == nullptr) return next;
  for (int slot = 0; slot < kSlots; ++slot) next = std::min(next, NextOfMovers(slot));
  return next;
}

Nanos Rack::NextOfMovers(int slot) {
  Nanos next = kNever;
  CardState& card = Live.Cards[slot];
  for (int channel = 0; channel < MotorCount(card); ++channel) {
    const Mover& mover = Movers[slot][channel];
    if (!mover.Busy) continue;
    const PulseChannel motor(*MotorChannel(card, channel));
    next = std::min({next, mover.SampledAt + kSample, motor.MoveEnd().value_or(kNever)});
  }
  for (int channel = 0; channel < CylinderCount(card); ++channel) {
    const auto end = CylinderCard(card.Cylinder).NextEvent(channel, Live.Now);
    if (end && *end > Live.Now) next = std::min(next, *end);
  }
  return next;
}

void Rack::HandleKeys() {
  KeyState& keys = Live.Keys;
  if (keys.Code != 0 && keys.Release <= Live.Now) keys.Code = 0;
  if (keys.Code != 0 && keys.NextRepeat <= Live.Now) {
    keys.NextRepeat += kRepeat;
    PressKey(keys.Code, true);
  }
  if (keys.FunctionBits == 0 || keys.FunctionRelease > Live.Now) return;
  keys.FunctionBits = 0;
  Live.Cards[0].Cpu.FunctionKeys = 0;
  Note(JournalKind::FunctionKeys, 0, 0, 0);
}

void Rack::EndFaults() {
  for (FaultRecord& fault : Live.Faults) {
    if (fault.Kind != FaultKind::None && fault.End != 0 && fault.End <= Live.Now) End(fault);
  }
}

void Rack::NoteMovers(int slot, bool sample) {
  CardState& card = Live.Cards[slot];
  for (int channel = 0; channel < MotorCount(card); ++channel) NoteMotor(slot, channel, sample);
  for (int channel = 0; channel < CylinderCount(card); ++channel) NoteCylinder(slot, channel);
}

void Rack::NoteMotor(int slot, int channel, bool sample) {
  Mover& mover = Movers[slot][channel];
  const PulseChannel motor(*MotorChannel(Live.Cards[slot], channel));
  const bool busy = motor.Busy(Live.Now);
  const bool due = busy != mover.Busy || !busy || (sample && mover.SampledAt + kSample <= Live.Now);
  if (!due) return;
  const auto count = static_cast<std::int32_t>(motor.EncoderAt(Live.Now));
  const auto slotByte = static_cast<std::uint8_t>(slot);
  const auto channelByte = static_cast<std::uint8_t>(channel);
  if (count != mover.Shown) Note(JournalKind::MotorCount, slotByte, channelByte, count);
  if (!busy && mover.Busy) {
    Note(JournalKind::MotorPulses, slotByte, channelByte,
         static_cast<std::int32_t>(motor.PulsesAt(Live.Now)));
    Note(JournalKind::MotorPosition, slotByte, channelByte,
         static_cast<std::int32_t>(motor.PositionAt(Live.Now)));
  }
  if (busy != mover.Busy) Note(JournalKind::MotorMove, slotByte, channelByte, busy ? 1 : 0);
  mover = {Live.Now, count, busy};
}

void Rack::NoteCylinder(int slot, int channel) {
  Mover& mover = Movers[slot][channel];
  const std::int32_t shown = CylinderShown(Live.Cards[slot].Cylinder, channel, Live.Now);
  if (shown == mover.Shown) return;
  mover.Shown = shown;
  Note(JournalKind::CylinderState, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(channel),
       shown);
}

void Rack::InputEdge(SignalRef input, bool level, Nanos at) {
  const int slot = SlotOfEntry(Image, input.Entry);
  if (slot < 0 || input.Channel >= InputCount(Live.Cards[slot])) return;
  Live.Now = std::max(at, Live.Now);
  InputLevels& inputs = Live.Inputs[slot];
  const std::uint16_t before = inputs.Shown();
  const unsigned bit = 1U << input.Channel;
  inputs.Natural = static_cast<std::uint16_t>(level ? inputs.Natural | bit : inputs.Natural & ~bit);
  ShowInputs(slot, before);
}

void Rack::Counted(int link, std::uint32_t count, Nanos at) {
  Live.Now = std::max(at, Live.Now);
  Note(JournalKind::CounterValue, 0, static_cast<std::uint8_t>(link), static_cast<std::int32_t>(count));
}

void Rack::ShowInputs(int slot, std::uint16_t before) {
  const std::uint16_t shown = Live.Inputs[slot].Shown();
  for (int channel = 0; channel < InputCount(Live.Cards[slot]); ++channel) {
    const int level = shown >> channel & 1;
    SetInputLevel(Live.Cards[slot], channel, level != 0);
    if (level == (before >> channel & 1)) continue;
    Note(JournalKind::InputEdge, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(channel), level);
  }
}

std::uint32_t Rack::OutputBits(int slot) const {
  const CardState& card = Live.Cards[slot];
  if (card.Kind == CardKind::Cpu) return card.Cpu.Outputs;
  return card.Kind == CardKind::Io ? card.Io.Outputs : 0;
}

void Rack::NoteOutputs(int slot, std::uint32_t before, const Origin& origin) {
  const std::uint32_t changed = OutputBits(slot) ^ before;
  if (changed == 0) return;
  for (int channel = 0; channel < OutputCount(Live.Cards[slot]); ++channel) {
    if ((changed >> channel & 1) == 0) continue;
    const auto kind = channel < kFirstRelay ? JournalKind::OutputChange : JournalKind::RelayChange;
    const bool level = OutputLevel(Live.Cards[slot], channel);
    Note(kind, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(channel), level ? 1 : 0, origin);
  }
}

void Rack::PressKey(std::uint32_t code, bool repeated) {
  CpuCard(Live.Cards[0].Cpu).LatchKey(static_cast<std::uint8_t>(code));
  Note(JournalKind::Key, 0, repeated ? 1 : 0, static_cast<std::int32_t>(code));
}

bool Rack::IsAsked() const {
  return Requests != nullptr &&
         Requests->Sent.load(std::memory_order_acquire) != Requests->Done.load(std::memory_order_relaxed);
}

void Rack::TakeRequests() {
  Request request{};
  std::uint32_t number = 0;
  while (NextRequest(*Requests, request, number)) {
    const RequestResult result = Apply(request, number);
    SettlePlant(Live.Now);
    for (int slot = 0; slot < kSlots; ++slot) NoteMovers(slot, false);
    Finish(*Requests, result);
  }
}

RequestResult Rack::Apply(const Request& request, std::uint32_t number) {
  switch (request.Kind) {
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
      for (FaultRecord& fault : Live.Faults) {
        if (fault.Kind != FaultKind::None) End(fault);
      }
      return RequestResult::Done;
    case RequestKind::None:
      break;
  }
  return RequestResult::BadValue;
}

RequestResult Rack::SetInput(const Request& request) {
  if (request.Slot >= kSlots || InputCount(Live.Cards[request.Slot]) == 0) return RequestResult::NoSuchCard;
  if (request.Channel >= InputCount(Live.Cards[request.Slot])) return RequestResult::NoSuchChannel;
  const bool set = request.Kind == RequestKind::SetInput;
  const bool level = set && request.Value != 0;
  InputLevels& inputs = Live.Inputs[request.Slot];
  const std::uint16_t before = inputs.Shown();
  const unsigned bit = 1U << request.Channel;
  inputs.SetMask = static_cast<std::uint16_t>(set ? inputs.SetMask | bit : inputs.SetMask & ~bit);
  inputs.SetLevel = static_cast<std::uint16_t>(level ? inputs.SetLevel | bit : inputs.SetLevel & ~bit);
  ShowInputs(request.Slot, before);
  // What hangs on the input sees the hand on it too.
  const int entry = EntryOfSlot(Image, request.Slot);
  if (entry >= 0) {
    Machine.SetInput({static_cast<std::uint8_t>(entry), SignalKind::Input, request.Channel, 0}, level,
                     Live.Now);
  }
  return RequestResult::Done;
}

RequestResult Rack::Press(const Request& request, std::uint32_t number) {
  if (request.Value <= 0 || request.Value > 0xFF || request.Duration < 0) return RequestResult::BadValue;
  KeyState& keys = Live.Keys;
  keys.Code = static_cast<std::uint32_t>(request.Value);
  keys.Release = Live.Now + request.Duration;
  keys.NextRepeat = Live.Now + kFirstRepeat;
  keys.PressRequest = number;
  keys.TakenRequest = number - 1;  // not yet: the first request has the number 0
  ++keys.PressCount;
  PressKey(keys.Code, false);
  return RequestResult::Done;
}

RequestResult Rack::PressFunctionKeys(const Request& request, std::uint32_t number) {
  CpuCardState& cpu = Live.Cards[0].Cpu;
  if (cpu.FunctionPort == 0) return RequestResult::NoFunctionKeys;
  if (request.Value <= 0 || request.Value > 0x0F || request.Duration < 0) return RequestResult::BadValue;
  KeyState& keys = Live.Keys;
  keys.FunctionBits = static_cast<std::uint32_t>(request.Value);
  keys.FunctionRelease = Live.Now + request.Duration;
  keys.PressRequest = number;
  keys.TakenRequest = number - 1;  // not yet: the first request has the number 0
  ++keys.PressCount;
  cpu.FunctionKeys = static_cast<std::uint8_t>(request.Value);
  Note(JournalKind::FunctionKeys, 0, 0, request.Value);
  return RequestResult::Done;
}

RequestResult Rack::CheckFault(const Request& request) const {
  if (request.Fault == FaultKind::BusReadsFail) return RequestResult::Done;
  if (request.Slot >= kSlots) return RequestResult::NoSuchCard;
  const CardState& card = Live.Cards[request.Slot];
  int channels = 0;
  switch (request.Fault) {
    case FaultKind::CardPulled:
      return card.Kind == CardKind::None ? RequestResult::NoSuchCard : RequestResult::Done;
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
  if (request.Channel >= channels) return RequestResult::NoSuchChannel;
  if (request.Fault == FaultKind::MotorLosesSteps && request.Value <= 0) return RequestResult::BadValue;
  return RequestResult::Done;
}

RequestResult Rack::BeginFault(const Request& request) {
  if (request.Duration < 0 || request.Value < 0) return RequestResult::BadValue;
  const RequestResult check = CheckFault(request);
  if (check != RequestResult::Done) return check;
  EndFault(request);  // the same fault again replaces the one that is there
  for (FaultRecord& fault : Live.Faults) {
    if (fault.Kind != FaultKind::None) continue;
    const Nanos end = request.Duration == 0 ? 0 : Live.Now + request.Duration;
    fault = {request.Fault, request.Slot, request.Channel, 0, request.Value, Live.Now, end};
    Impose(fault, true);
    Note(JournalKind::FaultBegins, fault.Slot, fault.Channel, static_cast<std::int32_t>(fault.Kind));
    return RequestResult::Done;
  }
  return RequestResult::TooManyFaults;
}

RequestResult Rack::EndFault(const Request& request) {
  for (FaultRecord& fault : Live.Faults) {
    if (fault.Kind == FaultKind::None || fault.Kind != request.Fault) continue;
    if (fault.Slot != request.Slot || fault.Channel != request.Channel) continue;
    End(fault);
    return RequestResult::Done;
  }
  return RequestResult::NoSuchFault;
}

void Rack::End(FaultRecord& fault) {
  const FaultRecord ended = fault;
  fault = FaultRecord{};
  Impose(ended, false);
  Note(JournalKind::FaultEnds, ended.Slot, ended.Channel, static_cast<std::int32_t>(ended.Kind));
}

// Pulled cards and failing reads are looked up at each access.
void Rack::Impose(const FaultRecord& fault, bool begins) {
  CardState& card = Live.Cards[fault.Slot < kSlots ? fault.Slot : 0];
  switch (fault.Kind) {
    case FaultKind::InputStuck:
      ApplyStuck(fault.Slot);
      break;
    case FaultKind::CylinderAlarm: {
      CylinderCard cylinders(card.Cylinder);
      const auto again = static_cast<std::uint8_t>(std::min<std::int32_t>(fault.Value, kAlarmForEver));
      if (begins) cylinders.RaiseAlarm(fault.Channel, again, Live.Now);
      if (!begins) cylinders.EndAlarmCause(fault.Channel, Live.Now);
      break;
    }
    case FaultKind::MotorBlocked:
      PulseChannel(*MotorChannel(card, fault.Channel)).SetBlocked(begins, Live.Now);
      break;
    case FaultKind::MotorLosesSteps: {
      const auto every = static_cast<std::uint32_t>(begins ? fault.Value : 0);
      PulseChannel(*MotorChannel(card, fault.Channel)).SetLoseEvery(every, Live.Now);
      break;
    }
    case FaultKind::CardSilent:
      for (int channel = 0; channel < kCylinderChannels; ++channel) {
        CylinderCard(card.Cylinder).SetNoAcknowledge(channel, begins, Live.Now);
      }
      break;
    default:
      break;
  }
}

void Rack::ApplyStuck(int slot) {
  InputLevels& inputs = Live.Inputs[slot];
  const std::uint16_t before = inputs.Shown();
  unsigned mask = 0;
  unsigned level = 0;
  for (const FaultRecord& fault : Live.Faults) {
    if (fault.Kind != FaultKind::InputStuck || fault.Slot != slot) continue;
    mask |= 1U << fault.Channel;
    if (fault.Value != 0) level |= 1U << fault.Channel;
  }
  inputs.StuckMask = static_cast<std::uint16_t>(mask);
  inputs.StuckLevel = static_cast<std::uint16_t>(level);
  ShowInputs(slot, before);
}

bool Rack::Faulty(FaultKind kind, int slot) const {
  return std::any_of(std::begin(Live.Faults), std::end(Live.Faults), [&](const FaultRecord& fault) {
    return fault.Kind == kind && (kind == FaultKind::BusReadsFail || fault.Slot == slot);
  });
}

}  // namespace rack
