// How the controller opens a file by its name.
#pragma once

#include <pthread.h>

#include <cstdio>

#include "locks.h"

// One open, close or line read of a program file; the motor tables with their files.
extern pthread_mutex_t FileLock;
inline LockRole FileRole;

// As fopen; null also for what is neither a regular file nor a link to one: a FIFO would keep its opener waiting for
// the other end, and a directory holds no lines.
FILE* OpenFile(const char* path, const char* mode);

// A file that is closed at the end of its scope.
class ScopedFile {
 public:
  ScopedFile(const char* path, const char* mode) : File(OpenFile(path, mode)) {}
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
