// The pages that show commands with their output: the commands are executed and the output is compared.
//
// A fenced block marked "console" holds lines "$ COMMAND", each followed by what it prints; one marked "sh" holds commands
// that have to succeed, "COMMAND  # what it does". Any other fenced block is a file if the text before it ends with its
// name: `press/rack.toml`:
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <sstream>

#include "scenario/shell.h"

namespace {

namespace fs = std::filesystem;

// The name of the file that the next block holds, empty when it is none.
std::string FileNamed(const std::string& line) {
  if (line.size() < 4 || line.compare(line.size() - 2, 2, "`:") != 0) return "";
  const std::size_t begin = line.rfind('`', line.size() - 3);
  return begin == std::string::npos ? "" : line.substr(begin + 1, line.size() - begin - 3);
}

// Commands that go on until they are told to end. The one that runs the machine ends last: the others need it.
class LongCommands {
 public:
  explicit LongCommands(Shell& shell) : shell_(shell) {}
  ~LongCommands() {
    shell_.Run("kill $(cat " + Process() + ")" + kEventually + "eventually gone $(cat " + Process() + ")");
  }
  LongCommands(const LongCommands&) = delete;
  LongCommands& operator=(const LongCommands&) = delete;

  void Take(const std::string& command) {
    const bool runs = command.find(" run ") != std::string::npos;
    if (runs) {
      EXPECT_EQ(shell_.Run(command + " >machine.txt 2>&1 & echo $! >" + Process() + kEventually +
                           "eventually eval \"velmo-rack show --machine mymachine | tr '\\n' '_' | grep -q "
                           "'^running.*_task 1 .*PLC:'\""),
                "")
          << ReadText(shell_.Folder() / "machine.txt");
      return;
    }
    // Told when it waits for that.
    const std::string waits = "'^" + std::to_string(SYS_rt_sigtimedwait) + " '";
    shell_.Run(command + " >long.txt 2>&1 & long=$!" + kEventually + "eventually grep -qs " + waits +
               " /proc/$long/syscall; kill $long; wait $long");
    EXPECT_EQ(shell_.Status(), 0) << command;
  }

 private:
  static constexpr const char* kEventually =
      "\neventually() { for i in $(seq 1200); do \"$@\" && return; sleep 0.05; done; echo timed out; }\n";
  std::string Process() const { return "'" + (shell_.Folder() / "machine.process").string() + "'"; }

  Shell& shell_;
};

class Page {
 public:
  explicit Page(Shell& shell) : shell_(shell) {}

  void Follow(const std::string& text) {
    std::istringstream lines(text);
    std::string last;
    for (std::string line; std::getline(lines, line);) {
      if (line == "```sh") {
        TakeCommands(lines);
      } else if (line.rfind("```", 0) == 0) {
        TakeBlock(lines, line == "```console", FileNamed(last));
      } else if (!line.empty()) {
        last = line;
      }
    }
  }
  int Commands() const { return commands_; }

 private:
  void TakeBlock(std::istringstream& lines, bool console, const std::string& file) {
    std::string shown;
    std::string done;
    for (std::string line; std::getline(lines, line) && line != "```";) {
      shown += line + "\n";
      if (!console || line.rfind("$ ", 0) != 0) continue;
      ++commands_;
      done += line + "\n" + shell_.Run(line.substr(2));
    }
    if (console) {
      EXPECT_EQ(done, shown);
    }
    if (console || file.empty()) return;
    const fs::path path = shell_.Folder() / file;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << shown;
  }

  void TakeCommands(std::istringstream& lines) {
    LongCommands longOnes(shell_);
    for (std::string line; std::getline(lines, line) && line != "```";) {
      ++commands_;
      const std::string command = line.substr(0, line.find_last_not_of(' ', line.find('#') - 1) + 1);
      if (command.rfind("cd ", 0) == 0) {
        shell_.Enter(command.substr(3));
      } else if (line.find("until ") != std::string::npos) {
        longOnes.Take(command);
      } else {
        const std::string output = shell_.Run(command);
        EXPECT_EQ(shell_.Status(), 0) << command << "\n" << output;
      }
    }
    shell_.Enter("");
  }

  Shell& shell_;
  int commands_ = 0;
};

TEST(Documents, TestingPrograms) {
  Shell shell;
  Page page(shell);
  page.Follow(ReadText(VELMO_SOURCE "/docs/testing-programs.md"));
  EXPECT_EQ(page.Commands(), 10);
}

TEST(Documents, Readme) {
  Shell shell;
  fs::copy(VELMO_SOURCE "/demo", shell.Folder() / "demo", fs::copy_options::recursive);
  fs::create_directory_symlink(VELMO_BUILD, shell.Folder() / "build");
  Page page(shell);
  page.Follow(ReadText(VELMO_SOURCE "/README.md"));
  EXPECT_EQ(page.Commands(), 17);
}

TEST(Documents, EveryProgramTellsItsVersion) {
  Shell shell;
  for (const char* command :
       {"velmo-rack", "velmo-rack run", "velmo-rack key", "velmo-rack in", "velmo-rack show",
        "velmo-rack watch", "velmo-rack fault", "velmo-rack trace", "velmo-rack vcd", "velmo-rack test",
        "velmo-rack step", "velmo-rack until", "velmo-rack go", "velmo-rack new", "velmo-check"}) {
    const std::string program = std::string(command).substr(0, std::string(command).find(' '));
    EXPECT_EQ(shell.Run(std::string(command) + " --version"), program + " of Velmo 0.0.0.4\n") << command;
    EXPECT_EQ(shell.Status(), 0) << command;
  }
}

// A machine as velmo-rack new makes it: without a finding, and what a run leaves in it is no part of it.
TEST(Documents, NewMachineIsTestedAndItsRecordsAreIgnored) {
  Shell shell;
  shell.Run("velmo-rack new m");
  ASSERT_EQ(shell.Status(), 0);
  EXPECT_THAT(shell.Run("velmo-rack new m"), testing::HasSubstr("is there already: nothing was changed"));
  EXPECT_EQ(shell.Run("velmo-check m"), "no findings\n");
  shell.Run("velmo-rack test --library '" VELMO_BUILD "/libvelmo-rack.so' m");
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(shell.Run("velmo-rack test --library none.so m"), testing::HasSubstr("none.so"));
  EXPECT_NE(shell.Status(), 0);
  shell.Run("velmo-rack run --time virtual --for 2s m");
  EXPECT_EQ(shell.Run("grep -cx '/.velmo-rack/' m/.gitignore; ls -A m"),
            "1\n.gitignore\n.velmo-rack\nVelmo.conf\nplc1\nplc2\nrack.toml\nscenarios\n");
  // A drill that stays up is seen by the scenario.
  shell.Run("sed -i '/drill down/d' m/plc1/FLOW.PLC && velmo-rack test m");
  EXPECT_EQ(shell.Status(), 1);
}

}  // namespace
