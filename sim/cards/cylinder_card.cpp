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

enum Phase : std::uint8_t { kPhaseStill = 0, kPhaseTravel = 1, kPhaseReset = 2 };
enum Handshake : std::uint8_t { kNoCommand = 0, kCommandTaken = 1, kCommandHeld = 2 };

constexpr Nanos kTakeTime = 1 * kMicrosecond;
constexpr Nanos kReleaseTime = 2 * kMicrosecond;
// A command lasts at least this long, also one that has nothing to do.
constexpr Nanos kShortestCommand = 1 * kMillisecond;

bool IsCommand(std::uint8_t value) {
  return value == kResetCommand || value == kSetupCommand || (value & ~kMovePosition) == kMoveCommand;
}

bool Exists(int channel) {
  return channel >= 0 && channel < kCylinderChannels;
}

std::int32_t Place(const CylinderChannelState& channel, Nanos now) {
  if (channel.phase != kPhaseTravel) return channel.to;
  if (now < channel.start) return channel.from;
  const std::int64_t way = channel.to - channel.from;
  return channel.from +
         static_cast<std::int32_t>(way * (now - channel.start) / (channel.end - channel.start));
}

bool IsKeptBack(const CylinderChannelState& channel) {
  return channel.jammed != 0 && channel.goal != kNoGoal && channel.goal * kCylinderPosition != channel.to;
}

// The channel as it is now, a phase that has ended taken to its end.
CylinderChannelState Settled(CylinderChannelState channel, Nanos now) {
  if (channel.phase == kPhaseStill || now < channel.end) return channel;
  if (channel.phase == kPhaseReset && channel.alarmsToCome > 0) {
    channel.alarm = 1;
    if (channel.alarmsToCome != kAlarmForEver) --channel.alarmsToCome;
  }
  channel.phase = kPhaseStill;
  channel.from = channel.to;
  return channel;
}

// The phase begins after the delay that is set on the card.
void Begin(CylinderChannelState& channel, Phase phase, std::int32_t to, Nanos delay, Nanos duration,
           Nanos now) {
  channel.from = Place(channel, now);
  channel.to = to;
  channel.phase = phase;
  channel.start = now + delay;
  channel.end = channel.start + std::max(duration, kShortestCommand);
}

}  // namespace

RowsOf<RegisterName> CylinderCard::Registers() {
  static constexpr RegisterName rows[] = {
      {kVersion, Access::Read, "version"},        {kType, Access::Read, "type"},
      {kSelect, Access::Write, "channel select"}, {kSelect, Access::Read, "handshake"},
      {kCommand, Access::Write, "command"},       {kCommand, Access::Read, "status"},
      {kDelay, Access::Write, "delay"},
  };
  return rows;
}

RowsOf<CardSetting> CylinderCard::Settings() {
  static constexpr CardSetting rows[] = {
      {"travel_time", "cylinder card: time for one position", SettingUnit::Time, 0, 0,
       &SetMember<State, Nanos, &State::travelTime>},
      {"setup_time", "cylinder card: time of a setup", SettingUnit::Time, 0, 0,
       &SetMember<State, Nanos, &State::setupTime>},
      {"reset_time", "cylinder card: time of a reset", SettingUnit::Time, 0, 0,
       &SetMember<State, Nanos, &State::resetTime>},
      {"delay_unit", "cylinder card: time for each unit of the delay register", SettingUnit::Time, 0, 0,
       &SetMember<State, Nanos, &State::delayUnit>},
      {"strict", "cylinder card: a command while it holds the last one is lost", SettingUnit::Flag, 0, 1,
       &SetMember<State, std::uint8_t, &State::strict>},
  };
  return rows;
}

void CylinderCard::PowerOn(std::uint8_t type) {
  state_ = State{};
  state_.version = kCardVersion;
  state_.type = type;
  state_.travelTime = 100 * kMillisecond;
  state_.setupTime = 500 * kMillisecond;
  state_.resetTime = 50 * kMillisecond;
}

std::uint8_t CylinderCard::Read(std::uint8_t port, Nanos now) {
  switch (port) {
    case kVersion:
      return state_.version;
    case kType:
      return state_.type;
    case kSelect:
      return ShowsHeld(state_.selected, now) ? 1 : 0;
    case kCommand:
      return Status(state_.selected, now);
    default:
      return kOpenBus;
  }
}

void CylinderCard::Write(std::uint8_t port, std::uint8_t value, Nanos now) {
  switch (port) {
    case kSelect:
      state_.selected = value;
      return;
    case kCommand:
      Command(value, now);
      return;
    case kDelay:
      state_.delay = value;
      return;
    default:
      return;
  }
}

bool CylinderCard::HoldsCommand(int channel, Nanos now) const {
  if (!Exists(channel)) return false;
  const CylinderChannelState& state = state_.channels[channel];
  if (state.handshake == kCommandTaken) return now < state.commandAt + kReleaseTime;
  return state.handshake == kCommandHeld;
}

// A strict card shows that it holds a command only when it has taken it.
bool CylinderCard::ShowsHeld(int channel, Nanos now) const {
  if (!HoldsCommand(channel, now)) return false;
  return state_.strict == 0 || now >= state_.channels[channel].commandAt + kTakeTime;
}

std::uint8_t CylinderCard::Status(int channel, Nanos now) const {
  if (!Exists(channel)) return kOpenBus;
  const CylinderChannelState state = Settled(state_.channels[channel], now);
  int status = 0;
  if (state.handshake == kCommandTaken && now >= state.commandAt + kTakeTime &&
      (state.phase != kPhaseStill || now < state.commandAt + kShortestCommand || IsKeptBack(state))) {
    status |= kCylinderTaken;
  }
  if (state.alarm != 0) return static_cast<std::uint8_t>(status | kCylinderAlarm);
  if (state.phase == kPhaseTravel)
    return static_cast<std::uint8_t>(status | kCylinderMoving | kCylinderNotInPosition);
  if (state.phase == kPhaseReset)
    return static_cast<std::uint8_t>(status | kCylinderResetting | kCylinderNotInPosition);
  const bool inPosition = state.to % kCylinderPosition == 0 && !IsKeptBack(state);
  return static_cast<std::uint8_t>(status | (inPosition ? kCylinderInPosition : kCylinderNotInPosition));
}

int CylinderCard::StandsAt(int channel, Nanos now) const {
  if (!Exists(channel)) return -1;
  const CylinderChannelState state = Settled(state_.channels[channel], now);
  if (state.phase == kPhaseTravel || state.to % kCylinderPosition != 0) return -1;
  return state.to / kCylinderPosition;
}

std::int32_t CylinderCard::PlaceAt(int channel, Nanos now) const {
  return Exists(channel) ? Place(Settled(state_.channels[channel], now), now) : 0;
}

bool CylinderCard::InAlarm(int channel, Nanos now) const {
  return Exists(channel) && Settled(state_.channels[channel], now).alarm != 0;
}

int CylinderCard::Target(int channel) const {
  if (!Exists(channel)) return 0;
  const CylinderChannelState& state = state_.channels[channel];
  return IsKeptBack(state) ? state.goal : state.to / kCylinderPosition;
}

std::optional<Nanos> CylinderCard::NextEvent(int channel, Nanos now) const {
  if (!Exists(channel)) return std::nullopt;
  const CylinderChannelState& state = state_.channels[channel];
  if (state.phase == kPhaseStill || state.end <= now) return std::nullopt;
  return state.end;
}

void CylinderCard::RaiseAlarm(int channel, std::uint8_t alarmsToCome, Nanos now) {
  if (!Exists(channel)) return;
  CylinderChannelState& state = Settle(channel, now);
  state.from = state.to = Place(state, now);
  state.phase = kPhaseStill;
  state.goal = kNoGoal;
  state.alarm = 1;
  state.alarmsToCome = alarmsToCome;
}

void CylinderCard::EndAlarmCause(int channel, Nanos now) {
  if (Exists(channel)) Settle(channel, now).alarmsToCome = 0;
}

void CylinderCard::SetNoAcknowledge(int channel, bool fault, Nanos now) {
  if (!Exists(channel)) return;
  CylinderChannelState& state = Settle(channel, now);
  state.noAcknowledge = fault;
  // What was held meanwhile is lost.
  if (!fault && state.handshake == kCommandHeld) state.handshake = kNoCommand;
}

void CylinderCard::SetJammed(int channel, bool fault, Nanos now) {
  if (!Exists(channel)) return;
  CylinderChannelState& state = Settle(channel, now);
  const bool goesOn = IsKeptBack(state) && state.phase == kPhaseStill;
  state.jammed = fault;
  if (fault) {
    const bool travels = state.phase == kPhaseTravel;
    state.goal = travels ? static_cast<std::uint8_t>(state.to / kCylinderPosition) : kNoGoal;
    state.from = state.to = Place(state, now);
    if (travels) state.phase = kPhaseStill;
    return;
  }
  if (goesOn) Travel(state, state.goal, 0, now);
}

// The way to a position at the speed of the cylinder.
void CylinderCard::Travel(CylinderChannelState& channel, int position, Nanos delay, Nanos now) const {
  const std::int32_t target = position * kCylinderPosition;
  const Nanos way = std::abs(target - Place(channel, now));
  Begin(channel, kPhaseTravel, target, delay, way * state_.travelTime / kCylinderPosition, now);
}

CylinderChannelState& CylinderCard::Settle(int channel, Nanos now) {
  CylinderChannelState& state = state_.channels[channel];
  state = Settled(state, now);
  return state;
}

void CylinderCard::Command(std::uint8_t value, Nanos now) {
  if (!Exists(state_.selected)) return;
  if (!IsCommand(value)) return;
  if (state_.strict != 0 && HoldsCommand(state_.selected, now)) return;
  CylinderChannelState& channel = Settle(state_.selected, now);
  channel.commandAt = now;
  channel.handshake = channel.noAcknowledge != 0 ? kCommandHeld : kCommandTaken;
  if (channel.noAcknowledge != 0) return;
  const Nanos delay = state_.delay * state_.delayUnit;
  if (value == kResetCommand) {
    channel.alarm = 0;
    channel.goal = kNoGoal;
    Begin(channel, kPhaseReset, Place(channel, now), delay, state_.resetTime, now);
    return;
  }
  if (channel.alarm != 0 || channel.phase == kPhaseReset) return;
  const bool setup = value == kSetupCommand;
  const std::uint8_t position = setup ? 0 : value & kMovePosition;
  if (channel.jammed != 0) {
    channel.goal = position;
    return;
  }
  if (setup) return Begin(channel, kPhaseTravel, 0, delay, state_.setupTime, now);
  Travel(channel, position, delay, now);
}

Protest CylinderCard::ProtestOf(Access access, std::uint8_t port, std::uint8_t value, Nanos now) const {
  const Protest wrong = RegisterProtest(Registers(), access, port);
  const bool ofChannel = port == kCommand || (port == kSelect && access == Access::Read);
  if (wrong == Protest::None && ofChannel && !Exists(state_.selected)) return Protest::NoneSelected;
  if (wrong != Protest::None || access == Access::Read) return wrong;
  if (port == kSelect) return Exists(value) ? Protest::None : Protest::NoChannel;
  if (port != kCommand) return Protest::None;
  if (!IsCommand(value)) return Protest::BadValue;
  return HoldsCommand(state_.selected, now) ? Protest::CommandHeld : Protest::None;
}

}  // namespace rack
