// What the checker finds in a machine.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "check/check.h"

inline std::string ReadText(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// The findings of a machine, files relative to its directory.
inline std::vector<check::Finding> FindingsOf(const std::filesystem::path& machine) {
  std::string error;
  auto findings = check::CheckPath(machine, "", &error);
  EXPECT_EQ(error, "");
  if (!findings) return {};
  for (check::Finding& finding : *findings) {
    finding.file = std::filesystem::path(finding.file).lexically_relative(machine).string();
  }
  return *findings;
}

// "file:line rule" of each finding.
inline std::vector<std::string> Found(const std::filesystem::path& machine) {
  std::vector<std::string> found;
  for (const check::Finding& finding : FindingsOf(machine)) {
    found.push_back(finding.file + ":" + std::to_string(finding.line) + " " +
                    check::RuleOf(finding.rule).name);
  }
  return found;
}
