// What answers the controller's calls on the board's driver device: the seam below the system calls.
//
// In a controller with the library preloaded it is the rack of the state file. A test program that links the
// interception puts a bus of its own in place; every byte then passes through it.
#pragma once

#include <cstdint>

#include "rack/state.h"

namespace rack {

class BusTarget {
 public:
  virtual ~BusTarget() = default;
  // Which of the two device names opens.
  virtual DeviceName Device() { return DeviceName::EmIsa; }
  // The byte read, 0 to 255, or -1: the read call fails. Called by any thread; so is Write.
  virtual int Read(std::uint8_t port) = 0;
  virtual void Write(std::uint8_t port, std::uint8_t value) = 0;
};

// Answers with this bus from now on; null: with what the environment says, or as without a device. The bus
// must outlive its use.
void UseBus(BusTarget* bus);

// Calls that were kept from the system since the process began.
struct InterceptedCalls {
  std::uint32_t syncs;
  std::uint32_t restarts;
  std::uint32_t restartCommand;  // of the last one
};
InterceptedCalls CallsSoFar();

}  // namespace rack
