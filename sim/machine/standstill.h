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
  const RackState& state_;
  std::uint32_t beat_;
  Nanos since_;
};

}  // namespace rack
