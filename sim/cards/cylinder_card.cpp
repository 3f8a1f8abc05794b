#include "cards/cylinder_card.h"

#include <algorithm>
#include <cstdlib>

namespace rack {

namespace {

enum Port : std::uint8_t { kVersion = 3, kType = 4, kSelect = 5, kCommand = 6, kDelay = 7 };

constexpr std::uint8_t kResetCommand = 0x10;
constexpr std::uint8_t kSetupCommand = 0x20;
constexpr std::uint8_t kMoveCommand = 0x30;
constexpr std::uint8_t kMovePosition = 0x0F;

constexpr int kAlarm = 0x80;
constexpr int kMoving = 0x40;
constexpr int kNotInPosition = 0x20;
constexpr int kInPosition = 0x10;
constexpr int kResetting = 0x08;
constexpr int kTaken = 0x01;

enum Phase : std::uint8_t { kPhaseStill = 0, kPhaseTravel = 1, kPhaseReset = 2 };
enum Handshake : std::uint8_t { kNoCommand = 0, kCommandTaken = 1, kCommandHeld = 2 };

constexpr Nanos kTakeTime = 1 * kMicrosecond;
constexpr Nanos kReleaseTime = 2 * kMicrosecond;
// A command lasts at least this long, also one that has nothing to do.
constexpr Nanos kShortestCommand = 1 * kMillisecond;

constexpr std::int32_t kPosition = 1000;

bool Exists(int channel) {
  return channel >= 0 && channel < kCylinderChannels;
}

std::int32_t Place(const CylinderChannelState& channel, Nanos now) {
  if (channel.Phase != kPhaseTravel) return channel.To;
  const std::int64_t way = channel.To - channel.From;
  return channel.From +
         static_cast<std::int32_t>(way * (now - channel.Start) / (channel.End - channel.Start));
}

// The channel as it is now, a phase that has ended taken to its end.
CylinderChannelState Settled(CylinderChannelState channel, Nanos now) {
  if (channel.Phase == kPhaseStill || now < channel.End) return channel;
  if (channel.Phase == kPhaseReset && channel.AlarmsToCome > 0) {
    channel.Alarm = 1;
    if (channel.AlarmsToCome != kAlarmForEver) --channel.AlarmsToCome;
  }
  channel.Phase = kPhaseStill;
  channel.From = channel.To;
  return channel;
}

void Begin(CylinderChannelState& channel, Phase phase, std::int32_t to, Nanos duration, Nanos now) {
  channel.From = Place(channel, now);
  channel.To = to;
  channel.Phase = phase;
  channel.Start = now;
  channel.End = now + std::max(duration, kShortestCommand);
}

}  // namespace

void CylinderCard::PowerOn() {
  State = CylinderCardState{};
  State.Version = kCardVersion;
  State.Type = kCylinderType;
  State.TravelTime = 100 * kMillisecond;
  State.SetupTime = 500 * kMillisecond;
  State.ResetTime = 50 * kMillisecond;
}

std::uint8_t CylinderCard::Read(std::uint8_t port, Nanos now) {
  switch (port) {
    case kVersion:
      return State.Version;
    case kType:
      return State.Type;
    case kSelect:
      return HoldsCommand(State.Selected, now) ? 1 : 0;
    case kCommand:
      return Status(State.Selected, now);
    default:
      return kOpenBus;
  }
}

void CylinderCard::Write(std::uint8_t port, std::uint8_t value, Nanos now) {
  switch (port) {
    case kSelect:
      State.Selected = value;
      return;
    case kCommand:
      Command(value, now);
      return;
    case kDelay:
      State.Delay = value;
      return;
    default:
      return;
  }
}

bool CylinderCard::HoldsCommand(int channel, Nanos now) const {
  if (!Exists(channel)) return false;
  const CylinderChannelState& state = State.Channels[channel];
  if (state.Handshake == kCommandTaken) return now < state.CommandAt + kReleaseTime;
  return state.Handshake == kCommandHeld;
}

std::uint8_t CylinderCard::Status(int channel, Nanos now) const {
  if (!Exists(channel)) return kOpenBus;
  const CylinderChannelState state = Settled(State.Channels[channel], now);
  int status = 0;
  if (state.Handshake == kCommandTaken && now >= state.CommandAt + kTakeTime &&
      (state.Phase != kPhaseStill || now < state.CommandAt + kShortestCommand)) {
    status |= kTaken;
  }
  if (state.Alarm != 0) return static_cast<std::uint8_t>(status | kAlarm);
  if (state.Phase == kPhaseTravel) return static_cast<std::uint8_t>(status | kMoving | kNotInPosition);
  if (state.Phase == kPhaseReset) return static_cast<std::uint8_t>(status | kResetting | kNotInPosition);
  return static_cast<std::uint8_t>(status | (state.To % kPosition == 0 ? kInPosition : kNotInPosition));
}

int CylinderCard::StandsAt(int channel, Nanos now) const {
  if (!Exists(channel)) return -1;
  const CylinderChannelState state = Settled(State.Channels[channel], now);
  if (state.Phase == kPhaseTravel || state.To % kPosition != 0) return -1;
  return state.To / kPosition;
}

std::int32_t CylinderCard::PlaceAt(int channel, Nanos now) const {
  return Exists(channel) ? Place(Settled(State.Channels[channel], now), now) : 0;
}

bool CylinderCard::InAlarm(int channel, Nanos now) const {
  return Exists(channel) && Settled(State.Channels[channel], now).Alarm != 0;
}

std::optional<Nanos> CylinderCard::NextEvent(int channel, Nanos now) const {
  if (!Exists(channel)) return std::nullopt;
  const CylinderChannelState& state = State.Channels[channel];
  if (state.Phase == kPhaseStill || state.End <= now) return std::nullopt;
  return state.End;
}

void CylinderCard::RaiseAlarm(int channel, std::uint8_t alarmsToCome, Nanos now) {
  if (!Exists(channel)) return;
  CylinderChannelState& state = Settle(channel, now);
  state.From = state.To = Place(state, now);
  state.Phase = kPhaseStill;
  state.Alarm = 1;
  state.AlarmsToCome = alarmsToCome;
}

void CylinderCard::EndAlarmCause(int channel, Nanos now) {
  if (Exists(channel)) Settle(channel, now).AlarmsToCome = 0;
}

void CylinderCard::SetNoAcknowledge(int channel, bool fault, Nanos now) {
  if (!Exists(channel)) return;
  CylinderChannelState& state = Settle(channel, now);
  state.NoAcknowledge = fault;
  // What was held meanwhile is lost.
  if (!fault && state.Handshake == kCommandHeld) state.Handshake = kNoCommand;
}

CylinderChannelState& CylinderCard::Settle(int channel, Nanos now) {
  CylinderChannelState& state = State.Channels[channel];
  state = Settled(state, now);
  return state;
}

void CylinderCard::Command(std::uint8_t value, Nanos now) {
  if (!Exists(State.Selected)) return;
  const bool move = (value & ~kMovePosition) == kMoveCommand;
  if (value != kResetCommand && value != kSetupCommand && !move) return;
  CylinderChannelState& channel = Settle(State.Selected, now);
  channel.CommandAt = now;
  channel.Handshake = channel.NoAcknowledge != 0 ? kCommandHeld : kCommandTaken;
  if (channel.NoAcknowledge != 0) return;
  if (value == kResetCommand) {
    channel.Alarm = 0;
    Begin(channel, kPhaseReset, Place(channel, now), State.ResetTime, now);
    return;
  }
  if (channel.Alarm != 0 || channel.Phase == kPhaseReset) return;
  if (value == kSetupCommand) {
    Begin(channel, kPhaseTravel, 0, State.SetupTime, now);
    return;
  }
  const std::int32_t target = (value & kMovePosition) * kPosition;
  const Nanos way = std::abs(target - Place(channel, now));
  Begin(channel, kPhaseTravel, target, way * State.TravelTime / kPosition, now);
}

}  // namespace rack
