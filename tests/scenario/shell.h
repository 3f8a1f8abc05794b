// Commands of a shell, as a person would type them, with the programs of this build in the path.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

// A folder of its own, where the commands run.
class Shell {
 public:
  Shell() {
    char name[] = "/tmp/velmo-shell-XXXXXX";
    EXPECT_NE(mkdtemp(name), nullptr);
    folder_ = name;
  }
  ~Shell() { std::filesystem::remove_all(folder_); }
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  // Everything that the command prints, on both outputs. Its exit status is in Status.
  std::string Run(const std::string& command) {
    const std::string line = "cd '" + (folder_ / below_).string() +
                             "' && export PATH='" VELMO_BUILD ":'\"$PATH\" && { " + kGone + command +
                             "\n} 2>&1";
    FILE* pipe = popen(line.c_str(), "r");
    if (pipe == nullptr) return "";
    std::string output;
    std::array<char, 4096> part{};
    for (std::size_t count; (count = fread(part.data(), 1, part.size(), pipe)) > 0;)
      output.append(part.data(), count);
    const int status = pclose(pipe);
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
    return output;
  }
  int Status() const { return status_; }
  // Later commands run in this folder below.
  void Enter(const std::string& below) { below_ = below; }

  const std::filesystem::path& Folder() const { return folder_; }

 private:
  // "gone PROCESS": it has ended. Nobody may have waited for it yet, which a signal to it does not tell.
  static constexpr const char* kGone = "gone() { ! grep -qs '^State:.[^ZX]' /proc/$1/status; }\n";

  std::filesystem::path folder_;
  std::filesystem::path below_;
  int status_ = 0;
};
