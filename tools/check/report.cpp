#include "check/report.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <tuple>

namespace check {

namespace {

using nlohmann::json;

constexpr const char* kBold = "\033[1m";
constexpr const char* kRed = "\033[1;31m";
constexpr const char* kMagenta = "\033[1;35m";
constexpr const char* kPlain = "\033[0m";

std::string Coloured(const std::string& text, const char* colour, bool colours) {
  return colours ? colour + text + kPlain : text;
}

std::string RenderLine(const Finding& finding, bool colours) {
  const Rule& rule = RuleOf(finding.rule);
  const std::string place =
      finding.file + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) + ":";
  const char* colour = rule.level == Severity::Error ? kRed : kMagenta;
  return Coloured(place, kBold, colours) + " " +
         Coloured(std::string(SeverityName(rule.level)) + ":", colour, colours) + " " + finding.message +
         " [" + rule.name + "]\n";
}

std::string Counted(size_t count, const char* word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

size_t Count(const std::vector<Finding>& findings, Severity level) {
  return static_cast<size_t>(std::count_if(findings.begin(), findings.end(), [&](const Finding& finding) {
    return RuleOf(finding.rule).level == level;
  }));
}

std::string Summary(const std::vector<Finding>& findings) {
  if (findings.empty()) return "no findings\n";
  return Counted(Count(findings, Severity::Error), "error") + ", " +
         Counted(Count(findings, Severity::Warning), "warning") + "\n";
}

std::string RenderLines(const std::vector<Finding>& findings, bool colours) {
  std::string text;
  for (const Finding& finding : findings) text += RenderLine(finding, colours);
  return text;
}

// A file name may hold bytes that are no UTF-8; they are replaced.
std::string Dump(const json& document) {
  return document.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

json JsonDocument(const std::vector<Finding>& findings) {
  json list = json::array();
  for (const Finding& finding : findings) {
    const Rule& rule = RuleOf(finding.rule);
    list.push_back({{"file", finding.file},
                    {"line", finding.line},
                    {"column", finding.column},
                    {"severity", SeverityName(rule.level)},
                    {"rule", rule.name},
                    {"message", finding.message}});
  }
  return {{"findings", list},
          {"errors", Count(findings, Severity::Error)},
          {"warnings", Count(findings, Severity::Warning)}};
}

// A path as the reference of a URI.
std::string UriOf(const std::string& path) {
  constexpr std::string_view kUnreserved = "-._~/";
  constexpr const char* kHex = "0123456789ABCDEF";
  std::string uri = path.compare(0, 1, "/") == 0 ? "file://" : "";
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                         (byte >= 'a' && byte <= 'z') || kUnreserved.find(c) != kUnreserved.npos;
    if (isPlain) {
      uri += c;
    } else {
      uri += '%';
      uri += kHex[byte >> 4];
      uri += kHex[byte & 15];
    }
  }
  return uri;
}

json SarifRules() {
  json rules = json::array();
  for (const Rule& rule : Rules()) {
    rules.push_back({{"id", rule.name},
                     {"shortDescription", {{"text", rule.summary}}},
                     {"fullDescription", {{"text", rule.explanation}}},
                     {"help", {{"text", ExplainRule(rule)}, {"markdown", ExplainRule(rule)}}},
                     {"defaultConfiguration", {{"level", SeverityName(rule.level)}}}});
  }
  return rules;
}

json SarifResult(const Finding& finding) {
  const Rule& rule = RuleOf(finding.rule);
  const json region = {{"startLine", finding.line}, {"startColumn", finding.column}};
  const json place = {{"artifactLocation", {{"uri", UriOf(finding.file)}}}, {"region", region}};
  return {{"ruleId", rule.name},
          {"ruleIndex", static_cast<int>(finding.rule)},
          {"level", SeverityName(rule.level)},
          {"message", {{"text", finding.message}}},
          {"locations", json::array({{{"physicalLocation", place}}})}};
}

json SarifDocument(const std::vector<Finding>& findings) {
  json results = json::array();
  for (const Finding& finding : findings) results.push_back(SarifResult(finding));
  const json run = {{"tool", {{"driver", {{"name", "velmo-check"}, {"rules", SarifRules()}}}}},
                    {"columnKind", "unicodeCodePoints"},
                    {"results", results}};
  return {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
          {"version", "2.1.0"},
          {"runs", json::array({run})}};
}

auto SortKey(const Finding& finding) {
  return std::tie(finding.file, finding.line, finding.column, finding.rule);
}

}  // namespace

void Report::Add(const Program& program, const Line& line, int byte, RuleId rule,
                 const std::string& message) {
  if (std::find(line.ignored.begin(), line.ignored.end(), rule) != line.ignored.end()) return;
  Add(program.path, line.number, line.ColumnOf(byte), rule, message);
}

void Report::Add(const std::string& file, int line, int column, RuleId rule, const std::string& message) {
  findings_.push_back({file, line, column, rule, message});
}

std::vector<Finding> Report::Sorted() const {
  std::vector<Finding> sorted = findings_;
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Finding& a, const Finding& b) { return SortKey(a) < SortKey(b); });
  return sorted;
}

std::string DidYouMean(const std::string& word) {
  return word.empty() ? "" : "; did you mean \"" + word + "\"?";
}

std::string Render(const std::vector<Finding>& findings, Format format, bool colours) {
  switch (format) {
    case Format::Gcc:
      return RenderLines(findings, false);
    case Format::Sarif:
      return Dump(SarifDocument(findings));
    case Format::Json:
      return Dump(JsonDocument(findings));
    case Format::Text:
      break;
  }
  return RenderLines(findings, colours) + Summary(findings);
}

}  // namespace check
