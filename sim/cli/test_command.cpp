// velmo-rack test

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "cli/commands.h"
#include "machine/launch.h"
#include "scenario/report.h"
#include "scenario/run.h"
#include "scenario/scenario.h"

namespace rack::cli {

namespace {

namespace fs = std::filesystem;
using scenario::Outcome;
using scenario::RunPlaces;
using scenario::RunReport;
using scenario::Scenario;

using scenario::ScenarioResult;
using scenario::TapHead;
using scenario::TapOf;
using scenario::Verdict;

// The scenarios of a machine's directory stand in its folder "scenarios"; any other folder holds them itself.
std::string FilesOf(const std::string& path, std::vector<std::string>& files) {
  std::error_code error;
  if (!fs::exists(path, error)) return path + ": there is no such file or directory";
  if (!fs::is_directory(path, error)) {
    files.push_back(path);
    return "";
  }
  const fs::path own = fs::path(path) / "scenarios";
  const fs::path folder = fs::is_directory(own, error) ? own : fs::path(path);
  std::vector<std::string> found;
  for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    if (entry->path().extension() == ".toml") found.push_back(entry->path().string());
  }
  std::sort(found.begin(), found.end());
  files.insert(files.end(), found.begin(), found.end());
  return found.empty() ? folder.string() + ": there are no scenarios, files that end in .toml" : "";
}

bool Read(const std::vector<std::string>& files, std::vector<Scenario>& scenarios) {
  std::vector<std::string> errors;
  for (const std::string& file : files) {
    scenarios.emplace_back();
    ReadScenario(file, scenarios.back(), errors);
  }
  // A rack file that several scenarios share is wrong once.
  std::vector<std::string> told;
  for (const std::string& error : errors) {
    if (std::find(told.begin(), told.end(), error) != told.end()) continue;
    told.push_back(error);
    std::fprintf(stderr, "%s\n", error.c_str());
  }
  return errors.empty();
}

void Print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

// The status of a run of all scenarios.
int RunAll(const std::vector<Scenario>& scenarios, const RunPlaces& places,
           std::vector<ScenarioResult>& results) {
  std::size_t expectations = 0;
  for (const Scenario& scenario : scenarios) expectations += scenario.expectations.size();
  Print(TapHead(expectations));
  int status = kDone;
  std::size_t first = 1;
  for (const Scenario& scenario : scenarios) {
    RunReport report = RunScenario(scenario, places);
    if (report.stopped != 0) return 128 + report.stopped;
    if (!report.error.empty()) {
      Print("Bail out! " + scenario.path + ": " + report.error + "\n");
      return kFailed;
    }
    Print(TapOf(report.result, first));
    first += scenario.expectations.size();
    const bool failed =
        std::any_of(report.result.outcomes.begin(), report.result.outcomes.end(),
                    [](const Outcome& outcome) { return outcome.verdict == Verdict::Failed; });
    if (failed) status = kFailed;
    results.push_back(std::move(report.result));
  }
  return status;
}

}  // namespace

int Test(const TestOptions& options) {
  std::vector<std::string> files;
  for (const std::string& path : options.paths) {
    const std::string error = FilesOf(path, files);
    if (!error.empty()) return Complain(kWrongUse, error);
  }
  std::vector<Scenario> scenarios;
  scenarios.reserve(files.size());
  if (!Read(files, scenarios)) return kWrongUse;

  RunPlaces places;
  places.controller =
      Absolute(options.controller.empty() ? ProgramDirectory() + "/Velmo" : options.controller);
  places.library = LibraryPath();
  places.waveforms = ".";
  const std::string refusal = WhyNotStart(places.controller, places.library);
  if (!refusal.empty()) return Complain(kFailed, refusal);
  std::vector<ScenarioResult> results;
  const int status = RunAll(scenarios, places, results);
  if (options.junit.empty()) return status;
  std::ofstream file(options.junit);
  file << JunitOf(results);
  file.flush();
  return file ? status : Complain(kFailed, options.junit + ": could not be written");
}

}  // namespace rack::cli
