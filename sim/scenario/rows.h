// Tables with a row for each kind of something.
#pragma once

#include <cstddef>

namespace rack::scenario {

// Whether the rows are those of the kinds, one for each and in their order: a kind's number then is its row.
template <class Row, std::size_t kRows, class Kind, std::size_t kKinds>
constexpr bool AreRowsOf(const Row (&rows)[kRows], Kind Row::*kind, const Kind (&kinds)[kKinds]) {
  if (kRows != kKinds) return false;
  for (std::size_t i = 0; i < kRows; ++i) {
    if (rows[i].*kind != kinds[i]) return false;
  }
  return true;
}

}  // namespace rack::scenario
