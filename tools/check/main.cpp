// velmo-check: finds what the controller would misread in a machine's programs.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "check/check.h"
#include "public.h"
#include "toml/words.h"

namespace {

constexpr int kClean = 0;
constexpr int kFindings = 1;
constexpr int kCouldNotRun = 2;

constexpr const char* kFooter =
    "Exit status: 0 no findings, 1 findings, 2 could not run.\n"
    "A comment \"; check: ignore RULE, RULE\" silences rules in its line.\n"
    "Examples:\n"
    "  velmo-check demo/cell\n"
    "  velmo-check --format gcc plc1/FLOW.PLC\n"
    "  velmo-check --explain missing-label\n"
    "  velmo-check --graph demo/cell | dot -Tsvg -o cell.svg\n";

struct Options {
  std::vector<std::string> paths;
  std::string rackFile;
  std::string explained;
  std::string drawn;
  std::string format = "text";
  std::string columns = "characters";
  std::vector<std::string> ignored;
  bool errorsOnly = false;
  bool warningsAsErrors = false;
  bool listRules = false;
};

check::Format FormatOf(const std::string& name) {
  if (name == "gcc") return check::Format::Gcc;
  if (name == "sarif") return check::Format::Sarif;
  return name == "json" ? check::Format::Json : check::Format::Text;
}

// Null when there is none; it has been complained about then.
const check::Rule* RuleNamed(const std::string& name) {
  const check::Rule* rule = check::FindRule(name);
  if (rule == nullptr) {
    std::cerr << "velmo-check: there is no rule \"" << check::Printable(name) << "\""
              << check::DidYouMean(rack::Nearest(name, check::RuleNames())) << "\n";
  }
  return rule;
}

int Explain(const std::string& name) {
  const check::Rule* rule = RuleNamed(name);
  if (rule == nullptr) return kCouldNotRun;
  std::cout << check::ExplainRule(*rule);
  return kClean;
}

bool IsSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

bool WantsColours() {
  const char* terminal = std::getenv("TERM");
  const bool isDumb = terminal != nullptr && std::string_view(terminal) == "dumb";
  return isatty(STDOUT_FILENO) != 0 && !isDumb && !IsSet("NO_COLOR");
}

int Unwritten() {
  std::cerr << "velmo-check: the output could not be written\n";
  return kCouldNotRun;
}

int Draw(const Options& options) {
  std::string error;
  const std::optional<std::string> graph = check::GraphOfPath(options.drawn, options.rackFile, &error);
  if (!graph) {
    std::cerr << "velmo-check: " << error;
    return kCouldNotRun;
  }
  std::cout << *graph << std::flush;
  return std::cout ? kClean : Unwritten();
}

int Check(const Options& options) {
  check::Selection selection{options.errorsOnly, options.warningsAsErrors, {}};
  for (const std::string& name : options.ignored) {
    const check::Rule* rule = RuleNamed(name);
    if (rule == nullptr) return kCouldNotRun;
    selection.ignored.push_back(rule->id);
  }
  std::string error;
  const auto checked = check::CheckPaths(options.paths, options.rackFile, &error);
  if (!checked) {
    if (!error.empty() && error.back() == '\n') error.pop_back();
    std::cerr << "velmo-check: " << check::Printable(error) << "\n";
    return kCouldNotRun;
  }
  for (const std::string& note : checked->notes) {
    std::cerr << "velmo-check: " << check::Printable(note) << "\n";
  }
  const std::vector<check::Finding> shown = check::Selected(checked->findings, selection);
  const check::OutputNotes notes{options.warningsAsErrors, options.columns == "utf16", checked->racks};
  std::cout << check::Render(shown, FormatOf(options.format), WantsColours(), notes) << std::flush;
  if (!std::cout) return Unwritten();
  return shown.empty() ? kClean : kFindings;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Finds what the controller would misread in a machine's programs.", "velmo-check");
  app.footer(kFooter);
  app.set_version_flag("--version", std::string("velmo-check of Velmo ") + SOFTVERSION);
  app.add_option("PATH", options.paths, "a machine's directory, a task's directory, or a program file");
  app.add_option("--rack", options.rackFile,
                 "rack file; \"rack.toml\" in the machine's directory unless given");
  app.add_option("--format", options.format, "text, gcc, sarif or json")
      ->check(CLI::IsMember({"text", "gcc", "sarif", "json"}))
      ->type_name("FORMAT");
  app.add_option("--columns", options.columns,
                 "count columns in characters or utf16, units of UTF-16 as many editors do")
      ->check(CLI::IsMember({"characters", "utf16"}))
      ->type_name("UNIT");
  app.add_flag("--errors-only", options.errorsOnly, "leave out the warnings");
  app.add_flag("--warnings-as-errors", options.warningsAsErrors, "show warnings as errors");
  app.add_option("--ignore", options.ignored, "leave out a rule; may be given several times")
      ->type_name("RULE")
      ->allow_extra_args(false);
  app.add_option("--explain", options.explained, "explain a rule, with a wrong and a right example")
      ->type_name("RULE");
  app.add_option("--graph", options.drawn, "draw the flow of a machine's directory, for Graphviz's dot")
      ->type_name("DIR");
  app.add_flag("--list-rules", options.listRules, "list all rules");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kClean : kCouldNotRun;
  }
  if (options.listRules) {
    std::cout << check::ListRules();
    return kClean;
  }
  if (!options.explained.empty()) return Explain(options.explained);
  if (!options.drawn.empty()) return Draw(options);
  if (options.paths.empty()) {
    std::cerr << "velmo-check: name a machine's directory or a program file (--help)\n";
    return kCouldNotRun;
  }
  return Check(options);
}
