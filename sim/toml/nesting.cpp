#include "toml/nesting.h"

#include <algorithm>

namespace rack {

namespace {

// Where the text in quotes or the comment that begins here ends; behind one character where neither begins.
std::size_t BehindPart(std::string_view text, std::size_t at) {
  const char quote = text[at];
  if (quote == '#') return std::min(text.find('\n', at), text.size());
  if (quote != '"' && quote != '\'') return at + 1;
  const bool isLong = text.substr(at, 3) == std::string_view(quote == '"' ? "\"\"\"" : "'''");
  const std::size_t marks = isLong ? 3 : 1;
  for (at += marks; at < text.size(); ++at) {
    if (text[at] == '\n' && !isLong) return at;
    if (text[at] == '\\' && quote == '"') {
      ++at;
      continue;
    }
    if (text[at] != quote) continue;
    if (!isLong) return at + 1;
    const std::size_t end = std::min(text.find_first_not_of(quote, at), text.size());
    // Up to two of the marks at the end belong to the text.
    if (end - at >= marks) return std::min(end, at + marks + 2);
    at = end - 1;
  }
  return text.size();
}

TextPlace PlaceOf(std::string_view text, std::size_t at) {
  const std::string_view before = text.substr(0, at);
  const std::size_t lineEnd = before.rfind('\n');
  const auto lines = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  return {lines + 1, at - (lineEnd == std::string_view::npos ? 0 : lineEnd + 1) + 1};
}

}  // namespace

std::optional<TextPlace> TooDeep(std::string_view text) {
  std::size_t open = 0;
  std::size_t parts = 1;
  for (std::size_t at = 0; at < text.size(); at = BehindPart(text, at)) {
    const char c = text[at];
    if (c == '[' || c == '{') ++open;
    if ((c == ']' || c == '}') && open > 0) --open;
    if (c == '.') ++parts;
    if (std::string_view("=,[]{}\n").find(c) != std::string_view::npos) parts = 1;
    if (open > kMostNested || parts > kMostNested) return PlaceOf(text, at);
  }
  return std::nullopt;
}

}  // namespace rack
