#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "Bridging/VlanId.h"
#include "Loom/Hash.h"
#include "Loom/RangeError.h"
#include "Loom/TextForm.h"

namespace Bridging {

// A VLAN id or none: 16 bits, 0 means none, 1 to 4094 a VLAN; larger values are refused.
class VlanIdOrNone {
 public:
  constexpr VlanIdOrNone() = default;
  explicit constexpr VlanIdOrNone(std::uint32_t value) : value_(static_cast<std::uint16_t>(value)) {
    if (value > 4094) {
      throw Loom::RangeError("Bridging::VlanIdOrNone::value > 4094 not allowed");
    }
  }
  constexpr VlanIdOrNone(VlanId vlan) noexcept : value_(vlan.value()) {}

  constexpr std::uint16_t value() const noexcept { return value_; }
  constexpr bool isNone() const noexcept { return value_ == 0; }
  std::string toString() const { return std::to_string(value_); }

  constexpr auto operator<=>(VlanIdOrNone const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept { return Loom::hashValue(value_, seed); }

 private:
  std::uint16_t value_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, VlanIdOrNone const& v) {
  return os << v.value();
}

}  // namespace Bridging

template <>
struct Loom::TextCodec<Bridging::VlanIdOrNone> {
  static void write(TextWriter& w, Bridging::VlanIdOrNone const& v) { w.writeUnsigned(v.value()); }
  static Bridging::VlanIdOrNone read(TextReader& r, std::string_view attr) {
    return Bridging::VlanIdOrNone(static_cast<std::uint32_t>(r.readUnsigned(attr, 0xffffffffu)));
  }
};
