// Characters that are not ASCII, and what they look like in a program.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "toml/characters.h"

namespace check {

using rack::Character;
using rack::CharacterAt;
using rack::IsControl;
using rack::kNoCharacter;

// "U+FF13"
std::string CodePoint(char32_t code);

// A character that people take for another one, and the controller does not.
struct LookAlike {
  std::string name;   // with its article and code point
  std::string meant;  // in quotes where it can be seen
};
std::optional<LookAlike> LookAlikeOf(char32_t code);

}  // namespace check
