#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "chip/InLifRow.h"

namespace Chip {

// The rows of an in-LIF table of `capacity` rows (1 to capacity) and which of them are free:
// hands out the lowest free row, takes rows back, and claims named rows (a restore).
//
// A two-level bitmap: one bit per row, set while the row is free, and one summary bit per
// 64-row word, set while that word has a free row. Finding the lowest free row reads the summary
// words (32 of them at the chip's 131071 rows) and one row word.
//
// Invariants: a summary bit is set exactly when its word is non-zero; bit 0 (no row) and the
// bits above `capacity` are never set; `freeCount()` is the number of set row bits.
// Threading: one thread, its owner's; takes no locks.
class InLifRowPool {
 public:
  explicit InLifRowPool(std::uint32_t capacity);

  std::uint32_t capacity() const noexcept { return capacity_; }
  std::uint32_t freeCount() const noexcept { return freeCount_; }
  bool isFree(InLifRow row) const noexcept;
  bool inRange(InLifRow row) const noexcept { return row.isRow() && row.value() <= capacity_; }

  // The lowest free row, now used; none when every row is used.
  std::optional<InLifRow> take() noexcept;
  // Uses `row`; false (and nothing changes) when it is out of range or already used.
  bool claim(InLifRow row) noexcept;
  // Frees a used row. Giving back a row that is out of range or free is a fault of the caller.
  void give(InLifRow row) noexcept;
  // Frees every row.
  void reset();

 private:
  void bitIs(std::uint32_t index, bool free) noexcept;

  std::uint32_t capacity_;
  std::uint32_t freeCount_ = 0;
  // Owned. Bit `r % 64` of word `r / 64` is set while row r is free.
  std::vector<std::uint64_t> rowWords_;
  // Owned. Bit `w % 64` of word `w / 64` is set while `rowWords_[w]` is non-zero.
  std::vector<std::uint64_t> summary_;
};

}  // namespace Chip
