// Where a program goes on after each of its lines.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "check/program.h"

namespace check {

// The line that may follow a line: one at most, for a call comes back to the line behind it.
class NextLine {
 public:
  NextLine() = default;
  explicit NextLine(size_t index) : index_(index), count_(1) {}

  bool empty() const { return count_ == 0; }
  size_t operator*() const { return index_; }
  const size_t* begin() const { return &index_; }
  const size_t* end() const { return &index_ + count_; }

 private:
  size_t index_ = 0;
  size_t count_ = 0;
};

struct Flow {
  // By index of the line; index lines.size() stands for the end of the file.
  std::vector<NextLine> next;
  std::vector<bool> reached;  // from the first line

  bool ReachesEnd() const { return reached.back(); }
};

Flow FlowOf(const Task& task, const Program& program);

// The first label line of that number, as GO finds it; nothing when there is none.
std::optional<size_t> FindLabel(const Program& program, int number);

// The blocks called by a line that are there.
std::vector<const Program*> BlocksOf(const Task& task, const Line& line);

// Whether an IF, or a call of a block that is not there, may go on with the next line.
bool MayCallNothing(const Task& task, const Line& line);

// The main programs from which each block is reached.
std::map<const Program*, std::set<std::string>> MainsAbove(const Task& task);

}  // namespace check
