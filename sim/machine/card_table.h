// The card table as the controller counts it, held against the rack file.
#pragma once

#include <string>
#include <vector>

#include "rack/state.h"

namespace rack {

// Looks once at each start of the controller, when its scan is over.
class CardTableWatch {
 public:
  explicit CardTableWatch(const RackState& state) : state_(state) {}

  // What differs, a sentence for each slot; nothing before the scan is over, and nothing more until the next start.
  // A slot whose card was pulled, or could not be read, is left out, and so is a card for which the table
  // has no room; without a driver there is no scan.
  std::vector<std::string> operator()();

 private:
  const RackState& state_;
  std::uint32_t told_ = 0;  // number of the start that was looked at last
};

}  // namespace rack
