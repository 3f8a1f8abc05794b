// What happens by itself as time goes on, and what the journal is told of it.
#include <algorithm>

#include "rack/rack.h"

namespace rack {
namespace {

// A held key is sent again as keyboards do.
constexpr Nanos kRepeat = 100 * kMillisecond;
// How often the journal is told of a moving motor's count.
constexpr Nanos kSample = 20 * kMillisecond;

std::int32_t CylinderShown(CardState& card, int channel, Nanos now) {
  const CylinderCard model(*Cylinders(card));
  const int place = model.PlaceAt(channel, now) / kCylinderPosition;
  return model.Status(channel, now) | place << 8;
}

}  // namespace

// Takes what moves as known: the controller that ran before has noted it.
void Rack::Begin() {
  for (int slot = 0; slot < kSlots; ++slot) {
    CardState& card = live_.cards[slot];
    for (int channel = 0; channel < MotorCount(card); ++channel) {
      const PulseChannel motor(*MotorChannel(card, channel));
      movers_[slot][channel] = {live_.now, static_cast<std::int32_t>(motor.EncoderAt(live_.now)),
                                motor.Busy(live_.now), motor.Busy(live_.now) && motor.HasHitStop(live_.now),
                                MotorChannel(card, channel)->lostBefore};
    }
    for (int channel = 0; channel < CylinderCount(card); ++channel) {
      movers_[slot][channel].shown = CylinderShown(card, channel, live_.now);
    }
  }
}

void Rack::AdvanceTo(Nanos now) {
  const LiveChange change(live_);
  if (now >= tellPollsAt_) {
    if (journal_) journal_->TellRounds(live_.now);
    tellPollsAt_ = now / kSecond * kSecond + kSecond;
  }
  const bool asked = IsAsked();
  if (asked) quietUntil_ = 0;
  Reach(std::max(now, live_.now));
  if (!asked) return;
  TakeRequests();
  quietUntil_ = 0;
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
  if (!journal_) return next;
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
    if (!mover.pushes) next = std::min(next, motor.HitTime().value_or(kNever));
  }
  for (int channel = 0; channel < CylinderCount(card); ++channel) {
    const auto end = CylinderCard(*Cylinders(card)).NextEvent(channel, live_.now);
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
  if (keys.functionBits != 0 && keys.functionRelease <= live_.now) HoldFunctionKeys(0);
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

// Of a motor that was known to move: whether it pushes against a hard stop, and when that is over. The next move may
// have begun by then.
void Rack::NoteHardStop(int slot, int channel) {
  Mover& mover = movers_[slot][channel];
  PulseChannelState& state = *MotorChannel(live_.cards[slot], channel);
  const PulseChannel motor(state);
  const bool hits = motor.HasHitStop(live_.now);
  const auto note = [&](int value, std::int64_t number) {
    Note(JournalKind::HardStop, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(channel), value,
         {kUnknownTask, 0, static_cast<std::uint32_t>(number)});
  };
  if (hits && !mover.pushes) {
    mover.pushes = true;
    mover.lostBefore = state.lostBefore;
    note(1, motor.PositionAt(live_.now));
  }
  if (!mover.pushes || (hits && motor.Busy(live_.now))) return;
  mover.pushes = false;
  note(0, motor.LostAt(live_.now) - mover.lostBefore);
}

void Rack::NoteMotor(int slot, int channel, bool sample) {
  Mover& mover = movers_[slot][channel];
  if (mover.busy) NoteHardStop(slot, channel);
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
  mover.sampledAt = live_.now;
  mover.shown = count;
  mover.busy = busy;
}

void Rack::NoteCylinder(int slot, int channel) {
  Mover& mover = movers_[slot][channel];
  const std::int32_t shown = CylinderShown(live_.cards[slot], channel, live_.now);
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

void Rack::PressKey(std::uint32_t code, bool repeated) {
  CpuCard(live_.cards[0].cpu).LatchKey(static_cast<std::uint8_t>(code));
  Note(JournalKind::Key, 0, repeated ? 1 : 0, static_cast<std::int32_t>(code));
}

void Rack::HoldFunctionKeys(std::uint32_t bits) {
  live_.keys.functionBits = bits;
  live_.cards[0].cpu.functionKeys = static_cast<std::uint8_t>(bits);
  Note(JournalKind::FunctionKeys, 0, 0, static_cast<std::int32_t>(bits));
}

}  // namespace rack
