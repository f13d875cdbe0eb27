#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "Loom/Hash.h"
#include "Loom/TextForm.h"

namespace Fab {

// A hardware FEC index as published for a pseudowire: 64 bits, the low 32 bits the HW FEC id,
// the high 32 bits the global in-LIF. All ones means absent, and is the default.
class NexthopIndex {
 public:
  static constexpr std::uint64_t kInvalid = ~std::uint64_t{0};

  constexpr NexthopIndex() = default;
  explicit constexpr NexthopIndex(std::uint64_t value) noexcept : value_(value) {}
  constexpr NexthopIndex(std::uint32_t hwFecId, std::uint32_t globalInLif) noexcept
      : value_((std::uint64_t{globalInLif} << 32) | hwFecId) {}

  constexpr std::uint64_t value() const noexcept { return value_; }
  constexpr std::uint32_t hwFecId() const noexcept { return static_cast<std::uint32_t>(value_); }
  constexpr std::uint32_t globalInLif() const noexcept {
    return static_cast<std::uint32_t>(value_ >> 32);
  }
  constexpr bool valid() const noexcept { return value_ != kInvalid; }

  constexpr auto operator<=>(NexthopIndex const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept { return Loom::hashValue(value_, seed); }

 private:
  std::uint64_t value_ = kInvalid;
};

inline std::ostream& operator<<(std::ostream& os, NexthopIndex const& n) {
  return os << n.value();
}

}  // namespace Fab

template <>
struct Loom::TextCodec<Fab::NexthopIndex> {
  static void write(TextWriter& w, Fab::NexthopIndex const& v) { w.writeUnsigned(v.value()); }
  static Fab::NexthopIndex read(TextReader& r, std::string_view attr) {
    return Fab::NexthopIndex(r.readUnsigned(attr, Fab::NexthopIndex::kInvalid));
  }
};
