#include "machine/why.h"

#include <cstdlib>

#include "numbers.h"
#include "synx.h"
#include "toml/words.h"

namespace rack {

namespace {

constexpr std::uint8_t kAlarm = 0x80;
constexpr std::uint8_t kMoving = 0x40;
constexpr std::int64_t kEndPause = 1'000'000'000;
constexpr std::int64_t kNanosPerMilli = 1'000'000;

// A command as a task stands at it.
struct Standing {
  const Snapshot& machine;
  const TaskView& task;
  const EXPLAINEDLINE& line;
  const CardView* card = nullptr;  // the addressed card, null when the table has none

  int Slot() const { return line.SlotIdx.Value; }
  int Channel() const { return line.ChIdx.Value; }
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
  if (InputChannels(at.card->kind) == 0) return "";  // such cards take the command and report it done
  const int wanted = ToNumber<int>(std::string(at.line.Param).c_str());
  if (wanted != 0 && wanted != 1) return "no input ever has the level " + std::to_string(wanted) + at.For();
  const bool dead = at.machine.busFails || at.card->pulled;
  const int channel = at.Channel();
  // The second group of eight serves every channel from 8 on.
  const int shown = channel < 8 ? channel : 8 + channel % 8;
  const bool level = channel >= 0 && (dead || (at.card->inputs >> shown & 1) != 0);
  if (level == (wanted == 1)) return "";
  if (channel < 0) return "channel " + std::to_string(channel) + " is no input and reads off" + at.For();
  const bool forced = (at.card->forced >> shown & 1) != 0;
  return SignalLabel(at.machine, SignalKind::Input, at.Slot(), shown) + " is " + OnOff(level) +
         (forced ? " (forced)" : "") + ", should be " + OnOff(!level) + DeadCard(at) + at.For();
}

std::string MotorEnd(const MotorView& motor) {
  if (motor.endsInNanos < 0) return ", its move never ends";
  return ", its move ends in " + Seconds(motor.endsInNanos);
}

std::string LackOfMotorEnd(const Standing& at) {
  const int channels = MotorChannels(at.card->kind);
  if (channels == 0) return "";
  const bool dead = at.machine.busFails || at.card->pulled;
  const bool servo = at.card->kind == CardKind::Servo;
  // The servo card has a busy bit for each channel, the stepper card one for the channel selected last.
  const int told = servo ? at.Channel() % 256 : at.card->selectedChannel;
  if (servo && (told < 0 || told > 7)) return "";
  const std::string asked = "motor " + std::to_string(at.Channel());
  if (dead) return asked + " seems to move" + DeadCard(at) + at.For();
  if (told < 0 || told >= channels || !at.card->motors[static_cast<std::size_t>(told)].busy) return "";
  const MotorView& motor = at.card->motors[static_cast<std::size_t>(told)];
  const std::string who = told == at.Channel() ? asked
                                               : "the busy register tells of motor " + std::to_string(told) +
                                                     ", selected last, which";
  return who + " still moves at " + std::to_string(motor.position) + (motor.blocked ? " (blocked)" : "") +
         MotorEnd(motor) + at.For();
}

std::string LackOfCount(const Standing& at) {
  const int channels = MotorChannels(at.card->kind);
  if (channels == 0) {
    return "entry " + std::to_string(at.Slot()) + " (" + KindName(at.card->kind) +
           ") counts nothing: never met" + at.For();
  }
  if (at.Channel() < 0 || at.Channel() > 7) {
    return "channel " + std::to_string(at.Channel()) + " counts nothing: never met" + at.For();
  }
  const std::int64_t wanted = ToNumber<int>(std::string(at.line.Param).c_str());
  std::int64_t count = 0;
  if (at.Channel() < channels) count = at.card->motors[static_cast<std::size_t>(at.Channel())].count;
  if (at.machine.busFails || at.card->pulled) count = INT32_MAX;  // 0xFF in every byte of the counter
  if (std::llabs(count) >= wanted) return "";
  const bool blocked =
      at.Channel() < channels && at.card->motors[static_cast<std::size_t>(at.Channel())].blocked;
  return "count is " + std::to_string(count) + (blocked ? " (motor blocked)" : "") + ", should reach " +
         std::to_string(wanted) + at.For();
}

std::string CylinderPlace(const CylinderView& cylinder) {
  const int whole = cylinder.thousandths / 1000;
  const int tenth = cylinder.thousandths % 1000 / 100;
  return std::to_string(whole) + (tenth == 0 ? "" : "." + std::to_string(tenth));
}

std::string LackOfPosition(const Standing& at) {
  const int channel = at.Channel() & 0xFF;
  if (at.card->kind != CardKind::Cylinder || channel >= kCylinderChannels) return "";
  const CylinderView& cylinder = at.card->cylinders[static_cast<std::size_t>(channel)];
  const bool dead = at.machine.busFails || at.card->pulled;
  const std::uint8_t status = dead ? kOpenBus : cylinder.status;
  const std::string name = "cylinder " + std::to_string(channel);
  if ((status & kAlarm) != 0) {
    return name + " is in alarm" + (dead ? DeadCard(at) : ", DG with -2 resets it") + at.For();
  }
  if ((status & 0x50) == 0x10 || (status & 0x20) == 0) return "";
  const char* what = (status & kMoving) != 0 ? " moves, at " : " stands between two positions, at ";
  return name + what + CylinderPlace(cylinder) + ", should reach " + std::to_string(cylinder.target) +
         at.For();
}

std::string LackOfSetup(const Standing& at) {
  const int command = ToNumber<int>(std::string(at.line.Param).c_str());
  if (at.card->kind != CardKind::Cylinder || (command != -1 && command != -2)) return "";
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

struct Row {
  SYNXIDX command;
  bool addressesCard;
  std::string (*lack)(const Standing&);
};

constexpr Row kRows[] = {
    {SYN_LD, true, LackOfInput},      {SYN_LMOT, true, LackOfMotorEnd}, {SYN_ROW, true, LackOfCount},
    {SYN_LDG, true, LackOfPosition},  {SYN_DG, true, LackOfSetup},      {SYN_DLY, false, LackOfDelay},
    {SYN_END, false, LackOfEndPause}, {SYN_GO, false, LackOfLabel},
};

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

std::string Lack(const Standing& at) {
  for (const Row& row : kRows) {
    if (row.command != at.line.CmdIdx) continue;
    if (row.addressesCard && at.card == nullptr) return MissingCard(at);
    return row.lack(at);
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
  const Standing at = {snapshot, task, line, AddressedCard(snapshot, line.SlotIdx.Value)};
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
