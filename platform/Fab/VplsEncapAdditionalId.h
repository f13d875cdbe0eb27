#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "Loom/TextForm.h"

namespace Fab {

// The additional id that the encapsulation side of a pseudowire uses, derived from the
// pseudowire's split-horizon orientation.
class VplsEncapAdditionalId {
 public:
  constexpr VplsEncapAdditionalId() = default;
  explicit constexpr VplsEncapAdditionalId(std::uint16_t value) noexcept : value_(value) {}

  constexpr std::uint16_t value() const noexcept { return value_; }
  constexpr auto operator<=>(VplsEncapAdditionalId const&) const = default;

 private:
  std::uint16_t value_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, VplsEncapAdditionalId const& v) {
  return os << v.value();
}

}  // namespace Fab

template <>
struct Loom::TextCodec<Fab::VplsEncapAdditionalId> {
  static void write(TextWriter& w, Fab::VplsEncapAdditionalId const& v) {
    w.writeUnsigned(v.value());
  }
  static Fab::VplsEncapAdditionalId read(TextReader& r, std::string_view attr) {
    return Fab::VplsEncapAdditionalId(static_cast<std::uint16_t>(r.readUnsigned(attr, 0xffff)));
  }
};
