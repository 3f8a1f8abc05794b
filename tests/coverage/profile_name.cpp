// Linked into a controller and the rack's library when their lines are counted: in virtual time all processes have the same
// number, and each needs a file of its own.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// Ahead of the counting, which asks the environment.
[[gnu::constructor(101)]] void NameProfile() {
  char number[24] = "";
  if (readlink("/proc/self", number, sizeof number - 1) < 0) return;
  char path[4096];
  std::snprintf(path, sizeof path, "%s/%%c%s.%s", VELMO_PROFILES, number, VELMO_PROFILE_OF);
  setenv("LLVM_PROFILE_FILE", path, 1);
}

}  // namespace
