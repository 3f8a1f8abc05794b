// Threads in virtual time: fibres with all that is asked about a thread, or real ones that take turns.
#pragma once

#include <pthread.h>

namespace rack {

using ThreadBody = void*(void*);

int CreateThread(pthread_t* handle, const pthread_attr_t* attributes, ThreadBody* body, void* argument);
int JoinThread(pthread_t handle, void** result);
// Fibres: leaves the thread, with all that its functions have to tidy up.
[[noreturn]] void ExitFibre(void* result);

}  // namespace rack
