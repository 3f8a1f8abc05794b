#include "toml/characters.h"

#include <algorithm>
#include <iterator>

namespace rack {

namespace {

struct Range {
  char32_t first;
  char32_t last;
};
constexpr Range kControls[] = {{0x00, 0x1F},
                               {0x7F, 0x9F},
                               // What turns the direction of the text behind it, or ends a line.
                               {0x200E, 0x200F},
                               {0x2028, 0x202E},
                               {0x2066, 0x2069},
                               // What is no character in any text.
                               {0xFFFE, 0xFFFF}};

constexpr const char* kHex = "0123456789abcdef";

bool IsLayout(char32_t code) {
  return code == '\t' || code == '\n';
}

bool IsPlain(char c) {
  return c >= ' ' && c <= '~';
}

std::string Shown(std::string_view text, bool keepsLayout) {
  if (std::all_of(text.begin(), text.end(), IsPlain)) return std::string(text);
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = CharacterAt(text, at);
    const bool hidden = IsControl(character.code) && !(keepsLayout && IsLayout(character.code));
    for (const char c : text.substr(at, character.size)) {
      const auto byte = static_cast<unsigned char>(c);
      if (hidden) {
        shown += std::string("\\x") + kHex[byte >> 4] + kHex[byte & 15];
      } else {
        shown += c;
      }
    }
    at += character.size;
  }
  return shown;
}

}  // namespace

Character CharacterAt(std::string_view text, std::size_t at) {
  constexpr char32_t kLowest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<unsigned char>(text[at]);
  if (lead < 0x80) return {lead, 1};
  const std::size_t size = (lead & 0xE0) == 0xC0   ? 2
                           : (lead & 0xF0) == 0xE0 ? 3
                           : (lead & 0xF8) == 0xF0 ? 4
                                                   : 0;
  if (size == 0 || at + size > text.size()) return {kNoCharacter, 1};
  char32_t code = lead & (0xFFU >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) {
    const auto byte = static_cast<unsigned char>(text[at + i]);
    if ((byte & 0xC0) != 0x80) return {kNoCharacter, 1};
    code = code << 6 | (byte & 0x3FU);
  }
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kLowest[size] || code > 0x10FFFF || isSurrogate) return {kNoCharacter, 1};
  return {code, size};
}

bool IsControl(char32_t code) {
  return code == kNoCharacter ||
         std::any_of(std::begin(kControls), std::end(kControls),
                     [&](const Range& range) { return code >= range.first && code <= range.last; });
}

std::string Printable(std::string_view line) {
  return Shown(line, false);
}

std::string PrintableLines(std::string_view text) {
  return Shown(text, true);
}

}  // namespace rack
