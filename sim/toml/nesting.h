// How deep a TOML text nests. Its parser calls itself once a level, as far as the stack goes.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace rack {

struct TextPlace {
  std::size_t line;  // both count from 1
  std::size_t column;
};

// Brackets that are open at once, and parts of a key with dots.
constexpr std::size_t kMostNested = 64;

// Where the text nests deeper; nothing where it does not.
std::optional<TextPlace> TooDeep(std::string_view text);

}  // namespace rack
