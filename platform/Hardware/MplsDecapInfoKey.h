#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

#include "Bridging/VlanIdOrNone.h"
#include "Loom/TextForm.h"
#include "Netcore/MplsLabel.h"

namespace Hardware::MarlTunnel {

// Key of an MPLS decapsulation entry: (label, inner 802.1Q tag, third field). A pseudowire's
// normal entry has the VLAN's normalised tag, a standby entry tag 0, a VTT2 entry the VLAN id
// itself; the third field is always 0 for VPLS.
class MplsDecapInfoKey {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::MplsDecapInfoKey";

  MplsDecapInfoKey() = default;
  MplsDecapInfoKey(Netcore::MplsLabel label, Bridging::VlanIdOrNone innerDot1QTag,
                   std::uint8_t keyField3 = 0) noexcept
      : label_(label), innerDot1QTag_(innerDot1QTag), keyField3_(keyField3) {}

  Netcore::MplsLabel label() const noexcept { return label_; }
  Bridging::VlanIdOrNone innerDot1QTag() const noexcept { return innerDot1QTag_; }
  std::uint8_t keyField3() const noexcept { return keyField3_; }

  auto operator<=>(MplsDecapInfoKey const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept {
    return Loom::hashValue(keyField3_, innerDot1QTag_.hash(label_.hash(seed)));
  }

  void writeText(Loom::TextWriter& w) const;
  static MplsDecapInfoKey readText(Loom::TextReader& r);

 private:
  Netcore::MplsLabel label_;
  Bridging::VlanIdOrNone innerDot1QTag_;
  std::uint8_t keyField3_ = 0;
};

}  // namespace Hardware::MarlTunnel

template <>
struct std::hash<Hardware::MarlTunnel::MplsDecapInfoKey> {
  std::size_t operator()(Hardware::MarlTunnel::MplsDecapInfoKey const& k) const noexcept {
    return k.hash();
  }
};
