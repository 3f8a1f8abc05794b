// What the library knows of the thread that calls it.
#pragma once

#include <cstdint>

#include "rack/state.h"

namespace rack {

struct CallerMarks {
  std::uint8_t task = kUnknownTask;
  std::int8_t isMain = -1;  // -1: the kernel has not been asked yet
  const void* runnerReads =
      nullptr;  // where in the code its runner reads program lines: a label search reads elsewhere
};

// Of the calling thread. Threads that share a real one are told apart by whoever passes the turn on.
CallerMarks& ThisCaller();

}  // namespace rack
