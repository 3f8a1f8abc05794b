#include "machine/why.h"

#include <algorithm>
#include <cstdlib>

#include "commands/command_rows.h"
#include "machine/card_commands.h"
#include "machine/drives.h"
#include "numbers.h"
#include "synx.h"
#include "toml/words.h"

namespace rack {

namespace {

constexpr std::int64_t kEndPause = 1'000'000'000;
constexpr std::int64_t kNanosPerMilli = 1'000'000;

// Pauses between commands from here on are told.
constexpr std::int64_t kLongPause = 100'000'000;

std::int64_t DelayOf(const ExplainedLine& line) {
  return line.SlotIdx.Value * kNanosPerMilli;
}

// A command as a task stands at it.
struct Standing {
  const Snapshot& machine;
  const TaskView& task;
  const ExplainedLine& line;
  const CardView* card = nullptr;      // the addressed card, null when the table has none
  const CardCommand* taken = nullptr;  // what that card makes of the command, null when it has no use for it

  int Slot() const { return line.SlotIdx.Value; }
  int Channel() const { return line.ChIdx.Value; }
  bool Dead() const { return machine.noDriver || machine.busFails || card->pulled; }
  std::string For() const { return ", for " + Seconds(task.standsNanos); }
};

const char* OnOff(bool on) {
  return on ? "on" : "off";
}

// What a card that does not answer looks like; empty for one that does.
std::string DeadCard(const Standing& at) {
  if (at.machine.noDriver) return " (the board has no driver: every byte reads 0xFF)";
  if (at.machine.busFails) return " (the bus reads fail: every byte reads 0xFF)";
  if (at.card->pulled) return " (the card is pulled: every byte reads 0xFF)";
  return "";
}

// Each of these says what the command lacks, or nothing when its condition holds.

std::string LackOfInput(const Standing& at) {
  const int wanted = ToNumber<int>(std::string(at.line.Param).c_str());
  if (wanted != 0 && wanted != 1) return "no input ever has the level " + std::to_string(wanted) + at.For();
  const int shown = CommandsOf(at.card->kind).Reached(*at.taken, at.Channel());
  const bool level = shown >= 0 && (at.Dead() || (at.card->inputs >> shown & 1) != 0);
  if (level == (wanted == 1)) return "";
  if (shown < 0) {
    return "channel " + std::to_string(at.Channel()) + " is no input and reads off" + at.For();
  }
  const bool forced = (at.card->forced >> shown & 1) != 0;
  return SignalLabel(at.machine, SignalKind::Input, at.Slot(), shown) + " is " + OnOff(level) +
         (forced ? " (forced)" : "") + ", should be " + OnOff(!level) + DeadCard(at) + at.For() +
         (at.Dead() ? "" : ": " + WhyNoChange(at.machine, at.Slot(), shown));
}

std::string InBrackets(const std::string& text) {
  return text.empty() ? "" : " (" + text + ")";
}

std::string MotorEnd(const MotorView& motor) {
  if (motor.endsInNanos >= 0) return ", its move ends in " + Seconds(motor.endsInNanos);
  return motor.rate == 0 ? ", its frequency makes no pulse: its move never ends" : ", its move never ends";
}

std::string LackOfMotorEnd(const Standing& at) {
  constexpr int kBusyBits = 8;
  const int channels = RowOf(at.card->kind).motors;
  // The busy register has a bit for each channel, or one for the channel selected last.
  const bool asksLastSelected = CommandsOf(at.card->kind).AsksLastSelected(SYN_LMOT);
  const int told = asksLastSelected ? at.card->selectedChannel : at.Channel() % 256;
  if (!asksLastSelected && (told < 0 || told >= kBusyBits)) return "";
  const std::string asked = "motor " + std::to_string(at.Channel());
  if (at.Dead()) return asked + " seems to move" + DeadCard(at) + at.For();
  if (told < 0 || told >= channels || !at.card->motors[static_cast<std::size_t>(told)].busy) return "";
  const MotorView& motor = at.card->motors[static_cast<std::size_t>(told)];
  const std::string who = told == at.Channel() ? asked
                                               : "the busy register tells of motor " + std::to_string(told) +
                                                     ", selected last, which";
  return who + " still moves at " + std::to_string(motor.position) + InBrackets(HeldBy(motor)) +
         MotorEnd(motor) + at.For();
}

std::string LackOfCount(const Standing& at) {
  const auto channel = static_cast<std::size_t>(at.Channel());
  const bool there = at.Channel() >= 0 && channel < at.card->counts.size();
  if (at.Channel() < 0 || (!there && at.Channel() >= at.taken->readsZeroBelow)) {
    return "channel " + std::to_string(at.Channel()) + " counts nothing: never met" + at.For();
  }
  const std::int64_t wanted = ToNumber<int>(std::string(at.line.Param).c_str());
  std::int64_t count = there ? at.card->counts[channel] : 0;
  if (at.Dead()) count = INT32_MAX;  // 0xFF in every byte of the counter
  if (std::llabs(count) >= wanted) return "";
  const std::string held = channel < at.card->motors.size() ? HeldBy(at.card->motors[channel]) : "";
  return "count is " + std::to_string(count) + (held.empty() ? "" : " (motor " + held + ")") +
         ", should reach " + std::to_string(wanted) + at.For();
}

std::string LackOfPosition(const Standing& at) {
  const int channel = CommandsOf(at.card->kind).Reached(*at.taken, at.Channel());
  if (channel < 0) return "";
  const CylinderView& cylinder = at.card->cylinders[static_cast<std::size_t>(channel)];
  const bool dead = at.Dead();
  const std::uint8_t status = dead ? kOpenBus : cylinder.status;
  const std::string name = "cylinder " + std::to_string(channel);
  if ((status & kCylinderAlarm) != 0) {
    return name + " is in alarm" + (dead ? DeadCard(at) : ", DG with -2 resets it") + at.For();
  }
  const bool inPosition = (status & (kCylinderMoving | kCylinderInPosition)) == kCylinderInPosition;
  if (inPosition || (status & kCylinderNotInPosition) == 0) return "";
  const char* what = (status & kCylinderMoving) != 0 ? " moves, at "
                     : cylinder.jammed               ? " is jammed, at "
                                                     : " stands between two positions, at ";
  return name + what + PlaceText(cylinder) + ", should reach " + std::to_string(cylinder.target) + at.For();
}

std::string LackOfCylinderEnd(const Standing& at) {
  const int command = ToNumber<int>(std::string(at.line.Param).c_str());
  if (command != -1 && command != -2) return "";
  const char* what = command == -1 ? "setup" : "reset";
  const int channel = CommandsOf(at.card->kind).Reached(*at.taken, at.Channel());
  const bool jammed =
      channel >= 0 && !at.Dead() && at.card->cylinders[static_cast<std::size_t>(channel)].jammed;
  return std::string("waits for the end of the ") + what + " of cylinder " + std::to_string(at.Channel()) +
         (jammed ? ", which is jammed" : "") + DeadCard(at) + at.For();
}

// What is left of the time for which the command itself sleeps.
std::int64_t SleepLeft(const TaskView& task, const ExplainedLine& line) {
  const WaitsFor waits = RowOf(line.CmdIdx).waitsFor;
  if (waits == WaitsFor::Pause) return DelayOf(line) - task.standsNanos;
  return waits == WaitsFor::EndPause ? kEndPause - task.standsNanos : 0;
}

std::string LackOfDelay(const Standing& at) {
  const std::int64_t rest = SleepLeft(at.task, at.line);
  return rest > 0 ? Seconds(rest) + " left" : "";
}

std::string LackOfEndPause(const Standing& at) {
  const std::int64_t rest = SleepLeft(at.task, at.line);
  return rest > 0 ? Seconds(rest) + " left of its second" : "";
}

// Whether the pause between commands follows this one: after a call that has opened its block there is none.
bool IsFollowedByPause(const ExplainedLine& line) {
  return line.CmdIdx != SYN_NUL && line.CmdIdx != SYN_END && line.CmdIdx != SYN_FL;
}

// What is left of the pause between commands. It begins with the end of the command, for one that goes to a card with
// its last access.
std::int64_t PauseLeft(const TaskView& task, const ExplainedLine& line) {
  if (!IsFollowedByPause(line)) return 0;
  const CommandRow& command = RowOf(line.CmdIdx);
  std::int64_t since = task.standsNanos;
  if (command.waitsFor == WaitsFor::Pause) since -= DelayOf(line);
  if (command.GoesToCard() && task.accessNanos >= 0) since = std::min(since, task.accessNanos);
  return task.pauseNanos - since;
}

std::string PauseText(const TaskView& task, const ExplainedLine& line) {
  const std::int64_t rest = PauseLeft(task, line);
  if (task.pauseNanos < kLongPause || rest <= 0) return "";
  return Seconds(rest) + " left of the pause of G_ST " + std::to_string(task.pauseNanos / kNanosPerMilli);
}

std::string LackOfLabel(const Standing& at) {
  if (!at.task.labelMissing && at.task.endReads == 0) return "";
  return at.task.file + " has no label #LE: " + std::to_string(at.Slot()) + ", the line repeats" + at.For();
}

// "LD 2, 5", "DLY 500", "END".
std::string Head(const ExplainedLine& line) {
  std::string head = SYNXCMD[line.CmdIdx];
  if (line.CmdIdx == SYN_FL) return head + " " + std::string(line.Param);
  if (line.SlotIdx.Given) head += " " + std::to_string(line.SlotIdx.Value);
  if (!line.ChIdx.Given) return head;
  if (!line.SlotIdx.Given) head += " 0";  // the short form of LDG and LMOT means the CPU card
  return head + ", " + std::to_string(line.ChIdx.Value);
}

const CardView* AddressedCard(const Snapshot& machine, int slot) {
  if (slot < 0 || static_cast<std::size_t>(slot) >= machine.cards.size()) return nullptr;
  return &machine.cards[static_cast<std::size_t>(slot)];
}

std::string MissingCard(const Standing& at) {
  if (at.machine.noDriver) {
    return "the board has no driver, so that the controller has found no card in entry " +
           std::to_string(at.Slot()) + ": never met" + at.For();
  }
  return "entry " + std::to_string(at.Slot()) + " is not in the card table (entries 0 to " +
         std::to_string(static_cast<int>(at.machine.cards.size()) - 1) + ")" +
         (kSynxTraits[at.line.CmdIdx].Repeat == LineRepeat::UntilMet ? ": never met" + at.For() : "");
}

// A command that reaches a card without any use for it.
std::string LackOfUse(const Standing& at) {
  if (at.line.CmdIdx != SYN_ROW) return "";  // the card reports it done
  return "entry " + std::to_string(at.Slot()) + " (" + KindName(at.card->kind) +
         ") counts nothing: never met" + at.For();
}

std::string Lack(const Standing& at) {
  const CommandRow& command = RowOf(at.line.CmdIdx);
  if (command.waitsFor != WaitsFor::Nothing && command.GoesToCard()) {
    const bool found = !at.machine.noDriver || at.Slot() == 0;
    if (at.card == nullptr || !found) return MissingCard(at);
    if (at.taken == nullptr) return LackOfUse(at);
  }
  switch (command.waitsFor) {
    case WaitsFor::Input:
      return LackOfInput(at);
    case WaitsFor::MotorEnd:
      return LackOfMotorEnd(at);
    case WaitsFor::Count:
      return LackOfCount(at);
    case WaitsFor::CylinderPosition:
      return LackOfPosition(at);
    case WaitsFor::CylinderEnd:
      return LackOfCylinderEnd(at);
    case WaitsFor::Pause:
      return LackOfDelay(at);
    case WaitsFor::EndPause:
      return LackOfEndPause(at);
    case WaitsFor::Label:
      return LackOfLabel(at);
    case WaitsFor::Nothing:
    case WaitsFor::PauseBetween:
      break;
  }
  return "";
}

// Which key opens a program again.
std::string NextKey(const Snapshot& machine, const TaskView& task) {
  if (machine.noDriver) return ", and no key is read: the board has no driver";
  if (task.stepMode) return ", step mode: Enter does nothing, Dec starts RESET.PLC";
  return ": Enter starts FLOW.PLC, Dec RESET.PLC";
}

// Why the function keys let nothing go; empty when they do.
std::string NoRelease(const Snapshot& machine) {
  const std::string rack = "function_port = " + std::to_string(machine.keyPort);
  const std::string configured = "FunctionPort=" + std::to_string(machine.configuredPort);
  if (machine.keyPort == 0 && machine.configuredPort == 0) return "the machine has no function keys";
  if (machine.keyPort == 0)
    return "no function keys: Velmo.conf has " + configured + ", rack.toml no function_port";
  if (machine.configuredPort == 0)
    return "function keys are not read: rack.toml has " + rack + ", Velmo.conf no FunctionPort";
  if (machine.keyPort != machine.configuredPort)
    return "function keys are not read: rack.toml has " + rack + ", Velmo.conf " + configured;
  return "";
}

std::string HeldText(const Snapshot& machine) {
  const std::string none = NoRelease(machine);
  return none.empty() ? "RUN, STEP or ZERO lets one line go" : none + "; only Dec ends it";
}

std::string TriedText(const Snapshot& machine) {
  const std::string none = NoRelease(machine);
  return none.empty() ? "tried only while RUN, STEP or ZERO is pressed"
                      : "not tried, " + none + "; only Dec ends it";
}

std::string WithoutFile(const Snapshot& machine, const TaskView& task, const ExplainedLine& line) {
  if (task.file.empty() && !task.missingFile.empty()) {
    return task.missingFile + " could not be opened at the start: the task has ended";
  }
  if (!task.missingFile.empty())
    return task.missingFile + " could not be opened: idle until a key opens a program";
  if (task.file.empty()) return "has read nothing yet";
  const char* ended = line.CmdIdx == SYN_EXIT ? "EXIT: has closed the program" : "no program is open";
  return ended + (", for " + Seconds(task.standsNanos)) + NextKey(machine, task);
}

// A call from inside a block that failed: the old block is closed already, and the main program is not read.
bool BlockLost(const TaskView& task, const ExplainedLine& line) {
  const bool call = line.CmdIdx == SYN_FL || line.CmdIdx == SYN_IF;
  return call && !task.missingFile.empty() && task.blockFile.empty() && task.file != task.mainFile;
}

std::string Repeating(const TaskView& task, const std::string& head) {
  return head + ": " + task.file + " has ended without END or EXIT, its last line repeats, for " +
         Seconds(task.standsNanos);
}

// Locks are held for some bus accesses: a short wait is not what a task stands for.
bool LastsLong(const TaskView& task) {
  constexpr std::int64_t kLong = 100 * kNanosPerMilli;
  return task.longWaitNanos < 0 || task.longWaitNanos >= kLong;
}

std::string LongWaitText(const TaskView& task) {
  const std::int64_t lasts = task.longWaitNanos < 0 ? task.standsNanos : task.longWaitNanos;
  return task.longWait + (LastsLong(task) ? ", for " + Seconds(lasts) : "");
}

// A line that holds a command.
Explanation AtCommand(const Snapshot& snapshot, const TaskView& task, const ExplainedLine& line) {
  const std::string head = Head(line) + ": ";
  const CardView* const card = AddressedCard(snapshot, line.SlotIdx.Value);
  const CardCommand* const taken = card == nullptr ? nullptr : CommandsOf(card->kind).Find(line.CmdIdx);
  const Standing at = {snapshot, task, line, card, taken};
  if (!task.longWait.empty() && LastsLong(task)) return {Stand::Waits, head + LongWaitText(task)};
  const std::string lack = Lack(at);
  const SynxTraits& traits = kSynxTraits[line.CmdIdx];
  const bool gated = task.stepMode && traits.Gate == StepGate::Holds;
  const std::string pause = PauseText(task, line);
  if (!lack.empty()) {
    const std::string again = traits.Repeat == LineRepeat::UntilMet && !pause.empty() ? "; " + pause : "";
    return {Stand::Waits, head + lack + (gated ? "; step mode, " + TriedText(snapshot) : again)};
  }
  if (!task.longWait.empty()) return {Stand::Waits, head + LongWaitText(task)};
  if (gated) return {Stand::Held, head + "held by the step gate, " + HeldText(snapshot) + at.For()};
  if (task.endReads > 0) return {Stand::Waits, Repeating(task, Head(line))};
  if (!pause.empty()) return {Stand::Waits, head + pause};
  return {Stand::GoesOn, head + "lacks nothing" + at.For()};
}

}  // namespace

std::string WhyStanding(const Snapshot& snapshot, const TaskView& task) {
  return Explain(snapshot, task).text;
}

Explanation Explain(const Snapshot& snapshot, const TaskView& task) {
  ExplainedLine line;
  ExplainLine(task.text.c_str(), &line);
  if (task.mainFile.empty() && task.blockFile.empty())
    return {Stand::Idle, WithoutFile(snapshot, task, line)};
  if (task.file.empty()) return {Stand::GoesOn, "has read nothing yet"};
  if (BlockLost(task, line)) {
    return {Stand::Idle,
            Head(line) + ": the block " + task.missingFile + " could not be opened, idle until Dec"};
  }
  if (line.CmdIdx != SYN_NUL) return AtCommand(snapshot, task, line);
  if (task.endReads == 0) return {Stand::GoesOn, "reads on"};
  return {Stand::Idle, task.file + " has ended without END or EXIT, nothing more is executed"};
}

std::optional<Sleep> SleepOf(const TaskView& task) {
  ExplainedLine line;
  ExplainLine(task.text.c_str(), &line);
  if (line.CmdIdx == SYN_NUL || task.file.empty()) return std::nullopt;
  const std::int64_t rest = SleepLeft(task, line);
  if (rest > 0) return Sleep{rest, task.standsNanos, SYNXCMD[line.CmdIdx]};
  const std::int64_t pause = PauseLeft(task, line);
  if (pause > 0) return Sleep{pause, task.pauseNanos - pause, "the pause of G_ST"};
  return std::nullopt;
}

std::string TaskSentence(const TaskView& task, const Explanation& explanation) {
  std::string text = "task " + std::to_string(task.task) + (task.stepMode ? " (step mode)" : "");
  if (!task.file.empty()) text += " " + task.file + ":" + std::to_string(task.line);
  return text + " " + explanation.text;
}

}  // namespace rack
