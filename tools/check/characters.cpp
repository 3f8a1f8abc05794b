#include "check/characters.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>

namespace check {

namespace {

struct NamedLookAlike {
  char32_t code;
  const char* name;
  const char* meant;
};
constexpr NamedLookAlike kNamed[] = {
    {0x0D, "a carriage return alone", "the end of the line"},
    {0xFF1A, "a full-width colon", "\":\""},
    {0xFF0C, "a full-width comma", "\",\""},
    {0xFF1B, "a full-width semicolon", "\";\""},
    {0xFF06, "a full-width ampersand", "\"&\""},
    {0xFF03, "a full-width number sign", "\"#\""},
    {0x3001, "an ideographic comma", "\",\""},
    {0x3000, "an ideographic space", "a blank"},
    {0x00A0, "a no-break space", "a blank"},
    {0x202F, "a narrow no-break space", "a blank"},
    {0x205F, "a mathematical space", "a blank"},
    {0x1680, "an ogham space", "a blank"},
    {0x2212, "a minus sign that is not ASCII", "\"-\""},
    {0x2010, "a hyphen that is not ASCII", "\"-\""},
    {0x2011, "a hyphen that is not ASCII", "\"-\""},
    {0x2013, "a dash", "\"-\""},
    {0xFEFF, "a byte order mark", "nothing"},
};

struct Range {
  char32_t first;
  char32_t last;
};
// Marks of direction, joiners and fillers.
constexpr Range kInvisible[] = {{0x00AD, 0x00AD}, {0x034F, 0x034F}, {0x061C, 0x061C}, {0x115F, 0x1160},
                                {0x180B, 0x180F}, {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},
                                {0x3164, 0x3164}, {0xFE00, 0xFE0F}, {0xFFA0, 0xFFA0}, {0xE0000, 0xE007F}};
constexpr Range kBlanks = {0x2000, 0x200A};
constexpr Range kFullWidth = {0xFF01, 0xFF5E};  // "!" to "~"

struct Letter {
  char32_t code;
  char latin;
};
constexpr Letter kCyrillic[] = {
    {0x0405, 'S'}, {0x0406, 'I'}, {0x0408, 'J'}, {0x0410, 'A'}, {0x0412, 'B'}, {0x0415, 'E'}, {0x0417, '3'},
    {0x041A, 'K'}, {0x041C, 'M'}, {0x041D, 'H'}, {0x041E, 'O'}, {0x0420, 'P'}, {0x0421, 'C'}, {0x0422, 'T'},
    {0x0423, 'Y'}, {0x0425, 'X'}, {0x0430, 'a'}, {0x0435, 'e'}, {0x043A, 'k'}, {0x043C, 'm'}, {0x043D, 'h'},
    {0x043E, 'o'}, {0x0440, 'p'}, {0x0441, 'c'}, {0x0442, 't'}, {0x0443, 'y'}, {0x0445, 'x'}, {0x0455, 's'},
    {0x0456, 'i'}, {0x0458, 'j'}, {0x0474, 'V'}, {0x0475, 'v'}, {0x04AE, 'Y'}, {0x04AF, 'y'}, {0x04BA, 'h'},
    {0x04BB, 'h'}, {0x04C0, 'I'}, {0x04CF, 'l'}, {0x0501, 'd'}, {0x050C, 'G'}, {0x050D, 'g'}, {0x051A, 'Q'},
    {0x051B, 'q'}, {0x051C, 'W'}, {0x051D, 'w'}};
constexpr Letter kGreek[] = {{0x0391, 'A'}, {0x0392, 'B'}, {0x0395, 'E'}, {0x0396, 'Z'}, {0x0397, 'H'},
                             {0x0399, 'I'}, {0x039A, 'K'}, {0x039C, 'M'}, {0x039D, 'N'}, {0x039F, 'O'},
                             {0x03A1, 'P'}, {0x03A4, 'T'}, {0x03A5, 'Y'}, {0x03A7, 'X'}, {0x03B1, 'a'},
                             {0x03B9, 'i'}, {0x03BA, 'k'}, {0x03BD, 'v'}, {0x03BF, 'o'}, {0x03C1, 'p'},
                             {0x03C4, 't'}, {0x03C5, 'u'}, {0x03F2, 'c'}, {0x03F3, 'j'}, {0x03F9, 'C'}};

constexpr bool IsIn(const Range& range, char32_t code) {
  return code >= range.first && code <= range.last;
}

template <size_t kCount>
bool IsInOneOf(const Range (&ranges)[kCount], char32_t code) {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [&](const Range& range) { return IsIn(range, code); });
}

template <size_t kCount>
char LatinOf(const Letter (&letters)[kCount], char32_t code) {
  const auto* row = std::find_if(std::begin(letters), std::end(letters),
                                 [&](const Letter& letter) { return letter.code == code; });
  return row == std::end(letters) ? '\0' : row->latin;
}

std::string InQuotes(char c) {
  return std::string("\"") + c + "\"";
}

LookAlike FullWidth(char32_t code) {
  const char c = static_cast<char>(code - kFullWidth.first + '!');
  const auto byte = static_cast<unsigned char>(c);
  const char* sort = std::isdigit(byte) != 0 ? "digit " : std::isalpha(byte) != 0 ? "letter " : "character ";
  return {std::string("a full-width ") + sort + c, InQuotes(c)};
}

std::optional<LookAlike> WithoutCode(char32_t code) {
  const auto* named = std::find_if(std::begin(kNamed), std::end(kNamed),
                                   [&](const NamedLookAlike& row) { return row.code == code; });
  if (named != std::end(kNamed)) return LookAlike{named->name, named->meant};
  if (IsInOneOf(kInvisible, code)) return LookAlike{"an invisible character", "nothing"};
  if (IsIn(kBlanks, code)) return LookAlike{"a blank that is not ASCII", "a blank"};
  if (IsIn(kFullWidth, code)) return FullWidth(code);
  if (const char latin = LatinOf(kCyrillic, code)) return LookAlike{"a Cyrillic letter", InQuotes(latin)};
  if (const char latin = LatinOf(kGreek, code)) return LookAlike{"a Greek letter", InQuotes(latin)};
  return std::nullopt;
}

}  // namespace

std::string CodePoint(char32_t code) {
  char text[16] = "";
  std::snprintf(text, sizeof text, "U+%04X", static_cast<unsigned int>(code));
  return text;
}

std::optional<LookAlike> LookAlikeOf(char32_t code) {
  if (code < 0x80 && code != '\r') return std::nullopt;
  std::optional<LookAlike> found = WithoutCode(code);
  if (found) found->name += " (" + CodePoint(code) + ")";
  return found;
}

}  // namespace check
