#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>

#include "drvlib.h"
#include "files.h"
#include "support/capture.h"
#include "support/scratch.h"

namespace {

// What the file system does, for a test.
const char* emptiedByFullDisk = nullptr;  // this file's text is lost when it is written over
bool renameFails = false;
bool readdirFails = false;

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

FILE* Open(const char* call, const char* path, const char* mode) {
  auto* const next = Next<FILE*(const char*, const char*)>(call);
  FILE* file = next(path, mode);
  const bool isFull =
      emptiedByFullDisk != nullptr && std::strcmp(path, emptiedByFullDisk) == 0 && *mode == 'w';
  if (file == nullptr || !isFull) return file;
  std::fclose(file);
  return next("/dev/full", mode);
}

dirent* ReadDirectory(const char* call, DIR* directory) {
  if (!readdirFails) return Next<dirent*(DIR*)>(call)(directory);
  errno = EIO;
  return nullptr;
}

}  // namespace

// In the C library's place; the names with 64 are those of builds for large files.
extern "C" {
FILE* fopen(const char* path, const char* mode) {
  return Open("fopen", path, mode);
}
FILE* fopen64(const char* path, const char* mode) {
  return Open("fopen64", path, mode);
}
dirent* readdir(DIR* directory) {
  return ReadDirectory("readdir", directory);
}
dirent64* readdir64(DIR* directory) {
  return reinterpret_cast<dirent64*>(ReadDirectory("readdir64", directory));
}
int rename(const char* from, const char* to) noexcept {
  if (!renameFails) return Next<int(const char*, const char*)>("rename")(from, to);
  errno = EIO;
  return -1;
}
}

namespace {

namespace fs = std::filesystem;

class Files : public ScratchTest {
 protected:
  void TearDown() override {
    emptiedByFullDisk = nullptr;
    renameFails = readdirFails = false;
    ScratchTest::TearDown();
  }
};

TEST_F(Files, OnlyAFileCanBeOpened) {
  Write("file", "text");
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  fs::create_directory("folder");
  fs::create_symlink("file", "link");
  fs::create_symlink("fifo", "link to fifo");
  for (const char* path : {"fifo", "folder", "link to fifo", "/dev/null", "missing"}) {
    EXPECT_FALSE(ScopedFile(path, "r").IsOpen()) << path;
  }
  EXPECT_TRUE(ScopedFile("link", "r").IsOpen());
  EXPECT_FALSE(ScopedFile("fifo", "w").IsOpen());
  EXPECT_TRUE(ScopedFile("new", "w").IsOpen());
}

TEST_F(Files, AScriptWithoutCarriageReturnsIsNotWritten) {
  Capture console(STDOUT_FILENO);
  Write("run.sh", "exec ./Velmo\n");
  const auto long_ago = fs::last_write_time("run.sh") - std::chrono::hours(1);
  fs::last_write_time("run.sh", long_ago);
  EXPECT_EQ(CnvDos2UnixFile("run.sh"), 1);
  EXPECT_EQ(fs::last_write_time("run.sh"), long_ago);
  EXPECT_FALSE(fs::exists("tmp.txt"));
}

// One text in two files: while the disk is full it must not be lost in both.
TEST_F(Files, AFullDiskDoesNotCostAScript) {
  Write("run.sh", "a\r\n");
  emptiedByFullDisk = "run.sh";
  Capture console(STDOUT_FILENO);
  EXPECT_EQ(CnvDos2UnixFile("run.sh"), 1);
  EXPECT_EQ(Read("run.sh"), "a\n\n");
  EXPECT_FALSE(fs::exists("tmp.txt"));
  EXPECT_EQ(console.Text(), "Prcessing System file run.sh....\nPrcessing finished\n\n");

  emptiedByFullDisk = nullptr;
  Write("run.sh", "b\r\n");
  Write("user.sh", "c\r\n");
  emptiedByFullDisk = "run.sh";
  renameFails = true;
  EXPECT_EQ(ChangFileMod(), 1);
  EXPECT_EQ(Read("tmp.txt"), "b\n\n");
  EXPECT_EQ(Read("user.sh"), "c\r\n");
  EXPECT_EQ(console.Text(),
            "Prcessing System file run.sh....\nrun.sh could not be written, its text is in tmp.txt\n"
            "Prcessing finished\n\n");

  emptiedByFullDisk = nullptr;
  Write("run.sh", "d\r\n");
  emptiedByFullDisk = "tmp.txt";
  EXPECT_EQ(CnvDos2UnixFile("run.sh"), 1);
  EXPECT_EQ(Read("run.sh"), "d\r\n");
}

TEST_F(Files, ADirectoryThatCannotBeReadIsReportedOnce) {
  Capture errors(STDERR_FILENO);
  char top[] = ".";
  char name[] = "reboot.txt";
  Write("reboot.txt", "");
  readdirFails = true;
  EXPECT_EQ(FindFile(top, name), 0);
  EXPECT_EQ(FindFile(top, name), 0);
  EXPECT_EQ(errors.Text(), "Read dir error...: Input/output error\n");
  readdirFails = false;
  EXPECT_EQ(FindFile(top, name), 1);
}

// The console's line goes nowhere then, and not to the device.
TEST(StandardDescriptors, AreFilledBeforeTheDeviceIsOpened) {
  const auto start = [] {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) close(descriptor);
    const HARDWARE board;
    const int next = open("/dev/null", O_RDONLY);
    const bool filled = fcntl(0, F_GETFD) == 0 && fcntl(1, F_GETFD) == 0 && fcntl(2, F_GETFD) == 0;
    _exit(filled && next > STDERR_FILENO ? 0 : 1);
  };
  EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
}

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
  EXPECT_FALSE(fs::exists("other"));
  EXPECT_EQ(copyFile("missing", "des"), -1);
  EXPECT_EQ(Read("des"), text);
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
