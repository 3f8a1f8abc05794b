// System calls made by their number, in virtual time.
#pragma once

namespace rack {

// What `syscall` returns, with errno; false when the call is the kernel's. One that waits or tells the time and is
// not known ends the run. REQUIRES InTurn.
bool AnswerSystemCall(long number, const long (&arguments)[6], long& result);

}  // namespace rack
