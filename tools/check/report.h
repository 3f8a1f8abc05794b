// Findings, and how they are written.
#pragma once

#include <string>
#include <vector>

#include "check/program.h"
#include "check/rules.h"

namespace check {

struct Finding {
  std::string file;
  int line;    // counted from 1; 1 for a finding about the file as a whole
  int column;  // counted from 1, in characters
  RuleId rule;
  std::string message;
};

class Report {
 public:
  // About a byte of the line's text, unless the line silences the rule.
  void Add(const Program& program, const Line& line, int byte, RuleId rule, const std::string& message);
  void Add(const std::string& file, int line, int column, RuleId rule, const std::string& message);

  // In the order of files, lines and columns.
  std::vector<Finding> Sorted() const;

 private:
  std::vector<Finding> findings_;
};

// "; did you mean X?" or nothing.
std::string DidYouMean(const std::string& word);

enum class Format { Text, Gcc, Sarif, Json };

// The whole output for one format; colours in Text only.
std::string Render(const std::vector<Finding>& findings, Format format, bool colours);

}  // namespace check
