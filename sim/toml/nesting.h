// How deep the tables and lists of a TOML file lie in each other.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace rack {

// The parser calls itself for each list in a list, each table in a table and each part of a key: a file of nothing but
// brackets would use up its stack.
constexpr int kMostNesting = 64;

// Where a text goes deeper than that; nothing when it does not.
std::optional<std::size_t> TooDeepAt(std::string_view text);

}  // namespace rack
