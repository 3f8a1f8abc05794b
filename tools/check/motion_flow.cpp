#include "check/motion_flow.h"

#include <algorithm>

#include "commands/command_rows.h"

namespace check {

namespace {

constexpr int kHolds = 0;  // of a fact that no act has made

rack::GoesOn GoesOnOf(const Line& line) {
  return rack::RowOf(line.parsed.CmdIdx).goesOn;
}

// True when something is new.
bool Join(int* facts, const int* others, size_t count) {
  bool isNew = false;
  for (size_t i = 0; i < count; ++i) {
    if (facts[i] >= 0 || others[i] < 0) continue;
    facts[i] = others[i];
    isNew = true;
  }
  return isNew;
}

void Join(Facts* facts, const Facts& others) {
  if (facts->empty()) facts->assign(others.size(), kNoAct);
  Join(facts->data(), others.data(), others.size());
}

}  // namespace

// One walk along all ways of a program.
class MotionFlow::Walk {
 public:
  Walk(const MotionFlow& flow, const Body& body, Making making)
      : of_(flow), body_(body), making_(making), width_(flow.plan_.Count()) {
    const size_t lines = body.program->lines.size();
    facts_.assign((lines + 1) * width_, kNoAct);
    isOpen_.assign(lines + 1, false);
  }

  void From(const Facts& entry) {
    Reach(0, entry.data());
    for (size_t next = 0; next < open_.size(); ++next) {
      const size_t index = open_[next];
      isOpen_[index] = false;
      if (index < body_.program->lines.size()) Pass(index);
    }
    open_.clear();
  }

  const Exits& Ends() const { return exits_; }
  bool IsReached(size_t index) const {
    return At(index)[FactPlan::kOpen] >= 0 || At(index)[FactPlan::kClosed] >= 0;
  }
  const int* At(size_t index) const { return &facts_[index * width_]; }
  Facts FactsAt(size_t index) const { return {At(index), At(index) + width_}; }

  // The facts behind a call that ends as the block's exits say. A block that returns leaves its moves behind.
  Facts Behind(const Facts& made, const Facts& left, const int* before, bool returns) const {
    Facts facts(width_, kNoAct);
    if (making_ == Making::Yes) Join(facts.data(), made.data(), width_);
    for (size_t i = 0; i < width_; ++i) {
      if (facts[i] < 0 && left[i] >= 0) facts[i] = before[i];
    }
    if (!returns || making_ == Making::No) return facts;
    for (size_t axis = 0; axis < of_.table_.Axes().size(); ++axis) {
      for (size_t kind = 0; kind < std::size(kMovingFacts); ++kind) {
        const int move = made[FactPlan::Of(static_cast<int>(axis), kMovingFacts[kind])];
        if (move >= 0) facts[FactPlan::Of(static_cast<int>(axis), kLeftFacts[kind])] = move;
      }
    }
    return facts;
  }

 private:
  void Reach(size_t index, const int* facts) {
    if (!Join(&facts_[index * width_], facts, width_) || isOpen_[index]) return;
    isOpen_[index] = true;
    open_.push_back(index);
  }

  void ReachAllBehind(size_t index, const int* facts) {
    for (const size_t next : body_.flow.next[index]) Reach(next, facts);
  }

  void Pass(size_t index) {
    switch (GoesOnOf(body_.program->lines[index])) {
      case rack::GoesOn::Block:
        return PassCall(index, body_.calls.at(index), FactsAt(index));
      case rack::GoesOn::Caller:
        return PassEnd(FactsAt(index));
      case rack::GoesOn::Nowhere:
        return PassExit(index, FactsAt(index));
      case rack::GoesOn::NextLine:
      case rack::GoesOn::Label:
        return PassLine(index);
    }
  }

  void PassLine(size_t index) {
    const int act = body_.acts->empty() ? kNoAct : (*body_.acts)[index];
    if (act == kNoAct) return ReachAllBehind(index, At(index));
    Facts after = FactsAt(index);
    Do(act, &after);
    ReachAllBehind(index, after.data());
  }

  void PassEnd(const Facts& before) {
    if (body_.program->isMain) return Reach(0, before.data());
    if (before[FactPlan::kOpen] >= 0) Join(&exits_.atEnd, before);
    if (before[FactPlan::kClosed] >= 0) Join(&exits_.closing, before);
  }

  void PassExit(size_t index, const Facts& before) {
    if (body_.program->isMain) return Join(&exits_.closing, before);
    Facts after = before;
    after[FactPlan::kOpen] = kNoAct;
    after[FactPlan::kClosed] = kHolds;
    ReachAllBehind(index, after.data());
  }

  void PassCall(size_t index, const Call& call, const Facts& before) {
    if (call.mayCallNothing) ReachAllBehind(index, before.data());
    for (const size_t block : call.blocks) {
      const Effect& effect = of_.effects_[block];
      if (!effect.makes.atEnd.empty()) PassReturn(index, effect, before);
      if (!effect.makes.closing.empty()) {
        Join(&exits_.closing, Behind(effect.makes.closing, effect.leaves.closing, before.data(), false));
      }
    }
  }

  void PassReturn(size_t index, const Effect& effect, const Facts& before) {
    const bool returns = body_.program->isMain;
    Facts after = Behind(effect.makes.atEnd, effect.leaves.atEnd, before.data(), returns);
    after[FactPlan::kOpen] = before[FactPlan::kOpen];
    after[FactPlan::kClosed] = before[FactPlan::kClosed];
    if (returns) return ReachAllBehind(index, after.data());
    PassEnd(after);
  }

  void Make(size_t fact, int act, Facts* facts) const {
    (*facts)[fact] = making_ == Making::Yes ? act : kNoAct;
  }

  void EndMove(int axis, Facts* facts) const {
    for (const AxisFact fact : kMovingFacts) (*facts)[FactPlan::Of(axis, fact)] = kNoAct;
    for (const AxisFact fact : kLeftFacts) (*facts)[FactPlan::Of(axis, fact)] = kNoAct;
  }

  void StartMove(int index, const Act& act, Facts* facts) const {
    EndMove(act.axis, facts);
    if (!act.starts) return;
    Make(FactPlan::Of(act.axis, act.mayEndAtInput ? AxisFact::Ending : AxisFact::Moving), index, facts);
  }

  void Select(int index, const Act& act, Facts* facts) const {
    for (int channel = 0; channel <= kAnySelected; ++channel) {
      (*facts)[of_.plan_.Selected(act.card, channel)] = kNoAct;
    }
    Make(of_.plan_.Selected(act.card, of_.table_.ChannelOf(act)), index, facts);
  }

  void EndAllMoves(bool isCylinder, Facts* facts) const {
    const std::vector<Axis>& axes = of_.table_.Axes();
    for (size_t axis = 0; axis < axes.size(); ++axis) {
      if (axes[axis].isCylinder == isCylinder) EndMove(static_cast<int>(axis), facts);
    }
  }

  void EndByInput(const Act& act, Facts* facts) const {
    for (int axis = 0; axis < static_cast<int>(of_.table_.Axes().size()); ++axis) {
      int& ending = (*facts)[FactPlan::Of(axis, AxisFact::Ending)];
      int& left = (*facts)[FactPlan::Of(axis, AxisFact::LeftEnding)];
      if ((ending < 0 && left < 0) || !of_.table_.InputMayEnd(axis, act)) continue;
      ending = kNoAct;
      left = kNoAct;
    }
  }

  // Only the first motor that follows is told of a move that a block has left.
  void ForgetLeft(Facts* facts) const {
    for (int axis = 0; axis < static_cast<int>(of_.table_.Axes().size()); ++axis) {
      for (const AxisFact fact : kLeftFacts) (*facts)[FactPlan::Of(axis, fact)] = kNoAct;
    }
  }

  void Do(int index, Facts* facts) const {
    const Act& act = of_.table_.ActOf(index);
    if (act.selects) Select(index, act, facts);
    switch (act.deed) {
      case Deed::Move:
        ForgetLeft(facts);
        (*facts)[FactPlan::Of(act.axis, AxisFact::Counted)] = kNoAct;
        return StartMove(index, act, facts);
      case Deed::Travel:
        return StartMove(index, act, facts);
      case Deed::CountWait:
        Make(FactPlan::Of(act.axis, AxisFact::Counted), index, facts);
        return EndMove(act.axis, facts);
      case Deed::Setup:
      case Deed::Reset:
      case Deed::MotorWait:
      case Deed::CylinderWait:
        return EndMove(act.axis, facts);
      case Deed::ClearCount:
        (*facts)[FactPlan::Of(act.axis, AxisFact::Counted)] = kNoAct;
        return;
      case Deed::InputWait:
        return EndByInput(act, facts);
      case Deed::Nothing:
        return;
      case Deed::VainWait:
        return EndAllMoves(act.line->parsed.CmdIdx == SYN_LDG, facts);
    }
  }

  const MotionFlow& of_;
  const Body& body_;
  const Making making_;
  const size_t width_;
  std::vector<int> facts_;  // of all lines, and of the end of the file
  std::vector<size_t> open_;
  std::vector<bool> isOpen_;
  Exits exits_;
};

MotionFlow::MotionFlow(const Task& task, const MotionTable& table)
    : task_(task), table_(table), plan_(table) {
  const bool hasActs = std::any_of(task.programs.begin(), task.programs.end(), [&](const auto& program) {
    return !table.ActsOf(program.second).empty();
  });
  if (!hasActs) return;
  AddBodies();
  SolveEffects();
  SolveEntries();
}

void MotionFlow::AddBodies() {
  for (const auto& [name, program] : task_.programs) {
    bodyOf_[&program] = bodies_.size();
    bodies_.push_back({&program, FlowOf(task_, program), &table_.ActsOf(program), {}});
  }
  for (size_t body = 0; body < bodies_.size(); ++body) {
    const Program& program = *bodies_[body].program;
    for (size_t i = 0; i < program.lines.size(); ++i) {
      if (GoesOnOf(program.lines[i]) != rack::GoesOn::Block) continue;
      bodies_[body].calls[i] = CallOf(program.lines[i]);
      if (program.isMain) returns_.push_back({body, i + 1});
    }
  }
  effects_.resize(bodies_.size());
  entries_.resize(bodies_.size());
}

MotionFlow::Call MotionFlow::CallOf(const Line& line) const {
  Call call{{}, MayCallNothing(task_, line)};
  for (const Program* block : BlocksOf(task_, line)) call.blocks.push_back(bodyOf_.at(block));
  return call;
}

// Blocks that replace each other depend on each other.
void MotionFlow::SolveEffects() {
  std::vector<std::vector<size_t>> callers(bodies_.size());
  std::vector<size_t> open;
  for (size_t body = 0; body < bodies_.size(); ++body) {
    if (bodies_[body].program->isMain) continue;
    open.push_back(body);
    for (const auto& [line, call] : bodies_[body].calls) {
      for (const size_t block : call.blocks) callers[block].push_back(body);
    }
  }
  Facts none(plan_.Count(), kNoAct);
  none[FactPlan::kOpen] = kHolds;
  Facts all(plan_.Count(), kHolds);
  all[FactPlan::kClosed] = kNoAct;
  while (!open.empty()) {
    const size_t body = open.back();
    open.pop_back();
    Walk making(*this, bodies_[body], Making::Yes);
    making.From(none);
    Walk leaving(*this, bodies_[body], Making::No);
    leaving.From(all);
    Effect effect{making.Ends(), leaving.Ends()};
    if (effect == effects_[body]) continue;
    effects_[body] = std::move(effect);
    open.insert(open.end(), callers[body].begin(), callers[body].end());
  }
}

Facts MotionFlow::Unselected() const {
  Facts facts(plan_.Count(), kNoAct);
  facts[FactPlan::kOpen] = kHolds;
  for (size_t card = 0; card < table_.Cards().size(); ++card) {
    facts[plan_.Selected(static_cast<int>(card), kAnySelected)] = kHolds;
  }
  return facts;
}

bool MotionFlow::Enter(size_t body, const Facts& facts) {
  Facts& entry = entries_[body];
  if (entry.empty()) entry.assign(plan_.Count(), kNoAct);
  return Join(entry.data(), facts.data(), facts.size());
}

void MotionFlow::SolveMains() {
  Facts entry = Unselected();
  const Program* reset = task_.Find(kResetProgram);
  if (reset != nullptr) {
    const size_t body = bodyOf_.at(reset);
    Enter(body, entry);
    Walk walk(*this, bodies_[body], Making::Yes);
    walk.From(entry);
    if (!walk.Ends().closing.empty()) entry = walk.Ends().closing;
  }
  const Program* flow = task_.Find(kFlowProgram);
  if (flow == nullptr) return;
  const size_t body = bodyOf_.at(flow);
  entry[FactPlan::kOpen] = kHolds;
  entry[FactPlan::kClosed] = kNoAct;
  while (Enter(body, entry)) {
    Walk walk(*this, bodies_[body], Making::Yes);
    walk.From(entries_[body]);
    const Facts& end = walk.Ends().closing;
    if (end.empty()) return;
    // When Enter comes, what moves at the EXIT may have ended long ago.
    std::copy(end.begin() + static_cast<std::ptrdiff_t>(plan_.FirstOfCards()), end.end(),
              entry.begin() + static_cast<std::ptrdiff_t>(plan_.FirstOfCards()));
  }
}

void MotionFlow::SolveEntries() {
  SolveMains();
  std::vector<size_t> open;
  for (size_t body = 0; body < bodies_.size(); ++body) {
    if (bodies_[body].program->isMain) EnterBlocks(body, &open);
  }
  EnterBlocksBehind(&open);
  Facts unknown(plan_.Count(), kNoAct);
  unknown[FactPlan::kOpen] = kHolds;
  for (size_t body = 0; body < bodies_.size(); ++body) {
    if (!entries_[body].empty()) continue;
    // Nothing comes to this one.
    Enter(body, unknown);
    open.push_back(body);
    EnterBlocksBehind(&open);
  }
}

void MotionFlow::EnterBlocksBehind(std::vector<size_t>* changed) {
  while (!changed->empty()) {
    const size_t block = changed->back();
    changed->pop_back();
    EnterBlocks(block, changed);
  }
}

void MotionFlow::EnterBlocks(size_t body, std::vector<size_t>* changed) {
  if (bodies_[body].calls.empty() || entries_[body].empty()) return;
  Walk walk(*this, bodies_[body], Making::Yes);
  walk.From(entries_[body]);
  for (const auto& [line, call] : bodies_[body].calls) {
    if (!walk.IsReached(line)) continue;
    const Facts facts = walk.FactsAt(line);
    for (const size_t block : call.blocks) {
      if (Enter(block, facts)) changed->push_back(block);
    }
  }
}

void MotionFlow::ForEachAct(const Look& look) const {
  for (size_t body = 0; body < bodies_.size(); ++body) {
    const std::vector<int>& acts = *bodies_[body].acts;
    if (acts.empty()) continue;
    Walk walk(*this, bodies_[body], Making::Yes);
    walk.From(entries_[body]);
    for (size_t i = 0; i < acts.size(); ++i) {
      if (acts[i] == kNoAct || !walk.IsReached(i)) continue;
      look(*bodies_[body].program, i, table_.ActOf(acts[i]), walk.At(i));
    }
  }
}

bool MotionFlow::Waits(const Act& act, const Act& start) const {
  switch (act.deed) {
    case Deed::Setup:
    case Deed::Reset:
    case Deed::MotorWait:
    case Deed::CountWait:
    case Deed::CylinderWait:
      return act.axis == start.axis;
    case Deed::InputWait:
      return start.mayEndAtInput && table_.InputMayEnd(start.axis, act);
    case Deed::VainWait:
      return true;
    case Deed::Move:
    case Deed::Travel:
    case Deed::ClearCount:
    case Deed::Nothing:
      return false;
  }
  return false;
}

// The lines behind a line. The END of a block leads behind all calls of the main programs.
void MotionFlow::AddNext(const Node& at, std::vector<Node>* next) const {
  const Body& body = bodies_[at.body];
  for (const size_t line : body.flow.next[at.line]) next->push_back({at.body, line});
  const auto call = body.calls.find(at.line);
  if (call != body.calls.end()) {
    for (const size_t block : call->second.blocks) next->push_back({block, 0});
  }
  if (GoesOnOf(body.program->lines[at.line]) != rack::GoesOn::Caller) return;
  next->push_back(body.program->isMain ? Node{at.body, 0} : kReturns);
}

size_t MotionFlow::NumberOf(const Node& node) const {
  return node.body == kReturns.body ? firstNode_.back() : firstNode_[node.body] + node.line;
}

// Every line of all programs, the end of each file, and at last the return from a block.
void MotionFlow::NumberNodes() {
  size_t count = 0;
  for (const Body& body : bodies_) {
    firstNode_.push_back(count);
    count += body.program->lines.size() + 1;
  }
  firstNode_.push_back(count);
  before_.resize(count + 1);
  for (const Node& node : returns_) before_[NumberOf(node)].push_back(NumberOf(kReturns));
  std::vector<Node> next;
  for (size_t body = 0; body < bodies_.size(); ++body) {
    for (size_t line = 0; line < bodies_[body].program->lines.size(); ++line) {
      next.clear();
      AddNext({body, line}, &next);
      for (const Node& node : next) before_[NumberOf(node)].push_back(NumberOf({body, line}));
    }
  }
}

// Whether the way leads to an earlier line of the same program: into its next round.
bool MotionFlow::IsBackwards(size_t from, size_t to) const {
  const auto body = std::upper_bound(firstNode_.begin(), firstNode_.end(), to);
  return to <= from && body != firstNode_.end() && from < *body;
}

// By number of a node: whether a wait for the move comes from there on. Found from the waits backwards; a line that
// starts the axis anew lets nothing through. That a part has arrived tells of the same round only: in the next one
// it may lie there, whatever the axis does.
std::vector<bool> MotionFlow::AwaitedFrom(const Act& start) const {
  std::vector<bool> isAwaited(before_.size(), false);
  std::vector<bool> startsAnew(before_.size(), false);
  std::vector<size_t> waits;
  std::vector<size_t> arrivals;
  for (size_t body = 0; body < bodies_.size(); ++body) {
    const std::vector<int>& acts = *bodies_[body].acts;
    for (size_t line = 0; line < acts.size(); ++line) {
      if (acts[line] == kNoAct) continue;
      const Act& act = table_.ActOf(acts[line]);
      const size_t node = NumberOf({body, line});
      startsAnew[node] = act.axis == start.axis && act.starts;
      if (!Waits(act, start)) continue;
      const bool isArrival = act.deed == Deed::InputWait && table_.TellsArrival(start.axis, act);
      (isArrival ? arrivals : waits).push_back(node);
    }
  }
  const auto spread = [&](std::vector<size_t> open, bool toNextRound) {
    for (const size_t node : open) isAwaited[node] = true;
    while (!open.empty()) {
      const size_t node = open.back();
      open.pop_back();
      for (const size_t before : before_[node]) {
        if (isAwaited[before] || startsAnew[before]) continue;
        if (!toNextRound && IsBackwards(before, node)) continue;
        isAwaited[before] = true;
        open.push_back(before);
      }
    }
  };
  spread(std::move(waits), true);
  spread(std::move(arrivals), false);
  return isAwaited;
}

bool MotionFlow::IsAwaitedLater(const Program& program, size_t index, const Act& start) {
  if (before_.empty()) NumberNodes();
  const auto [awaited, isNew] = awaited_.try_emplace({start.axis, start.mayEndAtInput});
  if (isNew) awaited->second = AwaitedFrom(start);
  const std::vector<bool>& isAwaited = awaited->second;
  std::vector<Node> next;
  AddNext({bodyOf_.at(&program), index}, &next);
  return std::any_of(next.begin(), next.end(), [&](const Node& node) { return isAwaited[NumberOf(node)]; });
}

}  // namespace check
