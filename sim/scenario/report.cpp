#include "scenario/report.h"

#include <algorithm>
#include <cstdio>

namespace rack::scenario {

namespace {

bool IsControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

std::string Printable(std::string text) {
  std::replace_if(text.begin(), text.end(), IsControl, '?');
  return text;
}

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

std::string XmlText(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += IsControl(c) && c != '\n' ? '?' : c;
    }
  }
  return escaped;
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
  if (!result.waveform.empty()) text += "  waveform: " + YamlText(result.waveform) + "\n";
  if (!outcome.story.empty()) text += "  happened: |2\n";
  for (const std::string& line : outcome.story) text += "    " + Printable(line) + "\n";
  return text + "  ...\n";
}

std::string TestCase(const ScenarioResult& result, const Expectation& expectation, const Outcome& outcome) {
  std::string text = "    <testcase classname=\"" + XmlText(result.scenario->name) + "\" name=\"" +
                     XmlText(expectation.text) + "\" file=\"" + XmlText(result.scenario->path) +
                     "\" line=\"" + std::to_string(expectation.line) + "\" time=\"" + Seconds(outcome.time) +
                     "\"";
  if (outcome.verdict != Verdict::Failed) return text + "/>\n";
  text += ">\n      <failure message=\"" + XmlText(outcome.message) + "\">" +
          XmlText(Place(result, expectation)) + "\n";
  for (const std::string& line : outcome.story) text += XmlText(line) + "\n";
  return text + "</failure>\n    </testcase>\n";
}

}  // namespace

std::string TapHead(std::size_t expectations) {
  return "TAP version 13\n1.." + std::to_string(expectations) + "\n";
}

std::string TapOf(const ScenarioResult& result, std::size_t first) {
  const Scenario& scenario = *result.scenario;
  std::string text = "# " + Printable(scenario.path) + ", " + Seconds(result.end) + " s of the machine\n";
  for (std::size_t i = 0; i < scenario.expectations.size(); ++i) {
    const Expectation& expectation = scenario.expectations[i];
    const bool failed = result.outcomes[i].verdict == Verdict::Failed;
    text += std::string(failed ? "not ok " : "ok ") + std::to_string(first + i) + " - " +
            Description(scenario.name + ": " + expectation.text) + "\n";
    if (failed) text += Diagnosis(result, expectation, result.outcomes[i]);
  }
  return text;
}

std::string JunitOf(const std::vector<ScenarioResult>& results) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
  for (const ScenarioResult& result : results) {
    const Scenario& scenario = *result.scenario;
    const auto failures =
        std::count_if(result.outcomes.begin(), result.outcomes.end(),
                      [](const Outcome& outcome) { return outcome.verdict == Verdict::Failed; });
    text += "  <testsuite name=\"" + XmlText(scenario.name) + "\" tests=\"" +
            std::to_string(scenario.expectations.size()) + "\" failures=\"" + std::to_string(failures) +
            "\" errors=\"0\" skipped=\"0\" time=\"" + Seconds(result.end) + "\">\n";
    for (std::size_t i = 0; i < scenario.expectations.size(); ++i) {
      text += TestCase(result, scenario.expectations[i], result.outcomes[i]);
    }
    text += "  </testsuite>\n";
  }
  return text + "</testsuites>\n";
}

}  // namespace rack::scenario
