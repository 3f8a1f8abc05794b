// velmo-rack test
#pragma once

#include <string>
#include <vector>

namespace rack::scenario {

struct TestOptions {
  std::vector<std::string> paths;  // scenarios, or directories with them
  std::string junit;               // file that gets the results as JUnit XML, empty: none
  std::string controller;          // empty: Velmo beside this program
};

// Runs the scenarios and prints what became of them. The exit status: 0 all expectations are met, 1 some are
// not or a scenario could not be run, 2 a scenario is wrong and none was run.
int Test(const TestOptions& options);

}  // namespace rack::scenario
