#define _FILE_OFFSET_BITS \
  64  // else a file with a large inode number cannot be looked at where a long has 32 bits
#include "files.h"

#include <sys/stat.h>

#include <cerrno>

pthread_mutex_t FileLock;

FILE* OpenFile(const char* path, const char* mode) {
  struct stat status;
  if (stat(path, &status) != 0 || S_ISREG(status.st_mode)) return std::fopen(path, mode);
  errno = EINVAL;
  return nullptr;
}
