// A file that is closed at the end of its scope.
#pragma once

#include <cstdio>

class ScopedFile {
 public:
  ScopedFile(const char* path, const char* mode) : File(std::fopen(path, mode)) {}
  ~ScopedFile() { Close(); }
  ScopedFile(const ScopedFile&) = delete;
  ScopedFile& operator=(const ScopedFile&) = delete;

  bool IsOpen() const { return File != nullptr; }
  FILE* Get() const { return File; }

  // False when what was written last did not reach the file. Closing twice does nothing.
  bool Close() {
    const bool done = File == nullptr || std::fclose(File) == 0;
    File = nullptr;
    return done;
  }

 private:
  FILE* File;
};
