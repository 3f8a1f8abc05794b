#include "toml/toml_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
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

// What the parser marks below a line of the file that it shows: " 2 | a = tru", then "   |     ^--- no boolean".
struct ParserMark {
  std::size_t line;
  std::size_t column;
  std::string text;
};

// The last one, which is the place that is wrong; ahead of it may stand what that place does not go with. Its own place of
// an error is that of the whole line for most of them.
std::optional<ParserMark> LastMark(const std::string& text) {
  std::optional<ParserMark> last;
  std::size_t shown = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t bar = line.find('|');
    if (bar == std::string::npos) continue;
    const std::string number = line.substr(0, bar);
    if (number.find_first_not_of(' ') != std::string::npos) {
      shown = std::strtoul(number.c_str(), nullptr, 10);
      continue;
    }
    const std::size_t mark = line.find_first_not_of(' ', bar + 1);
    if (shown == 0 || mark == std::string::npos || mark < bar + 2) continue;
    const std::size_t behind = std::min(line.find_first_not_of("^~-", mark), line.size());
    last = ParserMark{shown, mark - bar - 1, LineBehind(line, behind)};
  }
  return last;
}

// The parser's first line, "[error] toml::parse_key: message", without what it says of itself; some have no message there,
// but only at the mark.
std::string ParserMessage(const std::string& text, const std::optional<ParserMark>& mark) {
  constexpr std::string_view kError = "[error] ";
  std::string message = LineBehind(text, StartsWith(text, kError) ? kError.size() : 0);
  if (StartsWith(message, "toml::") || StartsWith(message, "parse_")) {
    message.erase(0, std::min(message.find(' '), message.size() - 1) + 1);
  }
  if (message.empty() && mark) message = mark->text;
  return message.empty() ? "this is no TOML" : message;
}

// What the parser has against a file, as one line.
std::string SyntaxError(const std::string& name, const toml::exception& error) {
  const std::string text = error.what();
  const std::optional<ParserMark> mark = LastMark(text);
  const std::size_t line = mark ? mark->line : error.location().line();
  const std::size_t column = mark ? mark->column : error.location().column();
  return PlaceText(name, line, column) + Printable(ParserMessage(text, mark));
}

// The first byte that is no character, which the parser would throw something else for; the size of the text if all are.
std::size_t FirstBroken(const std::string& text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const Character character = CharacterAt(text, at);
    if (character.code == kNoCharacter) break;
    at += character.size;
  }
  return at;
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
  content.clear();
  // Read by the stream, not by iterators of its buffer, which throw where a file cannot be read.
  std::array<char, 4096> part{};
  while (file.read(part.data(), part.size()), file.gcount() > 0) {
    content.append(part.data(), static_cast<std::size_t>(file.gcount()));
  }
  return !file.bad();
}

bool TomlReader::ReadFile() {
  std::string text;
  if (ReadWholeFile(name_, text)) return ReadText(text);
  errors_.push_back(name_ + ": " + std::strerror(errno));
  return false;
}

bool TomlReader::ReadText(const std::string& text) {
  const std::size_t broken = FirstBroken(text);
  if (broken < text.size()) {
    const std::string ahead = text.substr(0, broken);
    const auto line = static_cast<std::size_t>(std::count(ahead.begin(), ahead.end(), '\n')) + 1;
    const std::size_t column = broken - (ahead.rfind('\n') + 1) + 1;  // 0 stands for no line feed
    errors_.push_back(PlaceText(name_, line, column) + "the byte " + Printable(text.substr(broken, 1)) +
                      " is no UTF-8");
    return false;
  }
  const std::size_t before = errors_.size();
  if (const std::optional<TextPlace> deep = TooDeep(text)) {
    errors_.push_back(PlaceText(name_, deep->line, deep->column) + "nested too deep: at most " +
                      std::to_string(kMostNested) + " brackets, or parts of a key");
    return false;
  }
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
