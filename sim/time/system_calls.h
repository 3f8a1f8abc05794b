// System calls made by their number, and reads that may wait.
#pragma once

namespace rack {

// What `syscall` returns, with errno; false when the call is the kernel's. One that waits or tells the time and is
// not known ends the run. REQUIRES InTurn.
bool AnswerSystemCall(long number, const long (&arguments)[6], long& result);
// Scaled time: likewise for what has a length or point of time in it.
bool ScaleSystemCall(long number, const long (&arguments)[6], long& result);
// A read of a pipe, socket or terminal ends the run. REQUIRES InTurn.
void RefuseIfItWaits(int descriptor);

}  // namespace rack
