// The controller's console: each write made at once, or in virtual time held for a while and made together.
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "rack/console_hold.h"

namespace rack {

// Writes all of it, however long the other end takes; otherwise as `write`.
ssize_t WriteWhole(int descriptor, const char* text, std::size_t size);

// Standard output's bytes that are held. Called by the thread that has the turn.
class ConsoleWriter {
 public:
  explicit ConsoleWriter(ConsoleHold& hold) : hold_(hold) {}
  // False: the bytes are to be written at once; none are held any more.
  bool Hold(const char* text, std::size_t size);
  // Writes what is held: always, or if it has been held for long.
  void Write();
  void WriteInTime();

 private:
  bool MayHold() const;

  ConsoleHold& hold_;
  bool gone_ = false;      // the console takes nothing any more
  long long written_ = 0;  // when WriteInTime did, in milliseconds
};

}  // namespace rack
