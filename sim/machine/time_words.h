// Words about a machine's time: how it goes, where it is to stand.
#pragma once

#include <cstdint>
#include <string>

#include "machine/machine.h"

namespace rack {

// "real", "virtual" or a factor such as 20 or 0.1. The text says what is wrong.
std::string ParseTime(const std::string& word, TimeSetup& setup);

// "real" or "fibres"; empty: fibres if they are possible. The text says what is wrong.
std::string ParseThreads(const std::string& word, TimeSetup& setup);

// "TASK:FILE:LINE", such as "1:FLOW.PLC:12": time stands there. The text says what is wrong.
std::string ParsePlace(const std::string& word, TimeCommand& command);

// Why the machine in the directory never comes to the line of a place: no such file, task or line, or a line that holds
// nothing to execute. Empty when it can. `tasks`: how many PLC tasks it has, 0 when that is not known.
std::string WhyNever(const std::string& directory, const TimeCommand& place, int tasks);

// How many PLC tasks a controller makes of its argument, empty: none, and the switch of its CPU card.
int TaskCount(const std::string& argument, const CpuCardState& cpu);
// The same for the running controller; 0 when none runs.
int TaskCount(const RackState& state);

// "task 1 at plc1/FLOW.PLC:12": where a command lets time stand.
std::string PlaceText(const TimeCommand& command);

// A task number from 1 to 8, or nothing for any task.
std::string ParseTask(const std::string& word, std::uint8_t& task);

// "task 1 stands before plc1/FLOW.PLC:12  LD: 1, 0, 1", for a machine whose time stands.
std::string StandText(const RackState& state);

}  // namespace rack
