// The axes of a machine, and what the lines of all its tasks do to them and to their cards.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "check/program.h"

namespace check {

struct Axis {
  int slot;
  int channel;
  bool isCylinder;

  // "2.0"
  std::string Name() const;
  // "motor 2.0"
  std::string Title() const;
  // The line that waits for it: "LMOT: 2, 0,"
  std::string Wait() const;
};

enum class Deed : std::uint8_t {
  Move,          // MOT; one of no steps ends the move that runs
  Travel,        // DG to a position
  Setup,         // DG -1: waits for its end itself
  Reset,         // DG -2: likewise
  MotorWait,     // LMOT
  CountWait,     // ROW
  CylinderWait,  // LDG
  ClearCount,    // ROCLR
  InputWait,     // LD
  Nothing,       // MOT or DG of which nothing is sent
  VainWait       // LMOT or LDG with two fields: the axis that is meant cannot be told
};

struct Act {
  Deed deed;
  const Task* task;
  const Program* program;
  const Line* line;
  int axis = -1;          // in the table's order; an InputWait has none
  int card = -1;          // of a command that selects a channel, or asks for the one selected last, its card
  bool selects = false;   // the card's channel
  bool asksLast = false;  // for the card's channel
  bool starts = false;    // something moves
  bool mayEndAtInput = false;  // what moves may be ended by an input, or have its end told by one
  int number = 0;              // the position of a Travel, the count of a CountWait

  // "FLOW.PLC:3", or "plc2/FLOW.PLC:3" as seen from another task.
  std::string Place() const;
  std::string PlaceInMachine() const;
};

constexpr int kNoAct = -1;

class MotionTable {
 public:
  explicit MotionTable(const ProgramTree& tree);

  const std::vector<Act>& Acts() const { return acts_; }
  const Act& ActOf(int act) const { return acts_[static_cast<size_t>(act)]; }
  const std::vector<Axis>& Axes() const { return axes_; }
  const Axis& AxisOf(const Act& act) const { return axes_[static_cast<size_t>(act.axis)]; }
  // Motor cards, by slot index.
  const std::vector<int>& Cards() const { return cards_; }
  int ChannelOf(const Act& act) const { return AxisOf(act).channel; }

  // The act of each line of the program, kNoAct where there is none; empty when it has none at all.
  const std::vector<int>& ActsOf(const Program& program) const;
  // The acts of programs that run on the controller, by axis and by card.
  const std::vector<int>& RunOnAxis(int axis) const { return onAxis_[static_cast<size_t>(axis)]; }
  const std::vector<int>& RunOnCard(int card) const { return onCard_[static_cast<size_t>(card)]; }
  // Whether an input may tell the end of what moves the axis.
  bool InputMayEnd(int axis, const Act& inputWait) const;
  // Whether it does so by a part that the axis has let arrive, and not by the axis itself.
  bool TellsArrival(int axis, const Act& inputWait) const;

 private:
  bool HasInput(int axis, const Act& inputWait, bool isArrival) const;
  void AddProgram(const Task& task, const Program& program, bool isRun);
  bool Explain(const Line& line, Act* act);
  bool ExplainOnCard(const Line& line, Act* act);
  void ExplainDg(const Line& line, Act* act);
  void ExplainMot(const Line& line, Act* act);
  int AxisAt(int slot, int channel, bool isCylinder);
  int CardAt(int slot);

  const ProgramTree& tree_;
  std::vector<Act> acts_;
  std::vector<Axis> axes_;
  std::map<std::tuple<bool, int, int>, int> axisIndex_;
  std::vector<int> cards_;
  std::vector<std::vector<int>> onAxis_;
  std::vector<std::vector<int>> onCard_;
  std::unordered_map<const Program*, std::vector<int>> actsOf_;
};

}  // namespace check
