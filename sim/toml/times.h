// Times as people write them, in files and on command lines: "300 ms", "1.5 s", "20 min".
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "cards/card.h"

namespace rack {

// Exact to the microsecond. Nothing for a text that is no time, or one of more than thirty years: a few of
// those still fit into Nanos together.
//
// In a file: with a unit, and blanks in front of it or not.
std::optional<Nanos> FileTime(std::string_view text);
// On a command line: "500ms", "1.5s", "2min" or "3", seconds.
std::optional<Nanos> CommandTime(std::string_view text);

// The other way round, with the unit that makes it short.
std::string TimeText(Nanos time);

}  // namespace rack
