// velmo-rack test

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "cli/commands.h"
#include "machine/launch.h"
#include "scenario/report.h"
#include "scenario/scenario.h"
#include "scenario/suite.h"
#include "toml/characters.h"

namespace rack::cli {

namespace {

namespace fs = std::filesystem;
using scenario::Scenario;

// The scenarios of a machine's directory stand in its folder "scenarios"; any other folder holds them itself.
std::string FilesOf(const std::string& path, std::vector<std::string>& files) {
  std::error_code error;
  if (!fs::exists(path, error)) return path + ": there is no such file or directory";
  if (!fs::is_directory(path, error)) {
    files.push_back(path);
    return "";
  }
  const fs::path own = fs::path(path) / "scenarios";
  const bool machine = fs::exists(fs::path(path) / "rack.toml", error);
  if (machine && !fs::is_directory(own, error)) {
    return path +
           ": this machine has no scenarios: they stand in its folder \"scenarios\", files that end in .toml";
  }
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
    std::fprintf(stderr, "%s\n", Printable(error).c_str());
  }
  return errors.empty();
}

void Print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace

int Test(const TestOptions& options) {
  std::vector<std::string> files;
  for (const std::string& path : options.paths) {
    const std::string error = FilesOf(path, files);
    if (!error.empty()) return Complain(kWrongUse, error);
  }
  const auto isLeftOut = [&](const std::string& file) {
    return file.find(options.filter) == std::string::npos;
  };
  files.erase(std::remove_if(files.begin(), files.end(), isLeftOut), files.end());
  if (files.empty()) return Complain(kWrongUse, "no scenario has \"" + options.filter + "\" in its name");
  std::vector<Scenario> scenarios;
  scenarios.reserve(files.size());
  if (!Read(files, scenarios)) return kWrongUse;

  scenario::SuiteOptions suite;
  suite.jobs = options.jobs;
  suite.places = {Absolute(options.controller.empty() ? ProgramDirectory() + "/Velmo" : options.controller),
                  options.library.empty() ? LibraryPath() : Absolute(options.library), ".",
                  options.keepWaveforms};
  const std::string refusal = WhyNotStart(suite.places.controller, suite.places.library);
  if (!refusal.empty()) return Complain(kFailed, refusal);
  std::size_t expectations = 0;
  for (const Scenario& each : scenarios) expectations += each.expectations.size();
  Print(scenario::TapHead(expectations));
  const scenario::SuiteEnd end = RunSuite(scenarios, suite, Print);
  if (end.stopped != 0) return 128 + end.stopped;
  const int status = end.failed ? kFailed : kDone;
  if (options.junit.empty()) return status;
  std::ofstream file(options.junit);
  file << scenario::JunitOf(end.junit);
  file.flush();
  return file ? status : Complain(kFailed, options.junit + ": could not be written");
}

}  // namespace rack::cli
