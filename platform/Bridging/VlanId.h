#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "Loom/Hash.h"
#include "Loom/RangeError.h"
#include "Loom/TextForm.h"

namespace Bridging {

// A VLAN id: 16 bits, valid 1 to 4094. There is no default: a VLAN id is always a VLAN.
class VlanId {
 public:
  explicit constexpr VlanId(std::uint32_t value) : value_(static_cast<std::uint16_t>(value)) {
    if (value < 1 || value > 4094) {
      throw Loom::RangeError("Bridging::VlanId::value < 1 or > 4094 not allowed");
    }
  }

  constexpr std::uint16_t value() const noexcept { return value_; }
  std::string toString() const { return std::to_string(value_); }

  constexpr auto operator<=>(VlanId const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept { return Loom::hashValue(value_, seed); }

 private:
  std::uint16_t value_;
};

inline std::ostream& operator<<(std::ostream& os, VlanId const& v) {
  return os << v.value();
}

}  // namespace Bridging

template <>
struct Loom::TextCodec<Bridging::VlanId> {
  static void write(TextWriter& w, Bridging::VlanId const& v) { w.writeUnsigned(v.value()); }
  static Bridging::VlanId read(TextReader& r, std::string_view attr) {
    // Read wide so that 0 and 65536 reach the VLAN's own range check.
    return Bridging::VlanId(static_cast<std::uint32_t>(r.readUnsigned(attr, 0xffffffffu)));
  }
};
