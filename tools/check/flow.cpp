#include "check/flow.h"

#include <algorithm>

namespace check {

namespace {

// In a main program the line after a call is next once the block has ended; a block is replaced by the block
// that it calls.
bool GoesOn(const Task& task, const Program& program, const Line& line) {
  switch (line.parsed.CmdIdx) {
    case SYN_END:
      return false;
    case SYN_EXIT:
      return !program.isMain;
    case SYN_FL:
    case SYN_IF:
      return program.isMain || MayCallNothing(task, line);
    default:
      return true;
  }
}

std::set<size_t> NextOf(const Task& task, const Program& program, size_t index) {
  const Line& line = program.lines[index];
  if (line.parsed.CmdIdx == SYN_GO) {
    const std::optional<size_t> label = FindLabel(program, line.parsed.SlotIdx.Value);
    if (label) return {*label};
    if (index + 1 == program.lines.size())
      return {};  // repeats itself; so it does elsewhere, but was meant to go on
  }
  if (!GoesOn(task, program, line)) return {};
  return {index + 1};
}

}  // namespace

Flow FlowOf(const Task& task, const Program& program) {
  const size_t end = program.lines.size();
  Flow flow;
  for (size_t i = 0; i < end; ++i) flow.next.push_back(NextOf(task, program, i));
  flow.next.emplace_back();
  flow.reached.assign(end + 1, false);
  std::vector<size_t> open = {0};
  while (!open.empty()) {
    const size_t index = open.back();
    open.pop_back();
    if (flow.reached[index]) continue;
    flow.reached[index] = true;
    open.insert(open.end(), flow.next[index].begin(), flow.next[index].end());
  }
  return flow;
}

std::optional<size_t> FindLabel(const Program& program, int number) {
  for (size_t i = 0; i < program.lines.size(); ++i) {
    int label = 0;
    if (IsLabel(program.lines[i].raw.c_str(), &label) && label == number) return i;
  }
  return std::nullopt;
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
  return BlocksOf(task, line).size() < (line.parsed.CmdIdx == SYN_IF ? kBranches : 1);
}

}  // namespace check
