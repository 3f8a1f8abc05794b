// A picture of the machine as text and as JSON.
#pragma once

#include <string>

#include "tool/snapshot.h"

namespace rack::tool {

std::string TextOf(const Snapshot& snapshot);
std::string JsonOf(const Snapshot& snapshot);

}  // namespace rack::tool
