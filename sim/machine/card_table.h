// The card table as the controller counts it, held against the rack file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "rack/state.h"

namespace rack {

// Looks once at each start of the controller, when its scan is over.
class CardTableWatch {
 public:
  explicit CardTableWatch(RackState& state) : state_(state), copy_(std::make_unique<RackLive>()) {}

  // What differs, a sentence for each slot; nothing before the scan is over, and nothing more until the next start.
  // A slot whose card was pulled, or could not be read, is left out, and so is a card for which the table
  // has no room; without a driver there is no scan. While no steady copy of the state is to be had, as when the
  // controller is starting again, nothing is told, and the next call looks again.
  std::vector<std::string> operator()();

 private:
  RackState& state_;
  std::unique_ptr<RackLive> copy_;
  std::uint32_t told_ = 0;  // number of the start that was looked at last
};

}  // namespace rack
