// Room in the journal: waits until readers that must lose nothing have read what would be overwritten.
#pragma once

#include "preload/console_writer.h"
#include "rack/state.h"

namespace rack {

class JournalRoom {
 public:
  // Returns when there is room for what one call of the controller writes. Only in virtual time does anybody wait, and
  // what is held of the console is written before.
  void Await(RackState& state, ConsoleWriter& console);

 private:
  ReaderSlot* Slowest(RackState& state);
  static void WaitFor(RackState& state, ReaderSlot& slot);

  std::uint32_t until_ = 0;  // record number up to which there is room
  std::uint32_t changes_ = 0;
  bool known_ = false;
};

}  // namespace rack
