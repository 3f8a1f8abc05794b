// velmo-check: finds what the controller would misread in a machine's programs.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "check/check.h"
#include "toml/words.h"

namespace {

constexpr int kClean = 0;
constexpr int kFindings = 1;
constexpr int kCouldNotRun = 2;

constexpr const char* kFooter =
    "Exit status: 0 no findings, 1 findings, 2 could not run.\n"
    "A comment \"; check: ignore RULE\" silences one rule in its line.\n"
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
  bool listRules = false;
};

check::Format FormatOf(const std::string& name) {
  if (name == "gcc") return check::Format::Gcc;
  if (name == "sarif") return check::Format::Sarif;
  return name == "json" ? check::Format::Json : check::Format::Text;
}

int Explain(const std::string& name) {
  const check::Rule* rule = check::FindRule(name);
  if (rule == nullptr) {
    std::cerr << "velmo-check: there is no rule \"" << name << "\""
              << check::DidYouMean(rack::Nearest(name, check::RuleNames())) << "\n";
    return kCouldNotRun;
  }
  std::cout << check::ExplainRule(*rule);
  return kClean;
}

int Draw(const Options& options) {
  std::string error;
  const std::optional<std::string> graph = check::GraphOfPath(options.drawn, options.rackFile, &error);
  if (!graph) {
    std::cerr << "velmo-check: " << error;
    return kCouldNotRun;
  }
  std::cout << *graph << std::flush;
  return std::cout ? kClean : kCouldNotRun;
}

int Check(const Options& options) {
  std::vector<check::Finding> findings;
  std::vector<std::string> notes;
  for (const std::string& path : options.paths) {
    std::string error;
    const auto found = check::CheckPath(path, options.rackFile, &error, &notes);
    if (!found) {
      std::cerr << "velmo-check: " << error;
      return kCouldNotRun;
    }
    findings.insert(findings.end(), found->begin(), found->end());
  }
  for (const std::string& note : notes) std::cerr << "velmo-check: " << note << "\n";
  std::cout << check::Render(findings, FormatOf(options.format), isatty(STDOUT_FILENO) != 0) << std::flush;
  if (!std::cout) return kCouldNotRun;
  return findings.empty() ? kClean : kFindings;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Finds what the controller would misread in a machine's programs.", "velmo-check");
  app.footer(kFooter);
  app.add_option("PATH", options.paths, "a machine's directory, or a program file");
  app.add_option("--rack", options.rackFile,
                 "rack file; \"rack.toml\" in the machine's directory unless given");
  app.add_option("--format", options.format, "text, gcc, sarif or json")
      ->check(CLI::IsMember({"text", "gcc", "sarif", "json"}))
      ->type_name("FORMAT");
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
