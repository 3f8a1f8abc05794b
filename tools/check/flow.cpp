#include "check/flow.h"

#include "commands/command_rows.h"

namespace check {

namespace {

// In a main program the line after a call is next once the block has ended; a block is replaced by the block
// that it calls.
bool GoesToNextLine(const Task& task, const Program& program, const Line& line) {
  switch (rack::RowOf(line.parsed.CmdIdx).goesOn) {
    case rack::GoesOn::Caller:
      return false;
    case rack::GoesOn::Nowhere:
      return !program.isMain;
    case rack::GoesOn::Block:
      return program.isMain || MayCallNothing(task, line);
    case rack::GoesOn::NextLine:
    case rack::GoesOn::Label:  // one that is not there
      return true;
  }
  return true;
}

bool IsConditional(const Line& line) {
  return rack::RowOf(line.parsed.CmdIdx).parameter == rack::Parameter::Condition;
}

NextLine NextOf(const Task& task, const Program& program, size_t index) {
  const Line& line = program.lines[index];
  if (rack::RowOf(line.parsed.CmdIdx).goesOn == rack::GoesOn::Label) {
    const std::optional<size_t> label = FindLabel(program, line.parsed.SlotIdx.Value);
    if (label) return NextLine(*label);
    if (index + 1 == program.lines.size())
      return {};  // repeats itself; so it does elsewhere, but was meant to go on
  }
  if (!GoesToNextLine(task, program, line)) return {};
  return NextLine(index + 1);
}

}  // namespace

Flow FlowOf(const Task& task, const Program& program) {
  const size_t end = program.lines.size();
  Flow flow;
  for (size_t i = 0; i < end; ++i) flow.next.push_back(NextOf(task, program, i));
  flow.next.emplace_back();
  flow.reached.assign(end + 1, false);
  NextLine at(0);
  while (!at.empty() && !flow.reached[*at]) {
    flow.reached[*at] = true;
    at = flow.next[*at];
  }
  return flow;
}

std::optional<size_t> FindLabel(const Program& program, int number) {
  const auto found = program.labels.find(number);
  return found == program.labels.end() ? std::nullopt : std::optional(found->second);
}

std::vector<const Program*> BlocksOf(const Task& task, const Line& line) {
  std::vector<const Program*> blocks;
  for (const BlockName& block : CalledBlocks(line)) {
    const Program* program = task.Find(block.name);
    if (program != nullptr) blocks.push_back(program);
  }
  return blocks;
}

bool MayCallNothing(const Task& task, const Line& line) {
  constexpr size_t kBranches = 2;
  return BlocksOf(task, line).size() < (IsConditional(line) ? kBranches : 1);
}

std::map<const Program*, std::set<std::string>> MainsAbove(const Task& task) {
  std::map<const Program*, std::set<const Program*>> called;
  for (const auto& [name, program] : task.programs) {
    for (const Line& line : program.lines) {
      for (const Program* block : BlocksOf(task, line)) called[&program].insert(block);
    }
  }
  std::map<const Program*, std::set<std::string>> mains;
  for (const auto& [name, main] : task.programs) {
    if (!main.isMain) continue;
    std::vector<const Program*> open(called[&main].begin(), called[&main].end());
    while (!open.empty()) {
      const Program* block = open.back();
      open.pop_back();
      if (!mains[block].insert(name).second) continue;
      open.insert(open.end(), called[block].begin(), called[block].end());
    }
  }
  return mains;
}

}  // namespace check
