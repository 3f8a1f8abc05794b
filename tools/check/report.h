// Findings, and how they are written.
#pragma once

#include <string>
#include <vector>

#include "check/program.h"
#include "check/rules.h"
#include "toml/characters.h"

namespace check {

// Columns are counted from 1, in characters.
struct Finding {
  std::string file;
  int line;  // counted from 1; 1 for a finding about the file as a whole
  int column;
  RuleId rule;
  std::string message;
  int endColumn = 0;       // behind the word that the finding is about; 0: it is about no word
  Columns utf16 = {};      // both columns in units of UTF-16; 0: as above
  std::string text = {};   // of the line, by which the finding is known again when the file changes
  std::string opens = {};  // the file to look into where `file` is a directory; empty: `file`
};

class Report {
 public:
  // About a byte of the line's text, unless the line silences the rule.
  void Add(const Program& program, const Line& line, int byte, RuleId rule, const std::string& message);
  void Add(const std::string& file, int line, int column, RuleId rule, const std::string& message);
  // About a byte of the line with that number.
  void Add(const std::string& file, int number, const std::string& line, size_t byte, RuleId rule,
           const std::string& message);
  // About a directory; `opens` is a file that has to do with it.
  void AddAboutDirectory(const std::string& directory, const std::string& opens, RuleId rule,
                         const std::string& message);

  // In the order of files, lines and columns.
  std::vector<Finding> Sorted() const;

 private:
  std::vector<Finding> findings_;
};

// "; did you mean X?" or nothing.
std::string DidYouMean(const std::string& word);

using rack::Printable;

enum class Format { Text, Gcc, Sarif, Json };

// What an output says beside the findings, and how.
struct OutputNotes {
  bool warningsAreErrors = false;
  bool utf16 = false;              // columns in units of UTF-16
  std::vector<std::string> racks;  // the rack files that were read
};

// The whole output for one format; colours in Text only.
std::string Render(const std::vector<Finding>& findings, Format format, bool colours,
                   const OutputNotes& notes = {});

}  // namespace check
