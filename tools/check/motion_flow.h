// What may be the case in front of each line of a task: what its axes do, which channel each card has selected.
//
// All of it is a row of facts, each of them a number: the act that has brought the fact about, or kNoAct while it is
// not the case on any way to the line. Each act makes some facts and ends some, whatever the others are. So what a
// block does is known from two walks through it, one that begins with no fact and one that begins with all: the facts
// that it makes, and those that it leaves. Every line that calls it then has its own facts behind it.
//
// A program's states come from where it is entered: RESET.PLC with nothing moving and any selection, at the start
// and after the minus key; FLOW.PLC behind the EXIT of RESET.PLC, and behind its own as far as the selections go; a
// block from all the lines that call it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "check/flow.h"
#include "check/motion_table.h"

namespace check {

enum class AxisFact {
  Moving,      // started, and nothing has waited for it
  Ending,      // likewise; an input may tell its end
  LeftMoving,  // as Moving, and the block that has started it has ended
  LeftEnding,  //
  Counted,     // a ROW was met, and the counter neither cleared nor moved on purpose since
  Count
};
constexpr AxisFact kMovingFacts[] = {AxisFact::Moving, AxisFact::Ending};
constexpr AxisFact kLeftFacts[] = {AxisFact::LeftMoving, AxisFact::LeftEnding};

constexpr int kChannelsOfCard = rack::MostMovers();
constexpr int kAnySelected =
    kChannelsOfCard;  // nothing has selected a channel since the start or the minus key

// Where the facts of a task stand in a row.
class FactPlan {
 public:
  explicit FactPlan(const MotionTable& table)
      : cards_(kFirstAxis + table.Axes().size() * kAxisFacts),
        count_(cards_ + table.Cards().size() * kCardFacts) {}

  // A line is reached as long as the main program is open, or behind an EXIT in a block.
  static constexpr size_t kOpen = 0;
  static constexpr size_t kClosed = 1;
  static size_t Of(int axis, AxisFact fact) {
    return kFirstAxis + static_cast<size_t>(axis) * kAxisFacts + static_cast<size_t>(fact);
  }
  size_t Selected(int card, int channel) const {
    return cards_ + static_cast<size_t>(card) * kCardFacts + static_cast<size_t>(channel);
  }
  size_t FirstOfCards() const { return cards_; }
  size_t Count() const { return count_; }

 private:
  static constexpr size_t kFirstAxis = 2;
  static constexpr size_t kAxisFacts = static_cast<size_t>(AxisFact::Count);
  static constexpr size_t kCardFacts = static_cast<size_t>(kChannelsOfCard) + 1;

  size_t cards_;
  size_t count_;
};

using Facts = std::vector<int>;

class MotionFlow {
 public:
  MotionFlow(const Task& task, const MotionTable& table);

  // Looks at each line that is reached and has an act, with the facts in front of it.
  using Look = std::function<void(const Program& program, size_t index, const Act& act, const int* facts)>;
  void ForEachAct(const Look& look) const;

  const FactPlan& Plan() const { return plan_; }
  // Whether some way from behind the line comes to a wait for what has been started before the axis is started anew.
  bool IsAwaitedLater(const Program& program, size_t index, const Act& start);

 private:
  struct Call {
    std::vector<size_t> blocks;  // in bodies_
    bool mayCallNothing;
  };
  struct Body {
    const Program* program;
    Flow flow;
    const std::vector<int>* acts;
    std::map<size_t, Call> calls;  // by line
  };
  // Facts at the ends of a program; empty where it does not end so.
  struct Exits {
    Facts atEnd;    // END of a block, the main program open
    Facts closing;  // EXIT, and the END of a block behind one
    bool operator==(const Exits& other) const { return atEnd == other.atEnd && closing == other.closing; }
  };
  struct Effect {
    Exits makes;
    Exits leaves;
    bool operator==(const Effect& other) const { return makes == other.makes && leaves == other.leaves; }
  };
  enum class Making { Yes, No };  // whether acts make facts in a walk, or only end them
  class Walk;
  struct Node {
    size_t body;
    size_t line;
  };
  static constexpr Node kReturns = {SIZE_MAX, 0};

  void AddBodies();
  Call CallOf(const Line& line) const;
  void SolveEffects();
  void SolveEntries();
  void SolveMains();
  void EnterBlocks(size_t body, std::vector<size_t>* changed);
  void EnterBlocksBehind(std::vector<size_t>* changed);
  bool Enter(size_t body, const Facts& facts);
  Facts Unselected() const;
  bool HasActs() const;
  bool Waits(const Act& act, const Act& start) const;
  void AddNext(const Node& at, std::vector<Node>* next) const;
  size_t NumberOf(const Node& node) const;
  void NumberNodes();
  std::vector<bool> AwaitedFrom(const Act& start) const;
  bool IsBackwards(size_t from, size_t to) const;

  const Task& task_;
  const MotionTable& table_;
  FactPlan plan_;
  std::vector<Body> bodies_;
  std::unordered_map<const Program*, size_t> bodyOf_;
  std::vector<Effect> effects_;    // of each body as a block
  std::vector<Facts> entries_;     // in front of the first line of each body
  std::vector<Node> returns_;      // behind the calls of the main programs
  std::vector<size_t> firstNode_;  // by body: number of its first line
  std::vector<std::vector<size_t>>
      before_;  // by number of a node: those that lead to it; made when asked for
  std::map<std::pair<int, bool>, std::vector<bool>>
      awaited_;  // by axis, and whether an input may end its move
};

}  // namespace check
