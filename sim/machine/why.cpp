#include "machine/why.h"

#include <cstdlib>

#include "commands/command_rows.h"
#include "machine/card_commands.h"
#include "numbers.h"
#include "synx.h"
#include "toml/words.h"

namespace rack {

namespace {

constexpr std::int64_t kEndPause = 1'000'000'000;
constexpr std::int64_t kNanosPerMilli = 1'000'000;

// A command as a task stands at it.
struct Standing {
  const Snapshot& machine;
  const TaskView& task;
  const EXPLAINEDLINE& line;
  const CardView* card = nullptr;      // the addressed card, null when the table has none
  const CardCommand* taken = nullptr;  // what that card makes of the command, null when it has no use for it

  int Slot() const { return line.SlotIdx.Value; }
  int Channel() const { return line.ChIdx.Value; }
  bool Dead() const { return machine.busFails || card->pulled; }
  std::string For() const { return ", for " + Seconds(task.standsNanos); }
};

const char* OnOff(bool on) {
  return on ? "on" : "off";
}

// What a card that does not answer looks like; empty for one that does.
std::string DeadCard(const Standing& at) {
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
         (forced ? " (forced)" : "") + ", should be " + OnOff(!level) + DeadCard(at) + at.For();
}

std::string MotorEnd(const MotorView& motor) {
  if (motor.endsInNanos < 0) return ", its move never ends";
  return ", its move ends in " + Seconds(motor.endsInNanos);
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
  return who + " still moves at " + std::to_string(motor.position) + (motor.blocked ? " (blocked)" : "") +
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
  const bool blocked = channel < at.card->motors.size() && at.card->motors[channel].blocked;
  return "count is " + std::to_string(count) + (blocked ? " (motor blocked)" : "") + ", should reach " +
         std::to_string(wanted) + at.For();
}

std::string CylinderPlace(const CylinderView& cylinder) {
  const int whole = cylinder.thousandths / kCylinderPosition;
  const int tenth = cylinder.thousandths % kCylinderPosition / 100;
  return std::to_string(whole) + (tenth == 0 ? "" : "." + std::to_string(tenth));
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
  const char* what = (status & kCylinderMoving) != 0 ? " moves, at " : " stands between two positions, at ";
  return name + what + CylinderPlace(cylinder) + ", should reach " + std::to_string(cylinder.target) +
         at.For();
}

std::string LackOfCylinderEnd(const Standing& at) {
  const int command = ToNumber<int>(std::string(at.line.Param).c_str());
  if (command != -1 && command != -2) return "";
  const char* what = command == -1 ? "setup" : "reset";
  return std::string("waits for the end of the ") + what + " of cylinder " + std::to_string(at.Channel()) +
         DeadCard(at) + at.For();
}

std::string LackOfDelay(const Standing& at) {
  const std::int64_t rest = at.Slot() * kNanosPerMilli - at.task.standsNanos;
  return rest > 0 ? Seconds(rest) + " left" : "";
}

std::string LackOfEndPause(const Standing& at) {
  const std::int64_t rest = kEndPause - at.task.standsNanos;
  return rest > 0 ? Seconds(rest) + " left of its second" : "";
}

std::string LackOfLabel(const Standing& at) {
  if (!at.task.labelMissing && at.task.endReads == 0) return "";
  return at.task.file + " has no label #LE: " + std::to_string(at.Slot()) + ", the line repeats" + at.For();
}

// "LD 2, 5", "DLY 500", "END".
std::string Head(const EXPLAINEDLINE& line) {
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
  return "entry " + std::to_string(at.Slot()) + " is not in the card table (entries 0 to " +
         std::to_string(static_cast<int>(at.machine.cards.size()) - 1) + ")" +
         (SYNXTRAITS[at.line.CmdIdx].Repeat == REPEAT::UntilMet ? ": never met" + at.For() : "");
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
    if (at.card == nullptr) return MissingCard(at);
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

std::string WithoutFile(const TaskView& task, const EXPLAINEDLINE& line) {
  if (task.file.empty() && !task.missingFile.empty()) {
    return task.missingFile + " could not be opened at the start: the task has ended";
  }
  if (!task.missingFile.empty())
    return task.missingFile + " could not be opened: idle until a key opens a program";
  if (line.CmdIdx == SYN_EXIT) return "EXIT: has closed the program, Enter starts FLOW.PLC, Dec RESET.PLC";
  if (task.file.empty()) return "has read nothing yet";
  return "no program is open, Enter starts FLOW.PLC, Dec RESET.PLC";
}

// A call from inside a block that failed: the old block is closed already, and the main program is not read.
bool BlockLost(const TaskView& task, const EXPLAINEDLINE& line) {
  const bool call = line.CmdIdx == SYN_FL || line.CmdIdx == SYN_IF;
  return call && !task.missingFile.empty() && task.blockFile.empty() && task.file != task.mainFile;
}

std::string Repeating(const TaskView& task, const std::string& head) {
  return head + ": " + task.file + " has ended without END or EXIT, its last line repeats, for " +
         Seconds(task.standsNanos);
}

}  // namespace

std::string WhyStanding(const Snapshot& snapshot, const TaskView& task) {
  EXPLAINEDLINE line;
  ExplainLine(task.text.c_str(), &line);
  if (task.mainFile.empty() && task.blockFile.empty()) return WithoutFile(task, line);
  if (task.file.empty()) return "has read nothing yet";
  if (BlockLost(task, line)) {
    return Head(line) + ": the block " + task.missingFile + " could not be opened, idle until Dec";
  }
  if (line.CmdIdx == SYN_NUL) {
    return task.endReads == 0 ? "reads on"
                              : task.file + " has ended without END or EXIT, nothing more is executed";
  }
  const std::string head = Head(line);
  const CardView* const card = AddressedCard(snapshot, line.SlotIdx.Value);
  const CardCommand* const taken = card == nullptr ? nullptr : CommandsOf(card->kind).Find(line.CmdIdx);
  const Standing at = {snapshot, task, line, card, taken};
  const std::string lack = Lack(at);
  const bool gated = task.stepMode && SYNXTRAITS[line.CmdIdx].Gate == STEPGATE::Holds;
  if (!lack.empty()) {
    return head + ": " + lack + (gated ? "; step mode, tried only while RUN, STEP or ZERO is pressed" : "");
  }
  if (gated) return head + ": held by the step gate, RUN, STEP or ZERO lets one line go" + at.For();
  if (task.endReads > 0) return Repeating(task, head);
  return head + ": lacks nothing" + at.For();
}

}  // namespace rack
