#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

namespace Chip {

// The index of a row of the chip's ingress LIF table (a local in-LIF). Rows 1 and up hold
// entries; 0 is no row. A value type: copied freely, on any thread.
class InLifRow {
 public:
  constexpr InLifRow() = default;
  explicit constexpr InLifRow(std::uint32_t value) noexcept : value_(value) {}

  constexpr std::uint32_t value() const noexcept { return value_; }
  constexpr bool isRow() const noexcept { return value_ != 0; }

  constexpr auto operator<=>(InLifRow const&) const = default;

 private:
  std::uint32_t value_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, InLifRow const& row) {
  return os << row.value();
}

}  // namespace Chip
