#include "toml/toml_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include "toml/characters.h"
#include "toml/nesting.h"
#include "toml/times.h"
#include "toml/words.h"

namespace rack {

namespace {

std::string PlaceText(const std::string& name, std::size_t line, std::size_t column) {
  return name + ":" + std::to_string(line) + ":" + std::to_string(column) + ": ";
}

// A part of a text, from `begin` to the end of its line, without blanks around it.
std::string LineBehind(const std::string& text, std::size_t begin) {
  const std::string line = text.substr(begin, text.find('\n', begin) - begin);
  const std::size_t first = line.find_first_not_of(' ');
  return first == std::string::npos ? "" : line.substr(first, line.find_last_not_of(' ') - first + 1);
}

bool StartsWith(const std::string& text, std::string_view start) {
  return text.compare(0, start.size(), start) == 0;
}

// The parser's first line, "[error] toml::parse_key: message", without what it says of itself; some have no message there,
// but only at the mark below the line of the file.
std::string ParserMessage(const std::string& text) {
  constexpr std::string_view kError = "[error] ";
  constexpr std::string_view kMark = "^---";
  std::string message = LineBehind(text, StartsWith(text, kError) ? kError.size() : 0);
  if (StartsWith(message, "toml::") || StartsWith(message, "parse_")) {
    message.erase(0, std::min(message.find(' '), message.size() - 1) + 1);
  }
  if (!message.empty()) return message;
  const std::size_t mark = text.rfind(kMark);
  if (mark != std::string::npos) message = LineBehind(text, mark + kMark.size());
  return message.empty() ? "this is no TOML" : message;
}

// What the parser has against a file, as one line.
std::string SyntaxError(const std::string& name, const toml::exception& error) {
  return PlaceText(name, error.location().line(), error.location().column()) +
         Printable(ParserMessage(error.what()));
}

struct Refusal {
  std::size_t at;
  std::string message;
};

// What the parser itself would stumble over; nothing for a text that it can be given.
std::optional<Refusal> WhyNotParse(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const Character character = CharacterAt(text, at);
    if (character.code == kNoCharacter)
      return Refusal{at, "the byte " + Printable(text.substr(at, 1)) + " is no UTF-8"};
    at += character.size;
  }
  const std::optional<std::size_t> deep = TooDeepAt(text);
  if (!deep) return std::nullopt;
  return Refusal{*deep, "tables, lists or parts of a key lie in each other more than " +
                            std::to_string(kMostNesting) + " deep"};
}

std::string Hint(const std::string& word, const std::vector<std::string>& known, const char* all) {
  const std::string near = Nearest(word, known);
  return near.empty() ? all + Join(known, ", ") : "did you mean " + InQuotes(near) + "?";
}

}  // namespace

bool ReadWholeFile(const std::string& path, std::string& content) {
  std::ifstream file(path, std::ios::binary);
  struct stat status = {};
  if (!file || stat(path.c_str(), &status) != 0) return false;
  if (S_ISDIR(status.st_mode)) {
    errno = EISDIR;
    return false;
  }
  content.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return !file.bad();
}

bool TomlReader::ReadFile() {
  std::string text;
  if (ReadWholeFile(name_, text)) return ReadText(text);
  errors_.push_back(name_ + ": " + std::strerror(errno));
  return false;
}

bool TomlReader::ReadText(const std::string& text) {
  if (const std::optional<Refusal> refusal = WhyNotParse(text)) {
    const std::string before = text.substr(0, refusal->at);
    const std::size_t lineStart = before.rfind('\n') + 1;  // 0 in the first line
    const auto line = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')) + 1;
    errors_.push_back(PlaceText(name_, line, refusal->at - lineStart + 1) + refusal->message);
    return false;
  }
  const std::size_t before = errors_.size();
  try {
    std::istringstream stream(text);
    ReadRoot(toml::parse(stream, name_));
    Report();
  } catch (const toml::exception& error) {
    errors_.push_back(SyntaxError(name_, error));
  } catch (const std::exception& error) {
    errors_.push_back(PlaceText(name_, 1, 1) + "the file cannot be read as TOML: " + error.what());
  }
  return errors_.size() == before;
}

void TomlReader::Fail(const Value& value, const std::string& message) {
  const toml::source_location place = value.location();
  Fail(place.line(), place.column(), message);
}

void TomlReader::Fail(std::size_t line, std::size_t column, const std::string& message) {
  findings_.push_back({line, column, message});
}

// Tables are read in no particular order; people read from top to bottom.
void TomlReader::Report() {
  std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
  for (const Finding& finding : findings_) {
    errors_.push_back(PlaceText(name_, finding.line, finding.column) + Printable(finding.message));
  }
}

const TomlReader::Value* TomlReader::Get(const Value& owner, const std::string& word) {
  const Table& table = owner.as_table();
  const auto found = table.find(word);
  return found == table.end() ? nullptr : &found->second;
}

const TomlReader::Value* TomlReader::Need(const Value& owner, const std::string& word) {
  const Value* value = Get(owner, word);
  if (value == nullptr) Fail(owner, InQuotes(word) + " is missing here");
  return value;
}

std::int64_t TomlReader::WholeNumberOf(const Value& owner, const std::string& word, std::int64_t low,
                                       std::int64_t high, std::int64_t absent) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return absent;
  if (value->is_integer() && value->as_integer() >= low && value->as_integer() <= high) {
    return value->as_integer();
  }
  Fail(*value,
       InQuotes(word) + " wants a whole number from " + std::to_string(low) + " to " + std::to_string(high));
  return absent;
}

Nanos TomlReader::Time(const Value& owner, const std::string& word, Nanos absent) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return absent;
  const std::optional<Nanos> time = FileTime(value->is_string() ? value->as_string().str : "");
  if (!time) Fail(*value, InQuotes(word) + " wants a time such as \"300 ms\", \"1.5 s\" or \"20 min\"");
  return time.value_or(absent);
}

bool TomlReader::Flag(const Value& owner, const std::string& word) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return false;
  if (value->is_boolean()) return value->as_boolean();
  Fail(*value, InQuotes(word) + " wants true or false");
  return false;
}

bool TomlReader::Text(const Value& value, std::string& text) {
  if (value.is_string()) {
    text = value.as_string().str;
    return true;
  }
  Fail(value, "a text in quotes is wanted here");
  return false;
}

bool TomlReader::Text(const Value& owner, const std::string& word, std::string& text) {
  const Value* value = Get(owner, word);
  if (value == nullptr) return false;
  if (value->is_string()) return Text(*value, text);
  Fail(*value, InQuotes(word) + " wants a text in quotes");
  return false;
}

std::optional<std::size_t> TomlReader::Choice(const Value& value, const char* what, const Words& names) {
  std::string name;
  if (!Text(value, name)) return std::nullopt;
  const auto found = std::find(names.begin(), names.end(), name);
  if (found != names.end()) return static_cast<std::size_t>(found - names.begin());
  Fail(value, std::string("unknown ") + what + " " + InQuotes(name) + "; " + Hint(name, names, "known: "));
  return std::nullopt;
}

const TomlReader::Value* TomlReader::TableOf(const Value& root, const std::string& word) {
  const Value* value = Get(root, word);
  if (value == nullptr || value->is_table()) return value;
  Fail(*value, InQuotes(word) + " is written as [" + word + "]");
  return nullptr;
}

std::vector<const TomlReader::Value*> TomlReader::Tables(const Value& root, const std::string& word) {
  std::vector<const Value*> tables;
  const Value* list = Get(root, word);
  if (list == nullptr) return tables;
  const bool right = list->is_array() && std::all_of(list->as_array().begin(), list->as_array().end(),
                                                     [](const Value& row) { return row.is_table(); });
  if (!right) {
    Fail(*list, InQuotes(word) + " is written as [[" + word + "]]");
    return tables;
  }
  for (const Value& row : list->as_array()) tables.push_back(&row);
  return tables;
}

const toml::array* TomlReader::List(const Value& value, const std::string& word, const char* example) {
  if (value.is_array()) return &value.as_array();
  Fail(value, InQuotes(word) + " wants a list such as " + example);
  return nullptr;
}

void TomlReader::CheckWords(const Table& table, const Words& known) {
  for (const auto& [word, value] : table) {
    if (IsOneOf(word, known)) continue;
    Fail(value, "unknown word " + InQuotes(word) + "; " + Hint(word, known, "known here: "));
  }
}

bool TomlReader::OneOf(const Value& owner, const Words& words, std::string& given) {
  int count = 0;
  for (const std::string& word : words) {
    if (Get(owner, word) == nullptr) continue;
    given = word;
    ++count;
  }
  if (count == 1) return true;
  Fail(owner, "exactly one of " + Join(words, ", ") + " is wanted here");
  return false;
}

}  // namespace rack
