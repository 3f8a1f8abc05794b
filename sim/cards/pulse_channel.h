// One pulse generator with its motor and encoder counter, as the stepper and the servo card have several.
//
// Control byte
//   bit 7     direction: clear counts up, set counts down
//   bit 6     level of the stop input that stops the move: set on, clear off
//   bit 5     force: the external stop does not matter for this move
//   bit 3     count stop: the move ends with the pulse after which |count| is the stop count or more
//   bit 2     external stop: the move ends when the stop input has the level of bit 6, and does not start
//             while it has
//   bits 1,0  which of the stop inputs 0 to 3 is looked at
//
// The step and stop registers hold twice the number; bit 0 is not looked at. A move takes its registers at
// the start: what is written while it runs counts for the next start. A start during a move ends that move
// and begins the new one. Pulse k of a move comes k / rate after its start. A rate of 0 makes no pulse: such
// a move is busy for ever.
//
// The way of the motor may end at hard stops. A move that goes on there has all its pulses and takes its time; the motor
// stands, its encoder with it, and the steps are lost.
#pragma once

#include <optional>

#include "cards/card.h"

namespace rack {

// The rate of a card: pulses per second and unit of frequency code. The limit keeps a move's arithmetic
// within 64 bits.
constexpr std::uint32_t kDefaultPulsesPerUnit = 100;
constexpr std::uint32_t kMaxPulsesPerUnit = 1000000;

// The setting of that rate, for the cards that have it.
constexpr CardSetting PulseRateSetting(void (*set)(void* state, std::int64_t value)) {
  return {"pulses_per_unit",   "motor cards: pulses per second and unit of frequency code",
          SettingUnit::Number, 1,
          kMaxPulsesPerUnit,   set};
}

// A way that ends nowhere. Far enough from the ends of 64 bits for sums and differences.
constexpr std::int64_t kNoHardStop = std::int64_t{1} << 60;

struct PulseChannelState {
  // Where things stood after settledPulses pulses of the move that started last.
  std::int64_t position;  // of the mechanics, in steps; no clear touches it
  std::int64_t encoder;   // counts
  std::int64_t settledPulses;
  // The move that started last, its registers as they were at the start.
  Nanos moveStart;
  std::int64_t moveSteps;
  std::int64_t moveRate;  // pulses per second
  std::int64_t moveStop;  // stop count
  // The ends of the way; kNoHardStop where there is none; steps lost there since power-on, and how many of them before
  // the move that started last.
  std::int64_t hardStopLow;
  std::int64_t hardStopHigh;
  std::int64_t lostSteps;
  std::int64_t lostBefore;
  // Registers.
  std::uint32_t steps;      // twice the number of steps
  std::uint32_t stopCount;  // twice the stop count
  std::uint32_t encoderLatch;
  // Fault: every loseEvery-th pulse moves nothing; 0: none is lost.
  std::uint32_t loseEvery;
  std::uint32_t moves;  // started since power-on
  std::uint16_t startSteps;
  std::uint16_t compensation;
  std::uint8_t control;
  std::uint8_t frequency;
  std::uint8_t moveControl;
  std::uint8_t running;  // 1 from the start until the end of the move has been settled; see Busy
  std::uint8_t held;     // 1 while the generator's clear register is not 0: no move starts
  std::uint8_t blocked;  // fault, 1: pulses come, nothing moves
  std::uint8_t stopInputs;
  std::uint8_t reserved;
};
static_assert(kSharable<PulseChannelState> && sizeof(PulseChannelState) == 120);

// Bit 4 of the control byte means nothing on any card.
constexpr std::uint8_t kUnusedControlBit = 0x10;

// What there is to say of the lowest byte of a step or stop count, which holds twice a number.
constexpr Protest ProtestOfCount(std::uint8_t lowest) {
  return lowest % 2 == 0 ? Protest::None : Protest::BadValue;
}

// What there is to say of a write to the start register of a channel.
constexpr Protest ProtestOfStart(const PulseChannelState& channel, std::uint8_t value) {
  if (value != 1) return Protest::BadValue;
  return channel.held != 0 ? Protest::GeneratorHeld : Protest::None;
}

class PulseChannel {
 public:
  explicit PulseChannel(PulseChannelState& state) : state_(state) {}
  void PowerOn();

  // Byte 0 (lowest) to 3 of the step and stop registers, byte 0 or 1 of the two short ones.
  void WriteSteps(int byte, std::uint8_t value);
  void WriteStopCount(int byte, std::uint8_t value);
  void WriteStartSteps(int byte, std::uint8_t value);
  void WriteCompensation(int byte, std::uint8_t value);

  void Start(std::uint32_t pulsesPerUnit, Nanos now);
  // Not 0: ends the move where it is and lets none start. 0: releases.
  void ClearGenerator(std::uint8_t value, Nanos now);
  // Not 0: sets the encoder counter to 0.
  void ClearEncoder(std::uint8_t value, Nanos now);
  // Offset binary, 0x80000000 is count 0. Byte 0 latches the counter; bytes 1 to 3 come from the latch, so
  // that a count read lowest byte first is one that stood at one moment.
  std::uint8_t ReadEncoder(int byte, Nanos now);

  bool Busy(Nanos now) const;
  std::int64_t PositionAt(Nanos now) const;
  std::int64_t EncoderAt(Nanos now) const;
  // How many pulses of the move that started last have come.
  std::int64_t PulsesAt(Nanos now) const;
  // When the move started last ends or has ended, if nothing interferes; nothing: no move, or one that never
  // ends.
  std::optional<Nanos> MoveEnd() const;
  // When the running move brings the position to the given one; nothing: it does not, or has passed it.
  std::optional<Nanos> ReachTime(std::int64_t position) const;
  // How many steps the hard stops have taken since power-on, and whether the move that started last has lost any there.
  std::int64_t LostAt(Nanos now) const;
  bool HasHitStop(Nanos now) const { return LostAt(now) > state_.lostBefore; }
  // When the running move loses its first step at a hard stop; nothing: it does not, or has already.
  std::optional<Nanos> HitTime() const;

  void SetStopInput(int input, bool level, Nanos now);
  void SetBlocked(bool blocked, Nanos now);
  void SetLoseEvery(std::uint32_t every, Nanos now);

 private:
  bool Counts() const { return state_.running != 0 && state_.moveRate > 0; }
  std::int64_t LastPulse() const;
  Nanos PulseTime(std::int64_t pulse) const;
  std::int64_t MovedAfter(std::int64_t pulse) const;
  std::int64_t DrivenAfter(std::int64_t pulse) const;
  std::int64_t StepsAfter(std::int64_t pulse) const;
  std::int64_t Room() const;
  std::optional<std::int64_t> PulseThatDrives(std::int64_t steps) const;
  std::optional<std::int64_t> PulseThatMoves(std::int64_t steps) const;
  int Direction() const;
  bool StopActive(std::uint8_t control) const;
  void Settle(Nanos now);

  PulseChannelState& state_;
};

}  // namespace rack
