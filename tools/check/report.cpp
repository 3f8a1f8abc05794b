#include "check/report.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <iomanip>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>
#include <tuple>

#include "check/characters.h"
#include "public.h"

namespace check {

namespace {

using nlohmann::json;

namespace fs = std::filesystem;

constexpr const char* kBold = "\033[1m";
constexpr const char* kRed = "\033[1;31m";
constexpr const char* kMagenta = "\033[1;35m";
constexpr const char* kPlain = "\033[0m";
constexpr const char* kHexOfUris = "0123456789ABCDEF";

Severity LevelOf(const Finding& finding, const OutputNotes& notes) {
  return notes.warningsAreErrors ? Severity::Error : RuleOf(finding.rule).level;
}

int ColumnOf(const Finding& finding, const OutputNotes& notes) {
  return notes.utf16 && finding.utf16.first > 0 ? finding.utf16.first : finding.column;
}

int EndColumnOf(const Finding& finding, const OutputNotes& notes) {
  return notes.utf16 && finding.utf16.behind > 0 ? finding.utf16.behind : finding.endColumn;
}

std::string Coloured(const std::string& text, const char* colour, bool colours) {
  return colours ? colour + text + kPlain : text;
}

std::string RenderLine(const Finding& finding, bool colours, const OutputNotes& notes) {
  const Severity level = LevelOf(finding, notes);
  const std::string place = Printable(finding.file) + ":" + std::to_string(finding.line) + ":" +
                            std::to_string(ColumnOf(finding, notes)) + ":";
  const char* colour = level == Severity::Error ? kRed : kMagenta;
  return Coloured(place, kBold, colours) + " " +
         Coloured(std::string(SeverityName(level)) + ":", colour, colours) + " " +
         Printable(finding.message) + " [" + RuleOf(finding.rule).name + "]\n";
}

std::string Counted(size_t count, const char* word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

size_t Count(const std::vector<Finding>& findings, Severity level, const OutputNotes& notes) {
  return static_cast<size_t>(std::count_if(findings.begin(), findings.end(), [&](const Finding& finding) {
    return LevelOf(finding, notes) == level;
  }));
}

std::string Summary(const std::vector<Finding>& findings, const OutputNotes& notes) {
  if (findings.empty()) return "no findings\n";
  return Counted(Count(findings, Severity::Error, notes), "error") + ", " +
         Counted(Count(findings, Severity::Warning, notes), "warning") + "\n";
}

std::string RenderLines(const std::vector<Finding>& findings, bool colours, const OutputNotes& notes) {
  std::string text;
  for (const Finding& finding : findings) text += RenderLine(finding, colours, notes);
  return text;
}

// A file name may hold bytes that are no UTF-8; they are replaced.
std::string Dump(const json& document) {
  return document.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

// One rack file by its name, several as a list, none as null.
json RacksOf(const OutputNotes& notes) {
  if (notes.racks.empty()) return nullptr;
  return notes.racks.size() == 1 ? json(notes.racks.front()) : json(notes.racks);
}

json JsonDocument(const std::vector<Finding>& findings, const OutputNotes& notes) {
  json list = json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"file", finding.file},
                    {"line", finding.line},
                    {"column", ColumnOf(finding, notes)},
                    {"severity", SeverityName(LevelOf(finding, notes))},
                    {"rule", RuleOf(finding.rule).name},
                    {"message", finding.message}});
  }
  return {{"version", SOFTVERSION},
          {"rack", RacksOf(notes)},
          {"findings", list},
          {"errors", Count(findings, Severity::Error, notes)},
          {"warnings", Count(findings, Severity::Warning, notes)}};
}

// A path as the path of a URI.
std::string UriPath(const std::string& path) {
  constexpr std::string_view kUnreserved = "-._~/";
  std::string uri;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                         (byte >= 'a' && byte <= 'z') || kUnreserved.find(c) != kUnreserved.npos;
    if (isPlain) {
      uri += c;
    } else {
      uri += '%';
      uri += kHexOfUris[byte >> 4];
      uri += kHexOfUris[byte & 15];
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

// The working directory, which paths are relative to where they can be.
constexpr const char* kRootName = "SRCROOT";

fs::path WorkingDirectory() {
  std::error_code ignored;
  return fs::current_path(ignored);
}

json ArtifactLocation(const std::string& path) {
  const fs::path whole = (WorkingDirectory() / path).lexically_normal();
  const fs::path below = whole.lexically_relative(WorkingDirectory());
  if (below.empty() || *below.begin() == "..") return {{"uri", "file://" + UriPath(whole.string())}};
  return {{"uri", UriPath(below.string())}, {"uriBaseId", kRootName}};
}

// FNV-1a in 64 bits: the same on every computer.
std::string HashOf(const std::string& text) {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
  std::ostringstream digits;
  digits << std::hex << std::setw(16) << std::setfill('0') << hash;
  return digits.str();
}

class SarifWriter {
 public:
  explicit SarifWriter(const OutputNotes& notes) : notes_(notes) {}

  json Document(const std::vector<Finding>& findings) {
    json results = json::array();
    for (const Finding& finding : findings) results.push_back(Result(finding));
    const json driver = {{"name", "velmo-check"},
                         {"version", SOFTVERSION},
                         {"informationUri", std::string("file://") + UriPath(VELMO_RULES_PAGE)},
                         {"rules", SarifRules()}};
    const json root = {{"uri", "file://" + UriPath((WorkingDirectory() / "").string())}};
    const json run = {{"tool", {{"driver", driver}}},
                      {"originalUriBaseIds", {{kRootName, root}}},
                      {"columnKind", notes_.utf16 ? "utf16CodeUnits" : "unicodeCodePoints"},
                      {"results", results}};
    return {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
            {"version", "2.1.0"},
            {"runs", json::array({run})}};
  }

 private:
  json Result(const Finding& finding) {
    const Rule& rule = RuleOf(finding.rule);
    json region = {{"startLine", finding.line}, {"startColumn", ColumnOf(finding, notes_)}};
    const int behind = EndColumnOf(finding, notes_);
    if (behind > 0) region["endColumn"] = behind;
    const std::string& opens = finding.opens.empty() ? finding.file : finding.opens;
    const json place = {{"artifactLocation", ArtifactLocation(opens)}, {"region", region}};
    return {{"ruleId", rule.name},
            {"ruleIndex", static_cast<int>(finding.rule)},
            {"level", SeverityName(LevelOf(finding, notes_))},
            {"message", {{"text", finding.message}}},
            {"locations", json::array({{{"physicalLocation", place}}})},
            {"partialFingerprints", {{"velmoCheck/v1", FingerprintOf(finding, place["artifactLocation"])}}}};
  }

  // Of the file, the rule and the line's text, not of the line's number: a finding stays the same when lines come
  // and go above it. Equal ones are counted.
  std::string FingerprintOf(const Finding& finding, const json& artifact) {
    const std::string known =
        artifact["uri"].get<std::string>() + "\n" + RuleOf(finding.rule).name + "\n" + finding.text;
    return HashOf(known + "\n" + std::to_string(++equal_[known]));
  }

  const OutputNotes& notes_;
  std::map<std::string, int> equal_;
};

auto SortKey(const Finding& finding) {
  return std::tie(finding.file, finding.line, finding.column, finding.rule);
}

}  // namespace

void Report::Add(const Program& program, const Line& line, int byte, RuleId rule,
                 const std::string& message) {
  if (std::find(line.ignored.begin(), line.ignored.end(), rule) != line.ignored.end()) return;
  const Columns columns = line.CharactersOf(byte);
  findings_.push_back({program.path, line.number, columns.first, rule, message, columns.behind,
                       line.Utf16Of(byte), line.text, ""});
}

void Report::Add(const std::string& file, int line, int column, RuleId rule, const std::string& message) {
  findings_.push_back({file, line, column, rule, message});
}

void Report::Add(const std::string& file, int number, const std::string& line, size_t byte, RuleId rule,
                 const std::string& message) {
  const Columns columns = CharactersAt(line, byte);
  findings_.push_back(
      {file, number, columns.first, rule, message, columns.behind, Utf16At(line, byte), line, ""});
}

void Report::AddAboutDirectory(const std::string& directory, const std::string& opens, RuleId rule,
                               const std::string& message) {
  Finding finding{directory, 1, 1, rule, message};
  finding.opens = opens;
  findings_.push_back(finding);
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

std::string Render(const std::vector<Finding>& findings, Format format, bool colours,
                   const OutputNotes& notes) {
  switch (format) {
    case Format::Gcc:
      return RenderLines(findings, false, notes);
    case Format::Sarif:
      return Dump(SarifWriter(notes).Document(findings));
    case Format::Json:
      return Dump(JsonDocument(findings, notes));
    case Format::Text:
      break;
  }
  return RenderLines(findings, colours, notes) + Summary(findings, notes);
}

}  // namespace check
