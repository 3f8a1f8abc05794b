// The cards' registers by name, for people who read bus accesses.
#pragma once

#include <cstdint>
#include <string>

#include "cards/card.h"
#include "plant/plant.h"

namespace rack {

// The register behind a port of a card ("channel select"); "port 25" for a port the card does not use.
std::string RegisterName(CardKind kind, std::uint8_t port, bool write);

// The group of eight signals behind a port: its kind and first channel. A count of 0 means that there is
// none.
struct SignalGroup {
  SignalKind kind;
  int firstChannel;
  int count;
};
SignalGroup SignalsOfPort(CardKind kind, std::uint8_t port);

}  // namespace rack
