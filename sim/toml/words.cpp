#include "toml/words.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <numeric>

namespace rack {

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

std::string Nearest(const std::string& word, const std::vector<std::string>& candidates) {
  std::string best;
  std::size_t bestDistance = std::max<std::size_t>(2, word.size() / 2);
  for (const std::string& candidate : candidates) {
    // Edits from the first i letters of the word to the first j of the candidate, row by row.
    std::vector<std::size_t> row(candidate.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= word.size(); ++i) {
      std::size_t diagonal = row[0];
      row[0] = i;
      for (std::size_t j = 1; j <= candidate.size(); ++j) {
        const std::size_t replaced = diagonal + (word[i - 1] == candidate[j - 1] ? 0 : 1);
        diagonal = row[j];
        row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
      }
    }
    if (row.back() > bestDistance || (row.back() == bestDistance && !best.empty())) continue;
    best = candidate;
    bestDistance = row.back();
  }
  return best;
}

std::string Suggestion(std::string_view word, const std::vector<std::string>& candidates) {
  const std::string nearest = Nearest(std::string(word), candidates);
  return nearest.empty() ? "" : "; did you mean " + nearest + "?";
}

std::string Hint(const std::string& word, const std::vector<std::string>& known, const char* all) {
  const std::string near = Nearest(word, known);
  return near.empty() ? all + Join(known, ", ") : "did you mean " + InQuotes(near) + "?";
}

std::optional<int> WholeNumber(std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::string InQuotes(const std::string& text) {
  return "\"" + text + "\"";
}

bool IsOneOf(const std::string& word, const std::vector<std::string>& words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

std::vector<std::string> Split(std::string_view text) {
  std::vector<std::string> words;
  std::size_t at = 0;
  while ((at = text.find_first_not_of(' ', at)) != std::string_view::npos) {
    const std::size_t end = std::min(text.find(' ', at), text.size());
    words.emplace_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

std::string Join(const std::vector<std::string>& words, std::string_view separator) {
  std::string joined;
  for (const std::string& word : words) {
    if (!joined.empty()) joined += separator;
    joined += word;
  }
  return joined;
}

std::string Seconds(long long nanos) {
  char text[40];
  std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(nanos) / 1e9);
  return text;
}

}  // namespace rack
