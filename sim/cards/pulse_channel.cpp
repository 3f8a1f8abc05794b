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
  State = PulseChannelState{};
  State.EncoderLatch = kCountZero;
}

void PulseChannel::WriteSteps(int byte, std::uint8_t value) {
  SetByte(State.Steps, byte, value);
}
void PulseChannel::WriteStopCount(int byte, std::uint8_t value) {
  SetByte(State.StopCount, byte, value);
}
void PulseChannel::WriteStartSteps(int byte, std::uint8_t value) {
  SetByte(State.StartSteps, byte, value);
}
void PulseChannel::WriteCompensation(int byte, std::uint8_t value) {
  SetByte(State.Compensation, byte, value);
}

void PulseChannel::Start(std::uint32_t pulsesPerUnit, Nanos now) {
  Settle(now);
  State.Running = 0;
  if (State.Held != 0 || StopActive(State.Control)) return;
  State.SettledPulses = 0;
  State.MoveStart = now;
  State.MoveSteps = State.Steps / 2;
  State.MoveStop = State.StopCount / 2;
  State.MoveRate = std::int64_t{State.Frequency} * pulsesPerUnit;
  State.MoveControl = State.Control;
  State.Running = State.MoveSteps > 0;
  ++State.Moves;
}

void PulseChannel::ClearGenerator(std::uint8_t value, Nanos now) {
  State.Held = value != 0;
  if (value == 0) return;
  Settle(now);
  State.Running = 0;
}

void PulseChannel::ClearEncoder(std::uint8_t value, Nanos now) {
  if (value == 0) return;
  Settle(now);
  State.Encoder = 0;
}

std::uint8_t PulseChannel::ReadEncoder(int byte, Nanos now) {
  if (byte == 0) State.EncoderLatch = static_cast<std::uint32_t>(EncoderAt(now)) ^ kCountZero;
  return ByteOf(State.EncoderLatch, byte);
}

bool PulseChannel::Busy(Nanos now) const {
  if (!Counts()) return State.Running != 0;
  return now < PulseTime(LastPulse());
}

std::int64_t PulseChannel::PositionAt(Nanos now) const {
  return State.Position + Direction() * (MovedAfter(PulsesAt(now)) - MovedAfter(State.SettledPulses));
}

std::int64_t PulseChannel::EncoderAt(Nanos now) const {
  return State.Encoder + PositionAt(now) - State.Position;
}

std::optional<Nanos> PulseChannel::MoveEnd() const {
  if (!Counts()) return std::nullopt;
  return PulseTime(LastPulse());
}

std::optional<Nanos> PulseChannel::ReachTime(std::int64_t position) const {
  if (!Counts()) return std::nullopt;
  const std::int64_t steps = Direction() * (position - State.Position);
  if (steps <= 0) return std::nullopt;
  const std::optional<std::int64_t> pulse = PulseThatMoves(steps);
  if (!pulse || *pulse > LastPulse()) return std::nullopt;
  return PulseTime(*pulse);
}

void PulseChannel::SetStopInput(int input, bool level, Nanos now) {
  Settle(now);
  const int bit = 1 << (input & kStopInput);
  State.StopInputs = static_cast<std::uint8_t>(level ? State.StopInputs | bit : State.StopInputs & ~bit);
  if (StopActive(State.MoveControl)) State.Running = 0;
}

void PulseChannel::SetBlocked(bool blocked, Nanos now) {
  Settle(now);
  State.Blocked = blocked;
}

void PulseChannel::SetLoseEvery(std::uint32_t every, Nanos now) {
  Settle(now);
  State.LoseEvery = every;
}

// The number of the pulse with which the running move ends.
std::int64_t PulseChannel::LastPulse() const {
  if ((State.MoveControl & kCountStop) == 0) return State.MoveSteps;
  const std::int64_t next = State.SettledPulses + 1;
  const std::int64_t ahead = Direction() * State.Encoder;
  const std::int64_t afterNext = ahead + MovedAfter(next) - MovedAfter(State.SettledPulses);
  if (afterNext >= State.MoveStop || afterNext <= -State.MoveStop) return std::min(next, State.MoveSteps);
  return std::min(PulseThatMoves(State.MoveStop - ahead).value_or(State.MoveSteps), State.MoveSteps);
}

std::int64_t PulseChannel::PulsesAt(Nanos now) const {
  if (!Counts() || now <= State.MoveStart) return State.SettledPulses;
  // In two parts: the product of a long time and the rate does not fit into 64 bits.
  const Nanos elapsed = now - State.MoveStart;
  const std::int64_t pulses =
      elapsed / kSecond * State.MoveRate + elapsed % kSecond * State.MoveRate / kSecond;
  return std::max(State.SettledPulses, std::min(pulses, LastPulse()));
}

Nanos PulseChannel::PulseTime(std::int64_t pulse) const {
  return State.MoveStart + (pulse * kSecond + State.MoveRate - 1) / State.MoveRate;
}

// The steps made by that many pulses of a move.
std::int64_t PulseChannel::MovedAfter(std::int64_t pulse) const {
  if (State.Blocked != 0) return 0;
  if (State.LoseEvery == 0) return pulse;
  return pulse - pulse / State.LoseEvery;
}

// The pulse that makes the last of so many steps (1 or more), counted from where things were settled.
std::optional<std::int64_t> PulseChannel::PulseThatMoves(std::int64_t steps) const {
  if (State.Blocked != 0 || State.LoseEvery == 1) return std::nullopt;
  const std::int64_t inMove = steps + MovedAfter(State.SettledPulses);
  if (State.LoseEvery == 0) return inMove;
  return inMove + (inMove - 1) / (std::int64_t{State.LoseEvery} - 1);
}

int PulseChannel::Direction() const {
  return (State.MoveControl & kCountsDown) != 0 ? -1 : 1;
}

bool PulseChannel::StopActive(std::uint8_t control) const {
  if ((control & kExternalStop) == 0 || (control & kForce) != 0) return false;
  const bool level = (State.StopInputs >> (control & kStopInput) & 1) != 0;
  return level == ((control & kStopLevel) != 0);
}

// Brings the settled values up to now. Needed before anything changes that the course of the move depends on.
void PulseChannel::Settle(Nanos now) {
  const bool busy = Busy(now);
  const std::int64_t pulses = PulsesAt(now);
  const std::int64_t position = PositionAt(now);
  State.Encoder += position - State.Position;
  State.Position = position;
  State.SettledPulses = pulses;
  State.Running = busy;
}

}  // namespace rack
