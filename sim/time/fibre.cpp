#include "time/fibre.h"

#include <cxxabi.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "preload/next.h"
#include "time/fibre_switch.h"

namespace rack {

#if RACK_HAS_FIBRES

namespace {

constexpr std::size_t kMaxKeptStacks = 16;
// A function with large variables may step over a page that is all the guard there is.
constexpr std::size_t kLeastGuard = 64 * 1024;
constexpr std::size_t kLeastStack = 64 * 1024;

// Libraries whose thread-local storage is known: what matters of it is in Fibre.
constexpr const char* kKnownLibraries[] = {"libc.so",  "libc-2",       "libpthread",
                                           "ld-linux", "libstdc++.so", "libgcc_s.so"};

const char* BaseName(const char* path) {
  const char* const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

bool IsKnown(const char* path) {
  const char* const name = BaseName(path);
  return std::any_of(std::begin(kKnownLibraries), std::end(kKnownLibraries),
                     [&](const char* known) { return std::strncmp(name, known, std::strlen(known)) == 0; });
}

bool HoldsThisCode(const dl_phdr_info& info) {
  const auto here = reinterpret_cast<std::uintptr_t>(&WhyNoFibres);
  return std::any_of(info.dlpi_phdr, info.dlpi_phdr + info.dlpi_phnum, [&](const ElfW(Phdr) & part) {
    const std::uintptr_t begin = info.dlpi_addr + part.p_vaddr;
    return part.p_type == PT_LOAD && here >= begin && here - begin < part.p_memsz;
  });
}

bool HasThreadStorage(const dl_phdr_info& info) {
  return std::any_of(info.dlpi_phdr, info.dlpi_phdr + info.dlpi_phnum,
                     [](const ElfW(Phdr) & part) { return part.p_type == PT_TLS && part.p_memsz != 0; });
}

// The first object with thread-local storage that fibres would share unknowingly.
int LookAtObject(dl_phdr_info* info, std::size_t, void* found) {
  if (!HasThreadStorage(*info) || IsKnown(info->dlpi_name) || HoldsThisCode(*info)) return 0;
  *static_cast<std::string*>(found) = *info->dlpi_name == '\0' ? "the controller" : BaseName(info->dlpi_name);
  return 1;
}

// Another process looks at this one's every step: a debugger, which would find one thread where there are many.
bool IsTraced() {
  static Next openFile(calls::open);
  static Next readFile(calls::read);
  static Next closeFile(calls::close);
  constexpr char kWord[] = "\nTracerPid:\t";
  char text[4096];
  const int file = openFile("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  const ssize_t length = readFile(file, text, sizeof text - 1);
  closeFile(file);
  if (length <= 0) return false;
  text[length] = '\0';
  const char* const place = std::strstr(text, kWord);
  return place != nullptr && place[sizeof kWord - 1] != '0';
}

// Where the one real thread has what belongs to its fibres.
struct ThreadPlaces {
  int* error = &errno;
  ExceptionMarks* exceptions = reinterpret_cast<ExceptionMarks*>(abi::__cxa_get_globals());
  void** onceCallable = &std::__once_callable;
  void (**onceCall)() = &std::__once_call;
  CallerMarks* caller = &ThisCaller();
};

const ThreadPlaces& Places() {
  static const ThreadPlaces places;
  return places;
}

// Stacks of threads that have ended, for those that begin.
FibreStack KeptStacks[kMaxKeptStacks];
std::size_t KeptCount = 0;
FibreStack Surplus{};  // may still be in use

std::size_t RoundUp(std::size_t size) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return (size + page - 1) / page * page;
}

void Unmap(const FibreStack& stack) {
  if (stack.bottom != nullptr) munmap(stack.bottom - stack.guard, stack.guard + stack.size);
}

}  // namespace

std::string WhyNoFibres() {
  std::string object;
  dl_iterate_phdr(&LookAtObject, &object);
  if (!object.empty()) return object + " has thread-local storage";
  return IsTraced() ? "a debugger is attached" : "";
}

FibreStack TakeStack(std::size_t size, std::size_t guard) {
  size = RoundUp(std::max(size, kLeastStack));
  guard = RoundUp(std::max(guard, kLeastGuard));
  for (std::size_t i = 0; i < KeptCount; ++i) {
    const FibreStack kept = KeptStacks[i];
    if (kept.size != size || kept.guard != guard) continue;
    KeptStacks[i] = KeptStacks[--KeptCount];
    return kept;
  }
  void* const memory = mmap(nullptr, guard + size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) return {};
  const FibreStack made = {static_cast<char*>(memory) + guard, size, guard};
  if (mprotect(made.bottom, size, PROT_READ | PROT_WRITE) == 0) return made;
  Unmap(made);
  return {};
}

void GiveBackStack(const FibreStack& stack) {
  if (KeptCount < kMaxKeptStacks) {
    KeptStacks[KeptCount++] = stack;
    return;
  }
  Unmap(Surplus);
  Surplus = stack;
}

void PrepareFibre(Fibre& fibre, const FibreStack& stack, void (*entry)(void*), void* argument) {
  constexpr std::uintptr_t kAligned = ~std::uintptr_t{15};
  const std::uintptr_t top = reinterpret_cast<std::uintptr_t>(stack.bottom + stack.size) & kAligned;
  auto* const words = reinterpret_cast<std::uintptr_t*>(top) - kFrameWords;
  std::fill(words, words + kFrameWords, 0);
  words[kFloatWord] = FloatControl();
  words[kEntryWord] = reinterpret_cast<std::uintptr_t>(entry);
  words[kArgumentWord] = reinterpret_cast<std::uintptr_t>(argument);
  words[kReturnWord] = reinterpret_cast<std::uintptr_t>(&rack_begin_fibre);
  fibre = Fibre{};
  fibre.stackPointer = words;
}

void SwitchFibre(Fibre& from, const Fibre& to) {
  const ThreadPlaces& places = Places();
  from.error = *places.error;
  from.exceptions = *places.exceptions;
  from.onceCallable = *places.onceCallable;
  from.onceCall = *places.onceCall;
  from.caller = *places.caller;
  *places.error = to.error;
  *places.exceptions = to.exceptions;
  *places.onceCallable = to.onceCallable;
  *places.onceCall = to.onceCall;
  *places.caller = to.caller;
  rack_switch_stack(&from.stackPointer, to.stackPointer);
}

#else

std::string WhyNoFibres() {
#ifdef VELMO_SANITIZED
  return "a sanitizer is present";
#else
  return "this processor has no switch of fibres";
#endif
}

FibreStack TakeStack(std::size_t, std::size_t) {
  return {};
}
void GiveBackStack(const FibreStack&) {}
void PrepareFibre(Fibre&, const FibreStack&, void (*)(void*), void*) {}
void SwitchFibre(Fibre&, const Fibre&) {}

#endif

}  // namespace rack
