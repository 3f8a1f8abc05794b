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
    const std::vector<std::optional<size_t>> behind = NextCommands(block, flow);
    for (size_t i = 0; i < block.lines.size(); ++i) {
      const bool isExit = rack::RowOf(block.lines[i].parsed.CmdIdx).goesOn == rack::GoesOn::Nowhere;
      if (isExit && flow.reached[i] && behind[i]) CheckExit(block, i, *behind[i]);
    }
  }

  void CheckExit(const Program& block, size_t exit, size_t behind) {
    const Line& line = block.lines[exit];
    if (behind == block.lines.size()) {
      return out_.Add(
          block, line, line.parsed.KeywordColumn, RuleId::ExitInBlock,
          "no END behind EXIT: the controller stays in this block, and Enter starts nothing; write "
          "END behind it");
    }
    const Line& next = block.lines[behind];
    if (rack::RowOf(next.parsed.CmdIdx).goesOn == rack::GoesOn::Caller) return;
    out_.Add(block, line, line.parsed.KeywordColumn, RuleId::ExitInBlock,
             "EXIT does not end a block: the controller still executes " +
                 std::string(SYNXCMD[next.parsed.CmdIdx]) + " in line " + std::to_string(next.number) +
                 "; only END should stand behind it");
  }

  // By line: the next one that does something, the end of the file for its size; nothing when labels lead round for
  // ever, and where the flow ends.
  static std::vector<std::optional<size_t>> NextCommands(const Program& block, const Flow& flow) {
    const size_t end = block.lines.size();
    std::vector<std::optional<size_t>> behind(end + 1);
    std::vector<bool> isKnown(end + 1, false);
    isKnown[end] = true;
    std::vector<size_t> way;
    for (size_t i = 0; i < end; ++i) {
      std::optional<size_t> found;
      for (size_t at = i;;) {
        if (isKnown[at]) {
          found = behind[at];
          break;
        }
        isKnown[at] = true;  // nothing, as long as the way comes back here
        way.push_back(at);
        if (flow.next[at].empty()) break;
        at = *flow.next[at].begin();
        if (at < end && Passes(block.lines[at])) continue;
        found = at;
        break;
      }
      for (const size_t at : way) behind[at] = found;
      way.clear();
    }
    return behind;
  }

  static bool Passes(const Line& line) {
    const rack::CommandRow& command = rack::RowOf(line.parsed.CmdIdx);
    return !line.IsCommand() || command.parameter == rack::Parameter::Label ||
           command.goesOn == rack::GoesOn::Nowhere;
  }

  const Task& ofTask_;
  Report& out_;
};

}  // namespace

void CheckBlocks(const Task& task, Report* report) {
  BlockRules(task, report).Check();
}

}  // namespace check
