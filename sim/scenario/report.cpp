#include "scenario/report.h"

#include <algorithm>
#include <cstdio>
#include <pugixml.hpp>
#include <sstream>

#include "toml/characters.h"

namespace rack::scenario {

namespace {

constexpr const char* kXmlIndent = "  ";

// In a test's description a number sign would begin a directive.
std::string Description(const std::string& text) {
  std::string escaped;
  for (const char c : Printable(text)) {
    if (c == '#' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string YamlText(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : Printable(text)) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

// No line of it begins with a blank: readers take the indent of the block from its first one.
std::string YamlBlock(const char* word, const std::vector<std::string>& lines) {
  if (lines.empty()) return "";
  std::string text = std::string("  ") + word + ": |\n";
  for (const std::string& line : lines) text += "    " + Printable(line) + "\n";
  return text;
}

std::string Place(const ScenarioResult& result, const Expectation& expectation) {
  return result.scenario->path + ":" + std::to_string(expectation.line);
}

std::string Seconds(Nanos time) {
  char text[40];
  std::snprintf(text, sizeof text, "%.3f", static_cast<double>(time) / 1e9);
  return text;
}

std::string Diagnosis(const ScenarioResult& result, const Expectation& expectation, const Outcome& outcome) {
  std::string text = "  ---\n  message: " + YamlText(outcome.message) +
                     "\n  at: " + YamlText(Place(result, expectation)) + "\n";
  text += YamlBlock("tasks", outcome.tasks);
  if (!result.waveform.empty()) text += "  waveform: " + YamlText(result.waveform) + "\n";
  return text + YamlBlock("happened", outcome.story) + "  ...\n";
}

void AddAttribute(pugi::xml_node& node, const char* name, const std::string& value) {
  node.append_attribute(name).set_value(Printable(value).c_str());
}

void AddTestCase(pugi::xml_node& suite, const ScenarioResult& result, std::size_t index) {
  const Expectation& expectation = result.scenario->expectations[index];
  const Outcome& outcome = result.outcomes[index];
  pugi::xml_node test = suite.append_child("testcase");
  AddAttribute(test, "classname", result.scenario->name);
  AddAttribute(test, "name", expectation.text);
  AddAttribute(test, "file", result.scenario->path);
  AddAttribute(test, "line", std::to_string(expectation.line));
  AddAttribute(test, "time", Seconds(outcome.time));
  if (outcome.verdict != Verdict::Failed) return;
  pugi::xml_node failure = test.append_child(result.error.empty() ? "failure" : "error");
  AddAttribute(failure, "message", outcome.message);
  std::string text = Place(result, expectation) + "\n";
  for (const std::string& line : outcome.tasks) text += line + "\n";
  for (const std::string& line : outcome.story) text += line + "\n";
  failure.append_child(pugi::node_pcdata).set_value(PrintableLines(text).c_str());
}

std::string TextOf(const pugi::xml_document& document) {
  std::ostringstream text;
  document.save(text, kXmlIndent, pugi::format_indent, pugi::encoding_utf8);
  return text.str();
}

}  // namespace

bool HasFailed(const ScenarioResult& result) {
  return std::any_of(result.outcomes.begin(), result.outcomes.end(),
                     [](const Outcome& outcome) { return outcome.verdict == Verdict::Failed; });
}

ScenarioResult ErrorOf(const Scenario& scenario, const std::string& error, Nanos end) {
  ScenarioResult result;
  result.scenario = &scenario;
  result.error = error;
  result.end = end;
  result.outcomes.assign(scenario.expectations.size(), {Verdict::Failed, end, error, {}, {}});
  return result;
}

std::string TapHead(std::size_t expectations) {
  return "TAP version 13\n1.." + std::to_string(expectations) + "\n";
}

std::string TapOf(const ScenarioResult& result, std::size_t first) {
  const Scenario& scenario = *result.scenario;
  std::string text = "# " + Printable(scenario.path) + ", " + Seconds(result.end) + " s of the machine\n";
  for (const std::string& note : result.notes) text += "# " + Printable(note) + "\n";
  for (std::size_t i = 0; i < scenario.expectations.size(); ++i) {
    const Expectation& expectation = scenario.expectations[i];
    const bool failed = result.outcomes[i].verdict == Verdict::Failed;
    text += std::string(failed ? "not ok " : "ok ") + std::to_string(first + i) + " - " +
            Description(scenario.name + ": " + expectation.text) + "\n";
    if (failed) text += Diagnosis(result, expectation, result.outcomes[i]);
  }
  return text;
}

std::string SuiteOf(const ScenarioResult& result) {
  const Scenario& scenario = *result.scenario;
  const auto failed =
      std::count_if(result.outcomes.begin(), result.outcomes.end(),
                    [](const Outcome& outcome) { return outcome.verdict == Verdict::Failed; });
  const bool error = !result.error.empty();
  pugi::xml_document document;
  pugi::xml_node suite = document.append_child("testsuite");
  AddAttribute(suite, "name", scenario.name);
  AddAttribute(suite, "tests", std::to_string(scenario.expectations.size()));
  AddAttribute(suite, "failures", std::to_string(error ? 0 : failed));
  AddAttribute(suite, "errors", std::to_string(error ? failed : 0));
  AddAttribute(suite, "skipped", "0");
  AddAttribute(suite, "time", Seconds(result.end));
  for (std::size_t i = 0; i < scenario.expectations.size(); ++i) AddTestCase(suite, result, i);
  std::string notes;
  for (const std::string& note : result.notes) notes += note + "\n";
  if (!notes.empty()) {
    suite.append_child("system-out").append_child(pugi::node_pcdata).set_value(PrintableLines(notes).c_str());
  }
  return TextOf(document);
}

std::string JunitOf(const std::vector<std::string>& suites) {
  pugi::xml_document document;
  pugi::xml_node head = document.append_child(pugi::node_declaration);
  AddAttribute(head, "version", "1.0");
  AddAttribute(head, "encoding", "UTF-8");
  pugi::xml_node root = document.append_child("testsuites");
  for (const std::string& suite : suites) {
    root.append_buffer(suite.data(), suite.size(), pugi::parse_default | pugi::parse_ws_pcdata_single);
  }
  return TextOf(document);
}

}  // namespace rack::scenario
