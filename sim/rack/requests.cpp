#include "rack/requests.h"

#include <cstring>

namespace rack {

bool Send(RequestRing& ring, const Request& request, std::uint32_t& number) {
  const std::uint32_t next = ring.sent.load(std::memory_order_relaxed);
  if (next - ring.done.load(std::memory_order_acquire) >= kRequestCapacity) return false;
  RequestCell& cell = ring.cells[next % kRequestCapacity];
  std::uint32_t words[kRequestWords];
  std::memcpy(words, &request, sizeof words);
  for (std::uint32_t i = 0; i < kRequestWords; ++i) cell.words[i].store(words[i], std::memory_order_relaxed);
  cell.result.store(static_cast<std::uint32_t>(RequestResult::Pending), std::memory_order_relaxed);
  // The words are relaxed because `sent` releases them, and NextRequest acquires it. A place is used again only when
  // `done`, which Finish releases, has been acquired above.
  ring.sent.store(next + 1, std::memory_order_release);
  number = next;
  return true;
}

RequestResult ResultOf(const RequestRing& ring, std::uint32_t number) {
  const std::uint32_t done = ring.done.load(std::memory_order_acquire);
  if (static_cast<std::int32_t>(done - number) <= 0) return RequestResult::Pending;
  // Who sees the result of a later request in this place also sees that it was sent.
  const auto result = static_cast<RequestResult>(
      ring.cells[number % kRequestCapacity].result.load(std::memory_order_acquire));
  const bool reused = ring.sent.load(std::memory_order_relaxed) - number > kRequestCapacity;
  return reused ? RequestResult::Done : result;
}

bool NextRequest(const RequestRing& ring, Request& request, std::uint32_t& number) {
  const std::uint32_t done = ring.done.load(std::memory_order_relaxed);
  if (ring.sent.load(std::memory_order_acquire) == done) return false;
  const RequestCell& cell = ring.cells[done % kRequestCapacity];
  std::uint32_t words[kRequestWords];
  for (std::uint32_t i = 0; i < kRequestWords; ++i) words[i] = cell.words[i].load(std::memory_order_relaxed);
  std::memcpy(&request, words, sizeof request);
  number = done;
  return true;
}

void Finish(RequestRing& ring, RequestResult result) {
  const std::uint32_t done = ring.done.load(std::memory_order_relaxed);
  ring.cells[done % kRequestCapacity].result.store(static_cast<std::uint32_t>(result),
                                                   std::memory_order_release);
  ring.done.store(done + 1, std::memory_order_release);
}

}  // namespace rack
