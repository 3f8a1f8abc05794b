// Waits for a count that is there from the start.
#include <string>

#include "check/topics.h"
#include "commands/command_rows.h"
#include "numbers.h"

namespace check {

namespace {

// Whether the line's card counts that channel; without a rack file any card may.
bool IsCounted(const ProgramTree& tree, const ExplainedLine& parsed) {
  const rack::CardCommands* card = tree.CardOf(parsed.SlotIdx.Value);
  if (card == nullptr) return !tree.rack;
  const rack::CardCommand* command = card->Find(parsed.CmdIdx);
  return command != nullptr && card->Reached(*command, parsed.ChIdx.Value) >= 0;
}

bool IsSameChannel(const ExplainedLine& one, const ExplainedLine& other) {
  return one.SlotIdx.Value == other.SlotIdx.Value && one.ChIdx.Value == other.ChIdx.Value;
}

// The command before or behind a line of the file; null when there is none.
const ExplainedLine* Neighbour(const Program& program, size_t index, bool behind) {
  const size_t step = behind ? 1 : static_cast<size_t>(-1);
  for (size_t i = index + step; i < program.lines.size(); i += step) {
    if (program.lines[i].IsCommand()) return &program.lines[i].parsed;
  }
  return nullptr;
}

// ROW selects its channel: with a count of 0 it stands in front of a command that asks for the selected one,
// unless the move before it has selected it already.
bool SelectsFor(const ProgramTree& tree, const Program& program, size_t index) {
  const ExplainedLine& row = program.lines[index].parsed;
  const ExplainedLine* before = Neighbour(program, index, false);
  const ExplainedLine* behind = Neighbour(program, index, true);
  if (behind == nullptr || !IsSameChannel(row, *behind)) return false;
  if (before != nullptr && before->CmdIdx == SYN_MOT && IsSameChannel(row, *before)) return false;
  const rack::CardCommands* card = tree.CardOf(row.SlotIdx.Value);
  const bool asksSelected = card == nullptr || card->AsksLastSelected(behind->CmdIdx);
  return behind->CmdIdx == SYN_ROCLR || (behind->CmdIdx == SYN_LMOT && asksSelected);
}

}  // namespace

void CheckCounts(const ProgramTree& tree, const Program& program, Report* report) {
  for (size_t i = 0; i < program.lines.size(); ++i) {
    const Line& line = program.lines[i];
    const ExplainedLine& parsed = line.parsed;
    const bool counts = rack::RowOf(parsed.CmdIdx).waitsFor == rack::WaitsFor::Count;
    if (!counts || HasLookAlike(line) || !IsCounted(tree, parsed)) continue;
    const std::string text(parsed.Param);
    const int count = ToNumber<int>(text.c_str());
    const bool isNumber = text.find_first_of("0123456789") != std::string::npos;
    if (count > 0 || !isNumber || (count == 0 && SelectsFor(tree, program, i))) continue;
    const std::string meant = count < 0 ? DidYouMean(text.substr(text.find('-') + 1)) : "";
    report->Add(program, line, parsed.ParamColumn, RuleId::RowCount,
                "ROW with the count " + std::to_string(count) +
                    ": the wait is met at once; counts go from 1, in either direction" + meant);
  }
}

}  // namespace check
