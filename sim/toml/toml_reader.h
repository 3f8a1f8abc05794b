// One reading of one TOML file. Every finding goes into a list with its place, and the reading goes on.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <toml.hpp>
#include <vector>

#include "cards/card.h"

namespace rack {

// False when a file cannot be read: errno then says why.
bool ReadWholeFile(const std::string& path, std::string& content);

class TomlReader {
 public:
  using Value = toml::value;
  using Table = toml::table;
  using Words = std::vector<std::string>;

  // False when something is wrong: the errors then have one line for each finding, "file:line:column:
  // message", from top to bottom.
  bool ReadFile();
  bool ReadText(const std::string& text);

 protected:
  // `name` is what messages call the file, and where ReadFile looks for it.
  TomlReader(std::string name, std::vector<std::string>& errors) : name_(std::move(name)), errors_(errors) {}
  ~TomlReader() = default;

  virtual void ReadRoot(const Value& root) = 0;

  void Fail(const Value& value, const std::string& message);
  void Fail(std::size_t line, std::size_t column, const std::string& message);
  // What has been found so far in other files, which comes before what is found in this one.
  std::vector<std::string>& Errors() { return errors_; }

  static const Value* Get(const Value& owner, const std::string& word);
  // The same for a word that must be there.
  const Value* Need(const Value& owner, const std::string& word);

  // The value of a word, or `absent` when it is not there or wrong.
  template <class Whole = std::int64_t>
  Whole Number(const Value& owner, const std::string& word, std::int64_t low, std::int64_t high,
               std::int64_t absent) {
    return static_cast<Whole>(WholeNumberOf(owner, word, low, high, absent));
  }
  Nanos Time(const Value& owner, const std::string& word, Nanos absent);
  bool Flag(const Value& owner, const std::string& word);

  // False when it is no text, or not there; the text then stays as it is.
  bool Text(const Value& value, std::string& text);
  bool Text(const Value& owner, const std::string& word, std::string& text);
  // Which of the names a text is. `what` is how messages call one.
  std::optional<std::size_t> Choice(const Value& value, const char* what, const Words& names);

  // [word], null when it is not there.
  const Value* TableOf(const Value& root, const std::string& word);
  // The tables of [[word]], from top to bottom.
  std::vector<const Value*> Tables(const Value& root, const std::string& word);
  // A list; `example` shows what could stand in it. Null for anything else.
  const toml::array* List(const Value& value, const std::string& word, const char* example);

  void CheckWords(const Table& table, const Words& known);
  // Which one of these words a table has: exactly one is wanted.
  bool OneOf(const Value& owner, const Words& words, std::string& given);

 private:
  struct Finding {
    std::size_t line;
    std::size_t column;
    std::string message;
  };

  std::int64_t WholeNumberOf(const Value& owner, const std::string& word, std::int64_t low, std::int64_t high,
                             std::int64_t absent);
  void Report();

  std::string name_;
  std::vector<std::string>& errors_;
  std::vector<Finding> findings_;
};

}  // namespace rack
