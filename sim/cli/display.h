// A picture of the machine as text and as JSON.
#pragma once

#include <string>

#include "machine/snapshot.h"

namespace rack::cli {

std::string TextOf(const Snapshot& snapshot);
std::string JsonOf(const Snapshot& snapshot);

}  // namespace rack::cli
