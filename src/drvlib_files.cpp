// Care of the start-up scripts, and the search for a file.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "drvlib.h"
#include "files.h"

namespace {

constexpr const char* WORKFILE = "tmp.txt";
constexpr const char* STARTSCRIPT = "run.sh";
constexpr const char* STARTSCRIPTCOPY = "/home/root/run.sh";
constexpr const char* TEXTFILES[] = {STARTSCRIPT, "user.sh", "userinfo.txt"};

constexpr mode_t EXECUTABLE = 0777;
constexpr int MAXEXECNAME = 128;
constexpr char EXECFILES[][MAXEXECNAME] = {"run.sh", "user.sh", "scan", "test_isa", "Velmo"};

constexpr size_t TEXTPIECE = 1000;
constexpr size_t COPYPIECE = 1024;
constexpr int MAXPATH = 1000;  // a path of the search, terminating zero included

// True when at least one byte was read and all of them reached the work file.
bool WriteUnixLines(FILE* source, ScopedFile& work) {
  char piece[TEXTPIECE];
  bool written = false;
  size_t count;
  while ((count = std::fread(piece, 1, sizeof piece, source)) > 0) {
    for (size_t i = 0; i < count; ++i) {
      if (piece[i] == '\r') piece[i] = '\n';
    }
    if (std::fwrite(piece, 1, count, work.Get()) != count) return false;
    written = true;
  }
  return work.Close() && written && std::ferror(source) == 0;
}

class ScopedDirectory {
 public:
  explicit ScopedDirectory(const char* path) : Directory(opendir(path)) {}
  ~ScopedDirectory() {
    if (Directory != nullptr) closedir(Directory);
  }
  ScopedDirectory(const ScopedDirectory&) = delete;
  ScopedDirectory& operator=(const ScopedDirectory&) = delete;

  bool IsOpen() const { return Directory != nullptr; }
  const dirent* Next() { return readdir(Directory); }

 private:
  DIR* Directory;
};

// A directory below the searched one is walked, but what lies there does not count.
void WalkSubdirectory(const char* basePath, const char* name, char* fileName) {
  char path[MAXPATH];
  const int length = std::snprintf(path, sizeof path, "%s/%s", basePath, name);
  if (length > 0 && length < MAXPATH) FindFile(path, fileName);
}

}  // namespace

int ChangFileMod() {
  for (const char* name : TEXTFILES) CnvDos2UnixFile(name);
  for (const auto& name : EXECFILES) chmod(name, EXECUTABLE);
  copyFile(STARTSCRIPT, STARTSCRIPTCOPY);
  chmod(STARTSCRIPTCOPY, EXECUTABLE);
  return 1;
}

int CnvDos2UnixFile(const char* FileName) {
  ScopedFile source(FileName, "rt");
  if (!source.IsOpen()) return 0;
  ScopedFile work(WORKFILE, "wt+");
  if (!work.IsOpen()) return 0;
  Console("Prcessing System file %s....\n", FileName);
  // The file is only written over when the work file holds all of it: a full disk must not cost the script.
  const bool isComplete = WriteUnixLines(source.Get(), work);
  source.Close();
  work.Close();
  if (isComplete) copyFile(WORKFILE, FileName);
  std::remove(WORKFILE);
  Console("Prcessing finished\n\n");
  return 1;
}

int copyFile(const char* src, const char* des) {
  const ScopedFile source(src, "r");
  const ScopedFile destination(des, "w+");
  if (!source.IsOpen() || !destination.IsOpen()) return -1;
  char piece[COPYPIECE];
  size_t count;
  while ((count = std::fread(piece, 1, sizeof piece, source.Get())) > 0) {
    std::fwrite(piece, 1, count, destination.Get());
  }
  return 0;
}

int FindFile(char* basePath, char* FileName) {
  ScopedDirectory directory(basePath);
  if (!directory.IsOpen()) {
    std::perror("Open dir error...");
    return 0;
  }
  while (const dirent* entry = directory.Next()) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    if (entry->d_type == DT_DIR) WalkSubdirectory(basePath, entry->d_name, FileName);
    if (entry->d_type != DT_REG || FileName == nullptr) continue;
    if (std::strcmp(FileName, entry->d_name) == 0) return 1;
  }
  return 0;
}
