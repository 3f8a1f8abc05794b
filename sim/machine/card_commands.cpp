#include "machine/card_commands.h"

#include <algorithm>

#include "commands/command_rows.h"

namespace rack {

namespace {

constexpr const char* kNoBit = "the outputs are written back unchanged";
constexpr const char* kReadsLow = "the level read is 0";
constexpr const char* kNoBranch = "neither block is called";
constexpr const char* kNothingSent = "nothing is sent";
constexpr const char* kMetAtOnce = "the wait is met at once";
constexpr const char* kNoMove = "success is reported, but nothing moves";
constexpr const char* kNeverMet = "the task waits for ever";
constexpr const char* kNotCleared = "nothing is cleared";

constexpr CardCommand kDigital[] = {
    {SYN_OUT, ChannelSort::Output, Beyond::LastGroup, kNoBit},
    {SYN_LD, ChannelSort::Input, Beyond::LastGroup, kReadsLow},
    {SYN_IF, ChannelSort::Input, Beyond::Refused, kNoBranch},
};
constexpr CardCommand kStepper[] = {
    {SYN_MOT, ChannelSort::Motor, Beyond::LowByte, kNoMove},
    {SYN_LMOT, ChannelSort::Motor, Beyond::Refused, "the card answers for the channel selected last"},
    {SYN_ROW, ChannelSort::Counter, Beyond::Refused, kNeverMet},
    {SYN_ROCLR, ChannelSort::Counter, Beyond::Refused, kNotCleared},
};
constexpr CardCommand kServo[] = {
    {SYN_MOT, ChannelSort::Motor, Beyond::LowByte, kNoMove},
    {SYN_LMOT, ChannelSort::Motor, Beyond::LowByte, kMetAtOnce},
    {SYN_ROW, ChannelSort::Counter, Beyond::Refused, "the count is 0, and the task waits for ever", 8},
    {SYN_ROCLR, ChannelSort::Counter, Beyond::Refused, kNotCleared},
};
constexpr CardCommand kCylinder[] = {
    {SYN_DG, ChannelSort::Cylinder, Beyond::LowByte, kNothingSent},
    {SYN_LDG, ChannelSort::Cylinder, Beyond::LowByte, kMetAtOnce},
};
constexpr MotIdx kUnusedOnStepper[] = {MOT_ExtStopCH};
constexpr MotIdx kUnusedOnServo[] = {MOT_StartStep, MOT_CompensateStep};
constexpr SYNXIDX kSelecting[] = {SYN_MOT, SYN_ROW};
constexpr SYNXIDX kAskingLastOnStepper[] = {SYN_LMOT, SYN_ROCLR};
constexpr SYNXIDX kAskingLastOnServo[] = {SYN_ROCLR};

constexpr CardCommands kRows[] = {
    {CardKind::None, "an empty slot", {}},
    {CardKind::Cpu, "a CPU card", kDigital},
    {CardKind::Io, "an I/O card", kDigital},
    {CardKind::Stepper, "a stepper card", kStepper, 500, kUnusedOnStepper, kSelecting, kAskingLastOnStepper},
    {CardKind::Servo, "a servo card", kServo, 200, kUnusedOnServo, kSelecting, kAskingLastOnServo},
    {CardKind::Cylinder, "a cylinder card", kCylinder},
};
static_assert(AreRowsOf(kRows, &CardCommands::kind, kCardKinds), "one row per kind of card, in their order");

constexpr bool CommandsHaveChannels() {
  for (const CardCommands& row : kRows) {
    for (const CardCommand& command : row.commands) {
      if (row.Channels(command) == 0) return false;
    }
  }
  return true;
}
static_assert(CommandsHaveChannels(), "a card takes commands for channels that it has");

constexpr bool IsTaken(SYNXIDX command) {
  for (const CardCommands& row : kRows) {
    for (const CardCommand& taken : row.commands) {
      if (taken.command == command) return true;
    }
  }
  return false;
}
constexpr bool EachIsTaken() {
  for (const CommandRow& row : kCommandRows) {
    if (row.GoesToCard() != IsTaken(row.command)) return false;
  }
  return true;
}
static_assert(EachIsTaken(), "a command that goes to a card is taken by some kind of card, no other one is");

template <class Row>
bool Has(const RowsOf<Row>& rows, Row row) {
  return std::find(rows.begin(), rows.end(), row) != rows.end();
}

}  // namespace

const CardCommand* CardCommands::Find(SYNXIDX command) const {
  const CardCommand* const found = std::find_if(
      commands.begin(), commands.end(), [&](const CardCommand& row) { return row.command == command; });
  return found == commands.end() ? nullptr : found;
}

bool CardCommands::LeavesUnused(MotIdx field) const {
  return Has(motUnused, field);
}

bool CardCommands::Selects(SYNXIDX command) const {
  return Has(selecting, command);
}

bool CardCommands::AsksLastSelected(SYNXIDX command) const {
  return Has(askingLast, command);
}

int CardCommands::Reached(const CardCommand& command, int chIdx) const {
  const int channels = Channels(command);
  const auto inRange = [&](int channel) { return channel >= 0 && channel < channels; };
  if (inRange(chIdx)) return chIdx;
  switch (command.wrap) {
    case Beyond::Refused:
      break;
    case Beyond::LastGroup:
      return chIdx > 0 ? channels - 8 + chIdx % 8 : -1;
    case Beyond::LowByte:
      return inRange(chIdx & 0xFF) ? chIdx & 0xFF : -1;
  }
  return -1;
}

const CardCommands& CommandsOf(CardKind kind) {
  return kRows[static_cast<std::size_t>(kind)];
}

}  // namespace rack
