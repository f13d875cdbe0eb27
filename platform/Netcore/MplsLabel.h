#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Loom/Hash.h"
#include "Loom/TextForm.h"

namespace Netcore {

// An MPLS label: 32 bits holding a 20-bit label. 0x100000 (1048576, one above the largest
// label) means "no label": it is the default, what a lookup of an absent label yields and what
// a deleted label is reset to. Larger values raise Loom::RangeError.
class MplsLabel {
 public:
  static constexpr std::uint32_t kMaxLabel = 0xfffff;
  static constexpr std::uint32_t kNone = 0x100000;

  constexpr MplsLabel() = default;
  explicit MplsLabel(std::uint32_t value);

  // The label's own text parser: decimal digits only; out of range raises Loom::RangeError,
  // anything that is not a number raises Loom::RangeError naming the text.
  static MplsLabel fromString(std::string_view text);

  constexpr std::uint32_t value() const noexcept { return value_; }
  constexpr bool isLabel() const noexcept { return value_ != kNone; }
  std::string toString() const { return std::to_string(value_); }

  constexpr auto operator<=>(MplsLabel const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept { return Loom::hashValue(value_, seed); }

 private:
  std::uint32_t value_ = kNone;
};

inline std::ostream& operator<<(std::ostream& os, MplsLabel const& l) {
  return os << l.value();
}

}  // namespace Netcore

template <>
struct Loom::TextCodec<Netcore::MplsLabel> {
  static void write(TextWriter& w, Netcore::MplsLabel const& v) { w.writeUnsigned(v.value()); }
  static Netcore::MplsLabel read(TextReader& r, std::string_view attr) {
    return Netcore::MplsLabel::fromString(r.readToken(attr));
  }
};
