// Words about a machine's time: how it goes, where it is to stand.
#pragma once

#include <cstdint>
#include <string>

#include "machine/machine.h"

namespace rack {

// "real", "virtual" or a factor such as 20 or 0.1. The text says what is wrong.
std::string ParseTime(const std::string& word, TimeSetup& setup);

// "TASK:FILE:LINE", such as "1:FLOW.PLC:12": time stands there. The text says what is wrong.
std::string ParsePlace(const std::string& word, TimeCommand& command);

// A task number from 1 to 8, or nothing for any task.
std::string ParseTask(const std::string& word, std::uint8_t& task);

// "task 1 stands before plc1/FLOW.PLC:12  LD: 1, 0, 1", for a machine whose time stands.
std::string StandText(const RackState& state);

}  // namespace rack
