#define _FILE_OFFSET_BITS 64  // else readdir fails at a large inode number where a long has 32 bits
// Care of the start-up scripts, and the search for a file.
#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "drvlib.h"
#include "files.h"

namespace {

constexpr const char* kWorkFile = "tmp.txt";
constexpr const char* kStartScript = "run.sh";
constexpr const char* kStartScriptCopy = "/home/root/run.sh";
constexpr const char* kTextFiles[] = {kStartScript, "user.sh", "userinfo.txt"};

constexpr mode_t kExecutable = 0777;
constexpr int kMaxExecName = 128;
constexpr char kExecFiles[][kMaxExecName] = {"run.sh", "user.sh", "scan", "test_isa", "Velmo"};

constexpr size_t kTextPiece = 1000;
constexpr size_t kCopyPiece = 1024;
constexpr int kMaxPath = 1000;  // a path of the search, terminating zero included

// True when a line end was changed and the whole text reached the work file.
bool WriteUnixLines(FILE* source, ScopedFile& work) {
  char piece[kTextPiece];
  bool changed = false;
  size_t count;
  while ((count = std::fread(piece, 1, sizeof piece, source)) > 0) {
    for (size_t i = 0; i < count; ++i) {
      if (piece[i] != '\r') continue;
      piece[i] = '\n';
      changed = true;
    }
    if (std::fwrite(piece, 1, count, work.Get()) != count) return false;
  }
  return work.Close() && changed && std::ferror(source) == 0;
}

bool HasSameText(const char* path, const char* otherPath) {
  const ScopedFile file(path, "r");
  const ScopedFile other(otherPath, "r");
  if (!file.IsOpen() || !other.IsOpen()) return false;
  char piece[kCopyPiece];
  char otherPiece[kCopyPiece];
  size_t count;
  do {
    count = std::fread(piece, 1, sizeof piece, file.Get());
    if (std::fread(otherPiece, 1, sizeof otherPiece, other.Get()) != count) return false;
    if (std::memcmp(piece, otherPiece, count) != 0) return false;
  } while (count > 0);
  return std::ferror(file.Get()) == 0 && std::ferror(other.Get()) == 0;
}

enum class Conversion { NotOpened, Done, WorkFileKept };

// Puts the converted text in the script's place. On a full disk that may end in the middle, and the work file is then the
// only whole text.
Conversion TakeWorkFile(const char* fileName) {
  const bool copied = copyFile(kWorkFile, fileName) == 0 && HasSameText(kWorkFile, fileName);
  if (copied) {
    std::remove(kWorkFile);
    return Conversion::Done;
  }
  if (std::rename(kWorkFile, fileName) == 0) return Conversion::Done;
  Console("%s could not be written, its text is in %s\n", fileName, kWorkFile);
  return Conversion::WorkFileKept;
}

Conversion Convert(const char* fileName) {
  ScopedFile source(fileName, "rt");
  if (!source.IsOpen()) return Conversion::NotOpened;
  ScopedFile work(kWorkFile, "wt+");
  if (!work.IsOpen()) return Conversion::NotOpened;
  Console("Prcessing System file %s....\n", fileName);
  const bool isChanged = WriteUnixLines(source.Get(), work);
  source.Close();
  work.Close();
  Conversion result = Conversion::Done;
  if (isChanged) {
    result = TakeWorkFile(fileName);
  } else {
    std::remove(kWorkFile);
  }
  Console("Prcessing finished\n\n");
  return result;
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
  // Null at the end, and where the directory cannot be read any further.
  const dirent* Next() {
    errno = 0;
    const dirent* entry = readdir(Directory);
    Failed = entry == nullptr && errno != 0;
    return entry;
  }
  // Whether the last Next has failed; errno says why.
  bool HasFailed() const { return Failed; }

 private:
  DIR* Directory;
  bool Failed = false;
};

// Said once: the supervisor looks every few seconds, and nothing helps but another file system.
void ReportReadError() {
  static bool isReported = false;
  if (!isReported) PrintError("Read dir error...");
  isReported = true;
}

// A directory below the searched one is walked, but what lies there does not count.
void WalkSubdirectory(const char* basePath, const char* name, char* fileName) {
  char path[kMaxPath];
  const int length = std::snprintf(path, sizeof path, "%s/%s", basePath, name);
  if (length > 0 && length < kMaxPath) FindFile(path, fileName);
}

}  // namespace

int ChangFileMod() {
  for (const char* name : kTextFiles) {
    if (Convert(name) == Conversion::WorkFileKept) break;
  }
  for (const auto& name : kExecFiles) chmod(name, kExecutable);
  copyFile(kStartScript, kStartScriptCopy);
  chmod(kStartScriptCopy, kExecutable);
  return 1;
}

int CnvDos2UnixFile(const char* FileName) {
  return Convert(FileName) == Conversion::NotOpened ? 0 : 1;
}

int copyFile(const char* src, const char* des) {
  // Opening the destination empties it.
  const ScopedFile source(src, "r");
  if (!source.IsOpen()) return -1;
  const ScopedFile destination(des, "w+");
  if (!destination.IsOpen()) return -1;
  char piece[kCopyPiece];
  size_t count;
  while ((count = std::fread(piece, 1, sizeof piece, source.Get())) > 0) {
    std::fwrite(piece, 1, count, destination.Get());
  }
  return 0;
}

int FindFile(char* basePath, char* FileName) {
  ScopedDirectory directory(basePath);
  if (!directory.IsOpen()) {
    PrintError("Open dir error...");
    return 0;
  }
  while (const dirent* entry = directory.Next()) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    if (entry->d_type == DT_DIR) WalkSubdirectory(basePath, entry->d_name, FileName);
    if (entry->d_type != DT_REG || FileName == nullptr) continue;
    if (std::strcmp(FileName, entry->d_name) == 0) return 1;
  }
  if (directory.HasFailed()) ReportReadError();
  return 0;
}
