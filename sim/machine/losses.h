// What a reader of the journal has missed: told at most once a second, however many gaps there are.
#pragma once

#include <cstdint>

#include "cards/card.h"

namespace rack {

class Losses {
 public:
  // Records that were missed and are not told of yet: for JournalReader::Next.
  std::uint64_t& Missed() { return missed_; }
  // How many are told of now, by a clock that shows this; 0: none, or too soon. `all`: it is not too soon.
  std::uint64_t Take(bool all, Nanos clock) {
    if (missed_ == 0 || (!all && told_ != 0 && clock - toldAt_ < kSecond)) return 0;
    const std::uint64_t missed = missed_;
    missed_ = 0;
    told_ += missed;
    toldAt_ = clock;
    return missed;
  }
  // All that has been told of.
  std::uint64_t Told() const { return told_; }

 private:
  std::uint64_t missed_ = 0;
  std::uint64_t told_ = 0;
  Nanos toldAt_ = 0;
};

}  // namespace rack
