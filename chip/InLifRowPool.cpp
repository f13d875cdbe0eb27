#include "chip/InLifRowPool.h"

#include <algorithm>
#include <bit>

#include "Loom/Assert.h"

namespace Chip {

namespace {
constexpr char const* kUnit = "chip/InLifRowPool";
}

InLifRowPool::InLifRowPool(std::uint32_t capacity)
    : capacity_(capacity), rowWords_(capacity / 64 + 1), summary_((rowWords_.size() + 63) / 64) {
  reset();
}

bool InLifRowPool::isFree(InLifRow row) const noexcept {
  return inRange(row) && (rowWords_[row.value() / 64] >> (row.value() % 64) & 1) != 0;
}

std::optional<InLifRow> InLifRowPool::take() noexcept {
  if (freeCount_ == 0) {
    return std::nullopt;
  }
  auto const summary =
      std::find_if(summary_.begin(), summary_.end(), [](std::uint64_t bits) { return bits != 0; });
  auto const word = static_cast<std::uint32_t>(summary - summary_.begin()) * 64 +
                    static_cast<std::uint32_t>(std::countr_zero(*summary));
  auto const index = word * 64 + static_cast<std::uint32_t>(std::countr_zero(rowWords_[word]));
  bitIs(index, false);
  return InLifRow(index);
}

bool InLifRowPool::claim(InLifRow row) noexcept {
  if (!isFree(row)) {
    return false;
  }
  bitIs(row.value(), false);
  return true;
}

void InLifRowPool::give(InLifRow row) noexcept {
  LOOM_ASSERT(inRange(row) && !isFree(row), kUnit, "void Chip::InLifRowPool::give(InLifRow)");
  bitIs(row.value(), true);
}

void InLifRowPool::reset() {
  std::fill(rowWords_.begin(), rowWords_.end(), ~std::uint64_t{0});
  rowWords_.front() &= ~std::uint64_t{1};
  auto const lastBit = capacity_ % 64;  // the last row's bit in the last word
  if (lastBit != 63) {
    rowWords_.back() &= (std::uint64_t{1} << (lastBit + 1)) - 1;
  }
  std::fill(summary_.begin(), summary_.end(), 0);
  for (std::size_t w = 0; w < rowWords_.size(); ++w) {
    if (rowWords_[w] != 0) {
      summary_[w / 64] |= std::uint64_t{1} << (w % 64);
    }
  }
  freeCount_ = capacity_;
}

void InLifRowPool::bitIs(std::uint32_t index, bool free) noexcept {
  auto& word = rowWords_[index / 64];
  auto const bit = std::uint64_t{1} << (index % 64);
  auto const summaryBit = std::uint64_t{1} << (index / 64 % 64);
  if (free) {
    word |= bit;
    summary_[index / 64 / 64] |= summaryBit;
    ++freeCount_;
  } else {
    word &= ~bit;
    if (word == 0) {
      summary_[index / 64 / 64] &= ~summaryBit;
    }
    --freeCount_;
  }
}

}  // namespace Chip
