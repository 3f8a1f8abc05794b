// Characters that are not ASCII, and what they look like in a program.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace check {

struct Character {
  char32_t code;
  size_t size;  // in bytes
};
constexpr char32_t kNoCharacter = 0xFFFFFFFF;

// The character that begins at a byte of UTF-8; kNoCharacter for a byte that begins none.
Character CharacterAt(std::string_view text, size_t at);

// "U+FF13"
std::string CodePoint(char32_t code);

// A character that a terminal obeys instead of showing it, or a byte that is no character.
bool IsControl(char32_t code);

// A character that people take for another one, and the controller does not.
struct LookAlike {
  std::string name;   // with its article and code point
  std::string meant;  // in quotes where it can be seen
};
std::optional<LookAlike> LookAlikeOf(char32_t code);

}  // namespace check
