// The rules by topic. Each function adds what it finds to the report.
#pragma once

#include "check/program.h"
#include "check/report.h"

namespace check {

// What the parser makes of each line: skipped lines, odd numbers, lost text.
void CheckLines(const Program& program, Report* report);
// Whether the line's code has a character that only looks like a separator.
bool HasLookAlike(const Line& line);
// A number that is none, or has other text behind its digits.
void CheckNumberText(const Program& program, const Line& line, int byte, const std::string& text,
                     Report* report);
// What the addressed card makes of channel and parameter.
void CheckCardCommands(const ProgramTree& tree, const Program& program, Report* report);
// Waits for a count that is there from the start.
void CheckCounts(const ProgramTree& tree, const Program& program, Report* report);
// Labels, ends, calls, loops.
void CheckFlow(const Task& task, Report* report);
// Calls of main programs, and what stands behind EXIT in a block.
void CheckBlocks(const Task& task, Report* report);
// Moves and the waits for them, along all paths of each task.
void CheckMotion(const ProgramTree& tree, Report* report);
// Axes and cards that tasks share, axes that nothing starts.
void CheckAxes(const ProgramTree& tree, Report* report);
// The fields of MOT, one beside the other.
void CheckMoves(const ProgramTree& tree, const Program& program, Report* report);
// Whether the controller starts the task.
bool IsRun(const ProgramTree& tree, const Task& task);
// Directories and files of all tasks.
void CheckTasks(const ProgramTree& tree, Report* report);
// Outputs that tasks share, outputs that production leaves on.
void CheckSharedOutputs(const ProgramTree& tree, Report* report);
void CheckOutputsLeftOn(const ProgramTree& tree, Report* report);
// What a search over all tasks finds: waits that lock each other, outputs that must not be on together. `notes`
// is told when the search was not complete.
void CheckTogether(const ProgramTree& tree, Report* report, std::vector<std::string>* notes);
// Inputs and outputs that the rack file does not name.
void CheckSignals(const ProgramTree& tree, Report* report);
// The configuration file.
void CheckConf(const ProgramTree& tree, Report* report);

}  // namespace check
