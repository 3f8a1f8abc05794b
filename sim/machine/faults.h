// The faults that can be put into the rack, by the words of the command line.
#pragma once

#include <string>
#include <vector>

#include "machine/snapshot.h"
#include "rack/requests.h"
#include "rack/state.h"

namespace rack {

// The request for a fault given in words ("stuck", "clamp_closed", "on"), or why there is none.
struct FaultChoice {
  Request request{};
  std::string error;  // empty: the request is good
};
FaultChoice ChooseFault(const Snapshot& snapshot, const std::vector<std::string>& words, RequestKind kind);

// A fault in the same words, with the name of what it holds and the time left: "stuck clamp_closed (0.5)
// on, 2.0 s left".
std::string FaultText(const Snapshot& snapshot, const FaultRecord& fault, Nanos now);

// The word of a kind of fault, "stuck".
const char* WordOf(FaultKind kind);

// Every fault with its words and what it does, one a line.
std::string FaultHelp();

}  // namespace rack
