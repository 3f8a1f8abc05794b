// The examples of the program checker's rules as the files of a machine.
#pragma once

#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

struct ExampleFile {
  std::string path;  // in the machine's directory
  std::string text;
};

// Program lines alone are FLOW.PLC of task 1.
inline std::vector<ExampleFile> FilesOfExample(std::string example) {
  const std::regex more("\\(([0-9]+) more characters\\)");
  std::smatch match;
  while (std::regex_search(example, match, more)) {
    const auto at = static_cast<std::size_t>(match.position(0));
    example.replace(at, static_cast<std::size_t>(match.length(0)), std::string(std::stoul(match[1]), 'x'));
  }
  if (example.compare(0, 3, "== ") != 0) {
    example.insert(0, "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\n");
  }
  std::vector<ExampleFile> files;
  std::istringstream lines(example);
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 3, "== ") == 0) {
      files.push_back({line.substr(3), ""});
    } else {
      files.back().text += line + "\n";
    }
  }
  return files;
}
