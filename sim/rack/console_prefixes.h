// What each thread of the controller puts in front of its lines on the console.
#pragma once

#include <string_view>

#include "rack/state.h"

namespace rack {

// By task record.
constexpr std::string_view kConsolePrefixes[kTaskRecords] = {
    "PLCKey: ", "PLC1: ", "PLC2: ", "PLC3: ", "PLC4: ", "PLC5: ", "PLC6: ", "PLC7: ", "PLC8: ", "PLCNet: "};

}  // namespace rack
