#include "toml/nesting.h"

#include <algorithm>

namespace rack {

namespace {

// Behind the string whose quote stands there; one that is never closed ends with its line, or with the text.
std::size_t BehindString(std::string_view text, std::size_t at) {
  const char quote = text[at];
  const char three[] = {quote, quote, quote};
  const bool isLong = text.substr(at, 3) == std::string_view(three, 3);
  const std::string_view end(three, isLong ? 3 : 1);
  at += end.size();
  while (at < text.size() && text.substr(at, end.size()) != end) {
    if (text[at] == '\n' && !isLong) return at;
    at += text[at] == '\\' && quote == '"' ? 2 : 1;
  }
  return std::min(at + end.size(), text.size());
}

bool IsAnyOf(char c, std::string_view characters) {
  return characters.find(c) != std::string_view::npos;
}

}  // namespace

std::optional<std::size_t> TooDeepAt(std::string_view text) {
  int brackets = 0;
  int dots = 0;  // of one key
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (IsAnyOf(c, "\"'")) {
      at = BehindString(text, at);
      continue;
    }
    if (c == '#') {
      at = std::min(text.find('\n', at), text.size());
      continue;
    }
    if (IsAnyOf(c, "[{")) ++brackets;
    if (IsAnyOf(c, "]}") && brackets > 0) --brackets;
    dots = c == '.' ? dots + 1 : IsAnyOf(c, "=,[{\n") ? 0 : dots;
    if (brackets > kMostNesting || dots >= kMostNesting) return at;
    ++at;
  }
  return std::nullopt;
}

}  // namespace rack
