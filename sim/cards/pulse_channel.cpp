#include "cards/pulse_channel.h"

#include <algorithm>

namespace rack {

namespace {

constexpr std::uint8_t kCountsDown = 0x80;
constexpr std::uint8_t kStopLevel = 0x40;
constexpr std::uint8_t kForce = 0x20;
constexpr std::uint8_t kCountStop = 0x08;
constexpr std::uint8_t kExternalStop = 0x04;
constexpr std::uint8_t kStopInput = 0x03;

constexpr std::uint32_t kCountZero = 0x80000000;

}  // namespace

void PulseChannel::PowerOn() {
  state_ = PulseChannelState{};
  state_.encoderLatch = kCountZero;
  state_.hardStopLow = -kNoHardStop;
  state_.hardStopHigh = kNoHardStop;
}

void PulseChannel::WriteSteps(int byte, std::uint8_t value) {
  SetByte(state_.steps, byte, value);
}
void PulseChannel::WriteStopCount(int byte, std::uint8_t value) {
  SetByte(state_.stopCount, byte, value);
}
void PulseChannel::WriteStartSteps(int byte, std::uint8_t value) {
  SetByte(state_.startSteps, byte, value);
}
void PulseChannel::WriteCompensation(int byte, std::uint8_t value) {
  SetByte(state_.compensation, byte, value);
}

void PulseChannel::Start(std::uint32_t pulsesPerUnit, Nanos now) {
  Settle(now);
  state_.running = 0;
  if (state_.held != 0 || StopActive(state_.control)) return;
  state_.settledPulses = 0;
  state_.lostBefore = state_.lostSteps;
  state_.moveStart = now;
  state_.moveSteps = state_.steps / 2;
  state_.moveStop = state_.stopCount / 2;
  state_.moveRate = std::int64_t{state_.frequency} * pulsesPerUnit;
  state_.moveControl = state_.control;
  state_.running = state_.moveSteps > 0;
  ++state_.moves;
}

void PulseChannel::ClearGenerator(std::uint8_t value, Nanos now) {
  state_.held = value != 0;
  if (value == 0) return;
  Settle(now);
  state_.running = 0;
}

void PulseChannel::ClearEncoder(std::uint8_t value, Nanos now) {
  if (value == 0) return;
  Settle(now);
  state_.encoder = 0;
}

std::uint8_t PulseChannel::ReadEncoder(int byte, Nanos now) {
  if (byte == 0) state_.encoderLatch = static_cast<std::uint32_t>(EncoderAt(now)) ^ kCountZero;
  return ByteOf(state_.encoderLatch, byte);
}

bool PulseChannel::Busy(Nanos now) const {
  if (!Counts()) return state_.running != 0;
  return now < PulseTime(LastPulse());
}

std::int64_t PulseChannel::PositionAt(Nanos now) const {
  return state_.position + Direction() * StepsAfter(PulsesAt(now));
}

std::int64_t PulseChannel::EncoderAt(Nanos now) const {
  return state_.encoder + PositionAt(now) - state_.position;
}

std::optional<Nanos> PulseChannel::MoveEnd() const {
  if (!Counts()) return std::nullopt;
  return PulseTime(LastPulse());
}

std::optional<Nanos> PulseChannel::ReachTime(std::int64_t position) const {
  if (!Counts()) return std::nullopt;
  const std::int64_t steps = Direction() * (position - state_.position);
  if (steps <= 0) return std::nullopt;
  const std::optional<std::int64_t> pulse = PulseThatMoves(steps);
  if (!pulse || *pulse > LastPulse()) return std::nullopt;
  return PulseTime(*pulse);
}

std::int64_t PulseChannel::LostAt(Nanos now) const {
  const std::int64_t pulses = PulsesAt(now);
  return state_.lostSteps + DrivenAfter(pulses) - StepsAfter(pulses);
}

std::optional<Nanos> PulseChannel::HitTime() const {
  if (!Counts() || state_.lostSteps > state_.lostBefore) return std::nullopt;
  const std::optional<std::int64_t> pulse = PulseThatDrives(Room() + 1);
  if (!pulse || *pulse > LastPulse()) return std::nullopt;
  return PulseTime(*pulse);
}

void PulseChannel::SetStopInput(int input, bool level, Nanos now) {
  Settle(now);
  const int bit = 1 << (input & kStopInput);
  state_.stopInputs = static_cast<std::uint8_t>(level ? state_.stopInputs | bit : state_.stopInputs & ~bit);
  if (StopActive(state_.moveControl)) state_.running = 0;
}

void PulseChannel::SetBlocked(bool blocked, Nanos now) {
  Settle(now);
  state_.blocked = blocked;
}

void PulseChannel::SetLoseEvery(std::uint32_t every, Nanos now) {
  Settle(now);
  state_.loseEvery = every;
}

// The number of the pulse with which the running move ends.
std::int64_t PulseChannel::LastPulse() const {
  if ((state_.moveControl & kCountStop) == 0) return state_.moveSteps;
  const std::int64_t next = state_.settledPulses + 1;
  const std::int64_t ahead = Direction() * state_.encoder;
  const std::int64_t afterNext = ahead + StepsAfter(next);
  if (afterNext >= state_.moveStop || afterNext <= -state_.moveStop) return std::min(next, state_.moveSteps);
  return std::min(PulseThatMoves(state_.moveStop - ahead).value_or(state_.moveSteps), state_.moveSteps);
}

std::int64_t PulseChannel::PulsesAt(Nanos now) const {
  if (!Counts() || now <= state_.moveStart) return state_.settledPulses;
  // In two parts: the product of a long time and the rate does not fit into 64 bits.
  const Nanos elapsed = now - state_.moveStart;
  const std::int64_t pulses =
      elapsed / kSecond * state_.moveRate + elapsed % kSecond * state_.moveRate / kSecond;
  return std::max(state_.settledPulses, std::min(pulses, LastPulse()));
}

Nanos PulseChannel::PulseTime(std::int64_t pulse) const {
  return state_.moveStart + (pulse * kSecond + state_.moveRate - 1) / state_.moveRate;
}

// The steps that so many pulses of a move drive the motor by.
std::int64_t PulseChannel::MovedAfter(std::int64_t pulse) const {
  if (state_.blocked != 0) return 0;
  if (state_.loseEvery == 0) return pulse;
  return pulse - pulse / state_.loseEvery;
}

// The same, counted from where things were settled; and what is left of it where the way ends.
std::int64_t PulseChannel::DrivenAfter(std::int64_t pulse) const {
  return MovedAfter(pulse) - MovedAfter(state_.settledPulses);
}

std::int64_t PulseChannel::StepsAfter(std::int64_t pulse) const {
  return std::min(DrivenAfter(pulse), Room());
}

// Steps from where things were settled to the hard stop ahead.
std::int64_t PulseChannel::Room() const {
  const auto held = [](std::int64_t place) { return std::clamp(place, -kNoHardStop, kNoHardStop); };
  const std::int64_t position = held(state_.position);
  const std::int64_t room =
      Direction() > 0 ? held(state_.hardStopHigh) - position : position - held(state_.hardStopLow);
  return std::max<std::int64_t>(room, 0);
}

// The pulse that makes the last of so many steps (1 or more), counted from where things were settled.
std::optional<std::int64_t> PulseChannel::PulseThatMoves(std::int64_t steps) const {
  return steps > Room() ? std::nullopt : PulseThatDrives(steps);
}

std::optional<std::int64_t> PulseChannel::PulseThatDrives(std::int64_t steps) const {
  if (state_.blocked != 0 || state_.loseEvery == 1) return std::nullopt;
  const std::int64_t inMove = steps + MovedAfter(state_.settledPulses);
  if (state_.loseEvery == 0) return inMove;
  return inMove + (inMove - 1) / (std::int64_t{state_.loseEvery} - 1);
}

int PulseChannel::Direction() const {
  return (state_.moveControl & kCountsDown) != 0 ? -1 : 1;
}

bool PulseChannel::StopActive(std::uint8_t control) const {
  if ((control & kExternalStop) == 0 || (control & kForce) != 0) return false;
  const bool level = (state_.stopInputs >> (control & kStopInput) & 1) != 0;
  return level == ((control & kStopLevel) != 0);
}

// Brings the settled values up to now. Needed before anything changes that the course of the move depends on.
void PulseChannel::Settle(Nanos now) {
  const bool busy = Busy(now);
  const std::int64_t pulses = PulsesAt(now);
  const std::int64_t position = PositionAt(now);
  state_.lostSteps = LostAt(now);
  state_.encoder += position - state_.position;
  state_.position = position;
  state_.settledPulses = pulses;
  state_.running = busy;
}

}  // namespace rack
