// What the controller's system calls reach while an input is tried: a bus, clocks and a console that answer as the input
// says. Outside they go to the C library.
#pragma once

#include <functional>
#include <string>

#include "fuzz.h"

namespace fuzz {

// Thrown out of a pause, a bus access or a console line when the controller has done enough.
struct RunOver {};

struct HostileBoard {
  // Sets the board up for one input and takes the calls; gives them back at its end.
  HostileBoard();
  ~HostileBoard();
  HostileBoard(const HostileBoard&) = delete;
  HostileBoard& operator=(const HostileBoard&) = delete;

  Bytes bus;           // a byte an access; kReadFails: the read fails; behind the end nothing drives the bus
  Bytes console;       // a byte a line: taken, in part, not at all, interrupted; behind the end taken
  int slot = -1;       // each access must follow a selection of this slot; -1: any
  long left = 100000;  // calls until RunOver
  long ticks = 0;
  long seconds = 0;
  int selected = -1;
  bool isSelected = false;  // the last access has selected a slot
  std::function<void()> onPause;
  std::string printed;

  static constexpr std::uint8_t kReadFails = 0xED;
};

}  // namespace fuzz
