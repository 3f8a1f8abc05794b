// Fibres: threads that share one real thread, each with a stack of its own.
//
// They also share its thread-local storage. What the C library and the C++ runtime keep there for each thread is kept
// here for a fibre that does not run.
#pragma once

#include <cstddef>
#include <string>

#include "preload/caller.h"

namespace rack {

// Why the controller's threads cannot be fibres, as the rest of a sentence behind "because"; empty when they can.
std::string WhyNoFibres();

// An exception that is being handled, as the runtime has it.
struct ExceptionMarks {
  void* caught;
  unsigned uncaught;
#ifdef __ARM_EABI_UNWINDER__
  void* propagating;
#endif
};

struct Fibre {
  void* stackPointer = nullptr;
  int error = 0;
  ExceptionMarks exceptions{};
  void* onceCallable = nullptr;  // of a std::call_once that waits
  void (*onceCall)() = nullptr;
  CallerMarks caller{kUnknownTask, 0, nullptr};
};

// Memory of a stack: below it lies a guard, which no thread may touch. Null when there is no memory left.
struct FibreStack {
  char* bottom;  // of the usable part
  std::size_t size;
  std::size_t guard;
};
FibreStack TakeStack(std::size_t size, std::size_t guard);
// The stack may be in use up to the next switch.
void GiveBackStack(const FibreStack& stack);

// The fibre will begin with entry(argument), which never returns, when it is switched to.
void PrepareFibre(Fibre& fibre, const FibreStack& stack, void (*entry)(void*), void* argument);
// The caller is `from`; returns when it is switched to again.
void SwitchFibre(Fibre& from, const Fibre& to);

}  // namespace rack
