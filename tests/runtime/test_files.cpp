#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>

#include "drvlib.h"
#include "support/capture.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;
using Files = ScratchTest;

TEST_F(Files, CarriageReturnsBecomeLineFeedsAcrossPieces) {
  Capture console(STDOUT_FILENO);
  const std::string before = std::string(999, 'a') + "\r\nb\r" + std::string(1000, 'c') + "\n";
  const std::string after = std::string(999, 'a') + "\n\nb\n" + std::string(1000, 'c') + "\n";
  Write("run.sh", before);
  fs::permissions("run.sh", fs::perms::owner_all);
  EXPECT_EQ(CnvDos2UnixFile("run.sh"), 1);
  EXPECT_EQ(Read("run.sh"), after);
  EXPECT_EQ(fs::status("run.sh").permissions(), fs::perms::owner_all);
  EXPECT_FALSE(fs::exists("tmp.txt"));
  EXPECT_EQ(console.Text(), "Prcessing System file run.sh....\nPrcessing finished\n\n");

  Write("empty", "");
  EXPECT_EQ(CnvDos2UnixFile("empty"), 1);
  EXPECT_EQ(Read("empty"), "");
  EXPECT_EQ(console.Text(), "Prcessing System file empty....\nPrcessing finished\n\n");

  EXPECT_EQ(CnvDos2UnixFile("missing"), 0);
  fs::create_directory("tmp.txt");
  EXPECT_EQ(CnvDos2UnixFile("run.sh"), 0);
  EXPECT_EQ(Read("run.sh"), after);
  EXPECT_EQ(console.Text(), "");
}

TEST_F(Files, CopyKeepsTheModeOfItsDestination) {
  const std::string text = std::string(3000, 'x') + std::string(1, '\0') + "\r\n";
  Write("src", text);
  Write("des", std::string(9000, 'o'));
  fs::permissions("des", fs::perms::owner_all);
  EXPECT_EQ(copyFile("src", "des"), 0);
  EXPECT_EQ(Read("des"), text);
  EXPECT_EQ(fs::status("des").permissions(), fs::perms::owner_all);
  EXPECT_EQ(copyFile("src", "none/des"), -1);
  EXPECT_EQ(copyFile("missing", "other"), -1);
}

TEST_F(Files, OnlyARegularFileInTheTopDirectoryIsFound) {
  char top[] = ".";
  char name[] = "reboot.txt";
  fs::create_directory("reboot.txt");
  EXPECT_EQ(FindFile(top, name), 0);
  fs::remove("reboot.txt");
  fs::create_directories("plc2");
  Write("plc2/reboot.txt", "");
  Write("Reboot.txt", "");
  EXPECT_EQ(FindFile(top, name), 0);
  fs::create_symlink("Reboot.txt", "reboot.txt");
  EXPECT_EQ(FindFile(top, name), 0);
  EXPECT_EQ(FindFile(top, nullptr), 0);
  fs::remove("reboot.txt");
  Write("reboot.txt", "");
  EXPECT_EQ(FindFile(top, name), 1);
}

TEST_F(Files, ADirectoryThatCannotBeOpenedIsReportedAndATooLongPathSkipped) {
  Capture errors(STDERR_FILENO);
  char missing[] = "missing";
  char name[] = "reboot.txt";
  EXPECT_EQ(FindFile(missing, name), 0);
  EXPECT_EQ(errors.Text(), "Open dir error...: No such file or directory\n");

  // Subdirectories are walked as well: here the handles last for the top directory alone.
  fs::create_directory("sub");
  char top[] = ".";
  const int lowest = dup(STDERR_FILENO);
  close(lowest);
  rlimit files;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
  const rlimit one = {static_cast<rlim_t>(lowest) + 1, files.rlim_max};
  setrlimit(RLIMIT_NOFILE, &one);
  EXPECT_EQ(FindFile(top, name), 0);
  setrlimit(RLIMIT_NOFILE, &files);
  EXPECT_EQ(errors.Text(), "Open dir error...: Too many open files\n");

  const std::string part(200, 'd');
  fs::path deep = directory;
  for (int i = 0; i < 6; ++i) {
    deep = part;
    fs::create_directory(deep);
    fs::current_path(deep);
  }
  fs::current_path(directory);
  EXPECT_EQ(FindFile(top, name), 0);
  EXPECT_EQ(errors.Text(), "");
}

}  // namespace
