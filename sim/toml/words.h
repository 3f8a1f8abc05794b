// Words that people type: comparison, suggestions and numbers for the tool's messages.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rack {

std::string Lower(std::string_view text);

// The candidate that differs least from the word; empty when none is near.
std::string Nearest(const std::string& word, const std::vector<std::string>& candidates);

// "; did you mean X?" for a mistyped word, or nothing when no candidate is near.
std::string Suggestion(std::string_view word, const std::vector<std::string>& candidates);

// A whole decimal number, or nothing: no blanks, no rest, no overflow.
std::optional<int> WholeNumber(std::string_view text);

// "did you mean "X"?" for a mistyped word, or all that is known when none is near.
std::string Hint(const std::string& word, const std::vector<std::string>& known, const char* all);

std::string InQuotes(const std::string& text);

bool IsOneOf(const std::string& word, const std::vector<std::string>& words);

// The words between blanks.
std::vector<std::string> Split(std::string_view text);
// Words joined by a separator.
std::string Join(const std::vector<std::string>& words, std::string_view separator);

// A time in nanoseconds as seconds: one decimal place for people ("3.2 s").
std::string Seconds(long long nanos);

}  // namespace rack
