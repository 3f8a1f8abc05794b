// The machine on one screen: rows of a given width and number, the most important first.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "machine/snapshot.h"

namespace rack {

// Why a piece of the screen stands out.
enum class Look {
  Plain,
  Forced,   // held by a person or a fault
  Faulty,   // a fault, an alarm, a blocked motor
  Waiting,  // a task that waits
  Standing  // a task or time that only a key or a command lets go on
};

struct Piece {
  std::string text;
  Look look = Look::Plain;
};
using ScreenRow = std::vector<Piece>;

struct ScreenSize {
  int rows = 0;
  int columns = 0;
};

// Head, tasks and faults first, then inputs, outputs, motors and cylinders: those that the rack file names or hangs
// something on, and those that have been used since the overview began to look.
class Overview {
 public:
  // The names and addresses that are to be shown; none: all that is in use.
  explicit Overview(std::vector<std::string> names) : names_(std::move(names)) {}

  // Why one of the names is none of this machine; empty when all are.
  std::string Unknown(const Snapshot& snapshot) const;

  // Rows that fit the size. Of what does not fit, the first `skipped` rows behind tasks and faults are left out, and a
  // last row says how many are missing.
  std::vector<ScreenRow> Rows(const Snapshot& snapshot, ScreenSize size, bool all, int skipped);

 private:
  std::set<std::string> used_;
  std::vector<std::string> names_;
};

}  // namespace rack
