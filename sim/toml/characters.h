// Characters of UTF-8, and texts with nothing in them that a terminal or a reader of files would stumble over.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace rack {

struct Character {
  char32_t code;
  std::size_t size;  // in bytes
};
constexpr char32_t kNoCharacter = 0xFFFFFFFF;

// The character that begins at a byte of UTF-8; kNoCharacter for a byte that begins none.
Character CharacterAt(std::string_view text, std::size_t at);

// A character that a terminal obeys instead of showing it, one that files in XML must not hold, or a byte that is no
// character.
bool IsControl(char32_t code);

// The text with each byte of such characters as \xNN: of one line, or of several with tabs and line feeds as they are.
std::string Printable(std::string_view line);
std::string PrintableLines(std::string_view text);

}  // namespace rack
