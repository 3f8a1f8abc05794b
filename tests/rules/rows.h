// What the controller is seen to do with the programs that the program checker finds fault with.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "process/machine.h"

// How a program goes on once it has logged what the row says.
enum class Then {
  Ends,   // END of the main program, which begins again after a pause
  Stays,  // runs or waits for ever; the minus key leads out
  Rests,  // logs nothing more; the minus key leads out
  Own     // `seen` tells all
};

struct Row {
  const char* rule;
  const char* program;  // as an example of a rule; null: the rule's own wrong example
  Then goes;
  std::string log;  // from the start of FLOW.PLC on
  const char* bus;  // accesses of the task; null: not looked at
  // Looks at what log and bus do not show; null: nothing. The task is the one that runs "plc1" of the program.
  std::function<void(TestMachine& machine, int task)> seen = nullptr;
};

// Programs that run side by side in one machine, one a task. `seen` is called in the order of the rows.
struct Group {
  const char* name;
  std::vector<Row> rows;
};

const std::vector<Group>& Groups();

inline void PrintTo(const Group& group, std::ostream* stream) {
  *stream << group.name;
}

// Directory of a task.
inline std::string DirectoryOf(int task) {
  return "plc" + std::to_string(task);
}
