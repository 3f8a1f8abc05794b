// Tables with a row for each kind of something.
#pragma once

#include <cstddef>

namespace rack {

// Some rows of a table.
template <class Row>
class RowsOf {
 public:
  constexpr RowsOf() = default;
  template <std::size_t Count>
  constexpr RowsOf(const Row (&rows)[Count])
      : first_(rows), last_(rows + Count) {}  // NOLINT(google-explicit-constructor)
  constexpr const Row* begin() const { return first_; }
  constexpr const Row* end() const { return last_; }

 private:
  const Row* first_ = nullptr;
  const Row* last_ = nullptr;
};

// Whether the rows are those of the kinds, one for each and in their order: a kind's number then is its row.
template <class Row, std::size_t kRows, class Kind, std::size_t kKinds>
constexpr bool AreRowsOf(const Row (&rows)[kRows], Kind Row::*kind, const Kind (&kinds)[kKinds]) {
  if (kRows != kKinds) return false;
  for (std::size_t i = 0; i < kRows; ++i) {
    if (rows[i].*kind != kinds[i]) return false;
  }
  return true;
}

// The same for kinds that are numbered without a gap, from this number on.
template <class Row, std::size_t kRows, class Kind>
constexpr bool AreRowsOf(const Row (&rows)[kRows], Kind Row::*kind, std::size_t count,
                         std::size_t first = 0) {
  if (kRows != count) return false;
  for (std::size_t i = 0; i < kRows; ++i) {
    if (static_cast<std::size_t>(rows[i].*kind) != first + i) return false;
  }
  return true;
}

}  // namespace rack
