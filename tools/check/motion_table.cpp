#include "check/motion_table.h"

#include <algorithm>

#include "check/topics.h"
#include "commands/command_rows.h"
#include "motfields.h"
#include "numbers.h"

namespace check {

namespace {

constexpr int kSetup = -1;
constexpr int kReset = -2;
constexpr int kLastPosition = 15;

bool IsCylinderCommand(SYNXIDX command) {
  return command == SYN_DG || command == SYN_LDG;
}

std::optional<Deed> DeedOf(SYNXIDX command) {
  if (command == SYN_MOT) return Deed::Move;
  if (command == SYN_DG) return Deed::Travel;
  if (command == SYN_ROCLR) return Deed::ClearCount;
  switch (rack::RowOf(command).waitsFor) {
    case rack::WaitsFor::Input:
      return Deed::InputWait;
    case rack::WaitsFor::MotorEnd:
      return Deed::MotorWait;
    case rack::WaitsFor::Count:
      return Deed::CountWait;
    case rack::WaitsFor::CylinderPosition:
      return Deed::CylinderWait;
    case rack::WaitsFor::Nothing:
    case rack::WaitsFor::CylinderEnd:
    case rack::WaitsFor::Pause:
    case rack::WaitsFor::PauseBetween:
    case rack::WaitsFor::EndPause:
    case rack::WaitsFor::Label:
      return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

std::string Axis::Name() const {
  return std::to_string(slot) + "." + std::to_string(channel);
}

std::string Axis::Title() const {
  return (isCylinder ? "cylinder " : "motor ") + Name();
}

std::string Axis::Wait() const {
  return std::string(isCylinder ? "LDG: " : "LMOT: ") + std::to_string(slot) + ", " +
         std::to_string(channel) + ",";
}

std::string Act::Place() const {
  return program->name + ":" + std::to_string(line->number);
}

std::string Act::PlaceInMachine() const {
  return "plc" + std::to_string(task->number) + "/" + Place();
}

MotionTable::MotionTable(const ProgramTree& tree) : tree_(tree) {
  for (const Task& task : tree.tasks) {
    const bool isRun = IsRun(tree, task);
    for (const auto& [name, program] : task.programs) {
      AddProgram(task, program, isRun && (program.isMain || program.isCalled));
    }
  }
}

const std::vector<int>& MotionTable::ActsOf(const Program& program) const {
  static const std::vector<int> kNone;
  const auto found = actsOf_.find(&program);
  return found == actsOf_.end() ? kNone : found->second;
}

bool MotionTable::InputMayEnd(int axis, const Act& inputWait) const {
  if (!tree_.rack) return true;
  const Axis& ended = axes_[static_cast<size_t>(axis)];
  const ExplainedLine& asked = inputWait.line->parsed;
  bool isWired = false;
  for (const AxisInput& input : tree_.rack->axisInputs) {
    const bool isOfAxis = input.isCylinder == ended.isCylinder && input.slot == ended.slot &&
                          (input.channel == ended.channel || input.channel == kAnyChannel);
    if (!isOfAxis) continue;
    if (input.inputSlot == asked.SlotIdx.Value && input.inputChannel == asked.ChIdx.Value) return true;
    isWired = true;
  }
  return !isWired;
}

bool MotionTable::HasInput(int axis, const Act& inputWait, bool isArrival) const {
  const Axis& of = axes_[static_cast<size_t>(axis)];
  const ExplainedLine& asked = inputWait.line->parsed;
  const std::vector<AxisInput>& inputs = tree_.rack->axisInputs;
  return std::any_of(inputs.begin(), inputs.end(), [&](const AxisInput& input) {
    return input.isArrival == isArrival && input.isCylinder == of.isCylinder && input.slot == of.slot &&
           (input.channel == of.channel || input.channel == kAnyChannel) &&
           input.inputSlot == asked.SlotIdx.Value && input.inputChannel == asked.ChIdx.Value;
  });
}

bool MotionTable::TellsArrival(int axis, const Act& inputWait) const {
  return tree_.rack && HasInput(axis, inputWait, true) && !HasInput(axis, inputWait, false);
}

void MotionTable::AddProgram(const Task& task, const Program& program, bool isRun) {
  std::vector<int>& acts = actsOf_[&program];
  for (size_t i = 0; i < program.lines.size(); ++i) {
    const Line& line = program.lines[i];
    Act act{Deed::Move, &task, &program, &line};
    if (!Explain(line, &act)) continue;
    const int index = static_cast<int>(acts_.size());
    if (acts.empty()) acts.assign(program.lines.size(), kNoAct);
    acts[i] = index;
    acts_.push_back(act);
    if (isRun && act.axis >= 0) onAxis_[static_cast<size_t>(act.axis)].push_back(index);
    if (isRun && act.card >= 0) onCard_[static_cast<size_t>(act.card)].push_back(index);
  }
}

bool MotionTable::Explain(const Line& line, Act* act) {
  const ExplainedLine& parsed = line.parsed;
  const std::optional<Deed> deed = DeedOf(parsed.CmdIdx);
  if (!deed) return false;
  act->deed = *deed;
  if (act->deed == Deed::InputWait) return true;
  if (parsed.SlotIdx.Column < 0) {
    act->deed = Deed::VainWait;
    return true;
  }
  if (!ExplainOnCard(line, act)) return false;
  if (act->deed == Deed::Move) ExplainMot(line, act);
  if (act->deed == Deed::Travel) ExplainDg(line, act);
  if (act->deed == Deed::CountWait) act->number = ToNumber<int>(std::string(parsed.Param).c_str());
  return true;
}

// The axis that the card really takes; false when it takes none. Of a card that is not known, the written one.
bool MotionTable::ExplainOnCard(const Line& line, Act* act) {
  const SYNXIDX command = line.parsed.CmdIdx;
  const int slot = line.parsed.SlotIdx.Value;
  const int written = line.parsed.ChIdx.Value;
  const rack::CardCommands* card = tree_.CardOf(slot);
  const bool mayBeAxis = !tree_.rack && slot >= 0 && written >= 0 && written < rack::MostMovers();
  if (card == nullptr && !mayBeAxis) return false;
  const rack::CardCommand* row = card == nullptr ? nullptr : card->Find(command);
  if (card != nullptr && row == nullptr) return false;
  const int channel = row == nullptr ? written : card->Reached(*row, written);
  if (channel < 0) return false;
  act->axis = AxisAt(slot, channel, IsCylinderCommand(command));
  if (card == nullptr) return true;
  act->selects = card->Selects(command);
  act->asksLast = card->AsksLastSelected(command);
  if (act->selects || act->asksLast) act->card = CardAt(slot);
  return true;
}

// A position that is sent to no cylinder starts nothing.
void MotionTable::ExplainDg(const Line& line, Act* act) {
  const int written = ToNumber<int>(std::string(line.parsed.Param).c_str());
  if (written == kSetup) act->deed = Deed::Setup;
  if (written == kReset) act->deed = Deed::Reset;
  act->number = written & 0xFF;
  act->starts = act->deed == Deed::Travel && act->number <= kLastPosition;
  if (act->deed == Deed::Travel && !act->starts) act->deed = Deed::Nothing;
  act->mayEndAtInput = true;
}

void MotionTable::ExplainMot(const Line& line, Act* act) {
  const rack::CardCommands* card = tree_.CardOf(line.parsed.SlotIdx.Value);
  const int limit = card == nullptr ? kMaxMotField : card->motFieldLimit;
  MotFields fields{};
  if (ReadMotFields(std::string(line.parsed.Param).c_str(), limit, &fields) == 0) {
    act->deed = Deed::Nothing;
    act->selects = false;
    return;
  }
  act->starts = fields[MOT_Step] << 1 != 0;
  act->mayEndAtInput = fields[MOT_EnExtSTop] != 0 && fields[MOT_Force] == 0;
}

int MotionTable::AxisAt(int slot, int channel, bool isCylinder) {
  const int next = static_cast<int>(axes_.size());
  const auto [found, isNew] = axisIndex_.try_emplace({isCylinder, slot, channel}, next);
  if (isNew) {
    axes_.push_back({slot, channel, isCylinder});
    onAxis_.emplace_back();
  }
  return found->second;
}

int MotionTable::CardAt(int slot) {
  const auto found = std::find(cards_.begin(), cards_.end(), slot);
  if (found != cards_.end()) return static_cast<int>(found - cards_.begin());
  cards_.push_back(slot);
  onCard_.emplace_back();
  return static_cast<int>(cards_.size()) - 1;
}

}  // namespace check
