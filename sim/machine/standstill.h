// Whether a controller in virtual time still makes progress.
#pragma once

#include <cstdint>
#include <string>

#include "rack/state.h"

namespace rack {

// Watches whether a controller in virtual time still makes progress; the text says why not.
class StandstillWatch {
 public:
  explicit StandstillWatch(const RackState& state);
  std::string operator()();

 private:
  void Count(Nanos now);

  const RackState& state_;
  std::uint32_t beat_;
  Nanos looked_;
  Nanos still_ = 0;  // real time without progress, as far as it was watched
};

// Real time: that a thread of the controller waits for a lock or for the console, which should not take long; empty
// otherwise.
std::string LongWait(std::int32_t process, std::uint32_t thread);

}  // namespace rack
