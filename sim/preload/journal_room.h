// Room in the journal: waits until readers that must lose nothing have read what would be overwritten.
#pragma once

#include "rack/state.h"

namespace rack {

class JournalRoom {
 public:
  // Returns when there is room for what one call of the controller writes. Only in virtual time does anybody wait.
  void Await(RackState& state);

 private:
  ReaderSlot* Slowest(RackState& state);
  static void WaitFor(RackState& state, ReaderSlot& slot);

  std::uint32_t until_ = 0;  // record number up to which there is room
  std::uint32_t changes_ = 0;
  bool known_ = false;
};

}  // namespace rack
