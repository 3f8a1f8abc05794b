// Who holds which lock, and whether threads wait for each other in a circle. All of it: REQUIRES InTurn.
#pragma once

#include "time/scheduler.h"

namespace rack {

enum class Hold : std::uint8_t { Shared, Alone };

// The caller has taken the lock, possibly not for the first time.
void NoteTaken(const void* lock, Hold hold);
// The caller has let it go once; whether it was the last time. A lock that another thread had taken counts as that
// one's.
bool NoteFreed(const void* lock);
// Whether the caller holds the lock, so or otherwise.
bool IsHolder(const void* lock);
bool IsHolder(const void* lock, Hold hold);

// A thread that ends without having let go: nobody frees the lock any more.
void ForgetOwner(const Thread* thread);
void ForgetOwners();

// The thread that holds the lock, of several one; null: it has ended.
struct Holder {
  bool held;
  const Thread* thread;
};
Holder HolderOf(const void* lock);
// The row of the lock's name in the state, counted from 1; a number behind the last row when there is no room.
std::uint32_t NameRow(const void* lock, TimeControl& control);

// The thread is about to wait for ever. Ends the run if whoever it waits for waits, over others or not, for it: no
// matter what the remaining threads do, none of these goes on.
void EndAtCircle(const Thread* thread);

}  // namespace rack
