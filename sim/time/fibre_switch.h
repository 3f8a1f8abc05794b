// The switch from one stack to another: a few instructions of each processor.
#pragma once

#include <cstddef>
#include <cstdint>

#if !defined(VELMO_SANITIZED) && \
    (defined(__x86_64__) || defined(__i386__) || defined(__aarch64__) || defined(__arm__))
#define RACK_HAS_FIBRES 1
#else
#define RACK_HAS_FIBRES 0
#endif

namespace rack {

// How a stack looks that is not in use: registers, as words from its pointer up. A stack that has not been used yet
// goes on at rack_begin_fibre, which calls the entry with the argument.
#if defined(__x86_64__)
constexpr std::size_t kFloatWord = 0;
constexpr std::size_t kEntryWord = 3;
constexpr std::size_t kArgumentWord = 4;
constexpr std::size_t kReturnWord = 7;
constexpr std::size_t kFrameWords = 8;
#elif defined(__i386__)
constexpr std::size_t kFloatWord = 0;
constexpr std::size_t kArgumentWord = 2;
constexpr std::size_t kEntryWord = 3;
constexpr std::size_t kReturnWord = 5;
constexpr std::size_t kFrameWords = 6;
#elif defined(__aarch64__)
constexpr std::size_t kArgumentWord = 0;
constexpr std::size_t kEntryWord = 1;
constexpr std::size_t kReturnWord = 11;
constexpr std::size_t kFloatWord = 20;
constexpr std::size_t kFrameWords = 22;
#elif defined(__arm__)
constexpr std::size_t kFloatWord = 0;
constexpr std::size_t kArgumentWord = 19;
constexpr std::size_t kEntryWord = 20;
constexpr std::size_t kReturnWord = 27;
constexpr std::size_t kFrameWords = 28;
#endif

#if RACK_HAS_FIBRES
extern "C" {
// Leaves the registers on the stack and its pointer in `from`, and goes on with the other stack.
[[gnu::visibility("hidden")]] void rack_switch_stack(void** from, void* to);
[[gnu::visibility("hidden")]] void rack_begin_fibre();
}

// What the processor's control words of floating point say: a thread begins with those of the one that makes it.
std::uintptr_t FloatControl();
#endif

}  // namespace rack
