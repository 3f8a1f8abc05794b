// What an input waits for, as the rack file has it.
#pragma once

#include <string>

#include "machine/snapshot.h"

namespace rack {

// What must happen before the input shows the other level, as far back as the rack file goes: "goes off 100 ms
// after eject (1.16), which is off". A person or a fault that holds the input comes first.
std::string WhyNoChange(const Snapshot& snapshot, int entry, int channel);

// An input or output of the machine with its level, and of an input what it waits for: "part_there (1.2) is on:
// goes off 100 ms after eject (1.16), which is off".
std::string SignalSentence(const Snapshot& snapshot, SignalKind kind, int entry, int channel);

}  // namespace rack
