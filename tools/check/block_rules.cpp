// What END, EXIT and the names of main programs mean in a block.
#include <string>
#include <vector>

#include "check/flow.h"
#include "check/topics.h"
#include "commands/command_rows.h"

namespace check {

namespace {

class BlockRules {
 public:
  BlockRules(const Task& task, Report* report) : ofTask_(task), out_(*report) {}

  void Check() {
    for (const auto& [name, program] : ofTask_.programs) {
      for (const Line& line : program.lines) CheckCalledMains(program, line);
      if (program.isCalled && !program.isMain) CheckExits(program);
    }
  }

 private:
  void CheckCalledMains(const Program& program, const Line& line) {
    for (const BlockName& block : CalledBlocks(line)) {
      const Program* called = ofTask_.Find(block.name);
      if (called == nullptr || !called->isMain) continue;
      const std::string effect =
          called == &program
              ? "the controller begins it anew as a block, without a pause, and again at this line"
              : "the calls in it replace it, and its END returns behind this call";
      const std::string meant = block.name == kFlowProgram ? "; the Enter key starts production"
                                                           : "; the minus key starts the reset program";
      std::string message = block.name;
      message.append(" is called as a block: ").append(effect).append(meant);
      out_.Add(program, line, block.column, RuleId::MainAsBlock, message);
    }
  }

  void CheckExits(const Program& block) {
    const Flow flow = FlowOf(ofTask_, block);
    for (size_t i = 0; i < block.lines.size(); ++i) {
      const bool isExit = rack::RowOf(block.lines[i].parsed.CmdIdx).goesOn == rack::GoesOn::Nowhere;
      if (isExit && flow.reached[i]) CheckExit(block, flow, i);
    }
  }

  void CheckExit(const Program& block, const Flow& flow, size_t exit) {
    const Line& line = block.lines[exit];
    const std::optional<size_t> behind = NextCommand(block, flow, exit);
    if (!behind) return;
    if (*behind == block.lines.size()) {
      return out_.Add(
          block, line, line.parsed.KeywordColumn, RuleId::ExitInBlock,
          "no END behind EXIT: the controller stays in this block, and Enter starts nothing; write "
          "END behind it");
    }
    const Line& next = block.lines[*behind];
    if (rack::RowOf(next.parsed.CmdIdx).goesOn == rack::GoesOn::Caller) return;
    out_.Add(block, line, line.parsed.KeywordColumn, RuleId::ExitInBlock,
             "EXIT does not end a block: the controller still executes " +
                 std::string(SYNXCMD[next.parsed.CmdIdx]) + " in line " + std::to_string(next.number) +
                 "; only END should stand behind it");
  }

  // The next line that does something, the end of the file for its size; nothing when labels lead round for ever.
  std::optional<size_t> NextCommand(const Program& block, const Flow& flow, size_t from) const {
    std::vector<bool> isSeen(block.lines.size(), false);
    for (size_t at = from; !flow.next[at].empty();) {
      at = *flow.next[at].begin();
      if (at == block.lines.size()) return at;
      if (isSeen[at]) return std::nullopt;
      isSeen[at] = true;
      const Line& line = block.lines[at];
      const rack::CommandRow& command = rack::RowOf(line.parsed.CmdIdx);
      const bool passes = !line.IsCommand() || command.parameter == rack::Parameter::Label ||
                          command.goesOn == rack::GoesOn::Nowhere;
      if (!passes) return at;
    }
    return std::nullopt;
  }

  const Task& ofTask_;
  Report& out_;
};

}  // namespace

void CheckBlocks(const Task& task, Report* report) {
  BlockRules(task, report).Check();
}

}  // namespace check
