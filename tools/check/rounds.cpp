#include "check/rounds.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "check/flow.h"
#include "commands/command_rows.h"

namespace check {

namespace {

rack::GoesOn GoesOnOf(const Line& line) {
  return rack::RowOf(line.parsed.CmdIdx).goesOn;
}

// The lines of a program in the order of execution, each once.
struct Path {
  const Program* program;
  std::vector<size_t> lines;
  std::optional<size_t> loop;  // position in `lines` that the last one leads back to
  size_t returning = 0;        // so many of a block's lines can still lead back to the caller

  const Line& LineAt(size_t position) const { return program->lines[lines[position]]; }
};

class RoundFinder {
 public:
  explicit RoundFinder(const Task& task) : ofTask_(task) {}

  std::vector<Round> Find() {
    const Program* flow = ofTask_.Find(kFlowProgram);
    if (flow == nullptr) return {};
    FindPaths();
    const Path production = PathOf(*flow);
    std::vector<Round> rounds;
    if (production.loop) rounds.push_back(RoundOf(production));
    for (const Program* block : BlocksFrom(production)) {
      const Path& path = paths_.at(block);
      if (path.loop && path.returning <= *path.loop) rounds.push_back(RoundOf(path));
    }
    return rounds;
  }

  // A block that comes to no end of its own has a finding, and is taken to return.
  std::set<const Program*> FindEndless() {
    FindPaths();
    std::set<const Program*> endless;
    for (const auto& [block, itsPath] : paths_) {
      const Path& path = itsPath;  // a binding is not seen by a lambda
      const bool exits =
          !path.lines.empty() && GoesOnOf(path.LineAt(path.lines.size() - 1)) == rack::GoesOn::Nowhere;
      const bool calls = std::any_of(path.lines.begin(), path.lines.end(), [&](size_t line) {
        return GoesOnOf(path.program->lines[line]) == rack::GoesOn::Block;
      });
      if (returns_.count(block) == 0 && !calls && (path.loop || exits)) endless.insert(block);
    }
    return endless;
  }

 private:
  void FindPaths() {
    for (const auto& [name, program] : ofTask_.programs) {
      if (!program.isMain && program.isCalled) paths_.emplace(&program, PathOf(program));
    }
    FindReturns();
  }

  using Seen = std::set<std::pair<const Program*, bool>>;  // blocks, and whether IF may leave them out

  Path PathOf(const Program& program) const {
    constexpr size_t kNever = SIZE_MAX;
    const Flow flow = FlowOf(ofTask_, program);
    Path path{&program, {}, std::nullopt};
    std::vector<size_t> position(program.lines.size(), kNever);
    for (size_t at = 0; at < program.lines.size();) {
      if (position[at] != kNever) {
        path.loop = position[at];
        return path;
      }
      position[at] = path.lines.size();
      path.lines.push_back(at);
      const std::optional<size_t> next = NextOf(program, flow, at);
      if (!next) return path;
      at = *next;
    }
    return path;
  }

  std::optional<size_t> NextOf(const Program& program, const Flow& flow, size_t at) const {
    const Line& line = program.lines[at];
    const rack::GoesOn goesOn = GoesOnOf(line);
    if (goesOn == rack::GoesOn::Nowhere) return std::nullopt;
    if (goesOn == rack::GoesOn::Caller) return program.isMain ? std::optional<size_t>(0) : std::nullopt;
    const bool calls = goesOn == rack::GoesOn::Block && program.isMain;
    if (calls && !MayCallNothing(ofTask_, line) && !CallsReturning(line)) return std::nullopt;
    if (flow.next[at].empty()) return std::nullopt;
    return *flow.next[at].begin();
  }

  bool CallsReturning(const Line& line) const {
    const std::vector<const Program*> blocks = BlocksOf(ofTask_, line);
    return std::any_of(blocks.begin(), blocks.end(),
                       [&](const Program* block) { return returns_.count(block) > 0; });
  }

  // A block returns when its path comes to END, or to a call of a block that returns in its place.
  void FindReturns() {
    std::map<const Program*, std::vector<const Program*>> callers;
    std::vector<const Program*> open;
    for (const auto& [block, path] : paths_) {
      for (size_t i = 0; i < path.lines.size(); ++i) {
        for (const Program* called : BlocksOf(ofTask_, path.LineAt(i))) callers[called].push_back(block);
        if (GoesOnOf(path.LineAt(i)) == rack::GoesOn::Caller) open.push_back(block);
      }
    }
    while (!open.empty()) {
      const Program* block = open.back();
      open.pop_back();
      if (!returns_.insert(block).second) continue;
      open.insert(open.end(), callers[block].begin(), callers[block].end());
    }
    for (auto& [block, path] : paths_) path.returning = Returning(path);
  }

  size_t Returning(const Path& path) const {
    for (size_t i = path.lines.size(); i > 0; --i) {
      const Line& line = path.LineAt(i - 1);
      if (GoesOnOf(line) != rack::GoesOn::Caller && !CallsReturning(line)) continue;
      const bool isInLoop = path.loop && i > *path.loop;
      return isInLoop ? path.lines.size() : i;
    }
    return 0;
  }

  std::vector<const Program*> BlocksFrom(const Path& production) const {
    std::vector<const Program*> found;
    std::set<const Program*> seen;
    std::vector<const Path*> open = {&production};
    while (!open.empty()) {
      const Path& path = *open.back();
      open.pop_back();
      for (size_t i = 0; i < path.lines.size(); ++i) {
        for (const Program* block : BlocksOf(ofTask_, path.LineAt(i))) {
          const auto called = paths_.find(block);
          if (called == paths_.end() || !seen.insert(block).second) continue;
          found.push_back(block);
          open.push_back(&called->second);
        }
      }
    }
    return found;
  }

  Round RoundOf(const Path& path) const {
    Round round{{}, {}, GoesOnOf(path.LineAt(path.lines.size() - 1)) == rack::GoesOn::Label};
    Seen seen;
    for (size_t i = 0; i < path.lines.size(); ++i) {
      const Line& line = path.LineAt(i);
      if (i < *path.loop) {
        round.before.push_back(&line);
        continue;
      }
      round.steps.push_back({&line, path.program, false});
      // In a block a call leaves the round.
      if (path.program->isMain && GoesOnOf(line) == rack::GoesOn::Block) AddBlocks(line, &seen, &round);
    }
    return round;
  }

  static bool IsConditional(const Line& line) {
    return rack::RowOf(line.parsed.CmdIdx).parameter == rack::Parameter::Condition;
  }

  // The lines of the blocks called there, and of those that these give way to.
  void AddBlocks(const Line& call, Seen* seen, Round* round) const {
    std::vector<std::pair<const Program*, bool>> open;
    const auto add = [&](const Line& line, bool isConditional) {
      for (const Program* block : BlocksOf(ofTask_, line)) open.emplace_back(block, isConditional);
    };
    add(call, IsConditional(call));
    while (!open.empty()) {
      const auto [block, isConditional] = open.back();
      open.pop_back();
      const auto found = paths_.find(block);
      if (found == paths_.end() || !seen->insert({block, isConditional}).second) continue;
      const Path& path = found->second;
      for (size_t i = 0; i < path.returning; ++i) {
        const Line& line = path.LineAt(i);
        round->steps.push_back({&line, block, isConditional});
        add(line, isConditional || IsConditional(line));
      }
    }
  }

  const Task& ofTask_;
  std::map<const Program*, Path> paths_;  // of the blocks
  std::set<const Program*> returns_;
};

}  // namespace

std::set<const Program*> EndlessBlocks(const Task& task) {
  return RoundFinder(task).FindEndless();
}

std::vector<Round> RoundsOf(const Task& task) {
  return RoundFinder(task).Find();
}

}  // namespace check
