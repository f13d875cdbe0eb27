#pragma once

#include <compare>
#include <string_view>

#include "Bridging/VlanId.h"
#include "Loom/TextForm.h"
#include "Netcore/IntfId.h"

namespace Fab {

// (pseudowire, VLAN): the key of a pseudowire's per-VLAN tag info and of its decap status.
// Ordered by pseudowire, then VLAN.
class VplsPwIntfVlanKey {
 public:
  static constexpr std::string_view typeName = "Fab::VplsPwIntfVlanKey";

  constexpr VplsPwIntfVlanKey(Netcore::IntfId pwIntfId, Bridging::VlanId vlanId) noexcept
      : pwIntfId_(pwIntfId), vlanId_(vlanId) {}

  constexpr Netcore::IntfId pwIntfId() const noexcept { return pwIntfId_; }
  constexpr Bridging::VlanId vlanId() const noexcept { return vlanId_; }

  constexpr auto operator<=>(VplsPwIntfVlanKey const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept {
    return vlanId_.hash(pwIntfId_.hash(seed));
  }

  void writeText(Loom::TextWriter& w) const;
  static VplsPwIntfVlanKey readText(Loom::TextReader& r);

 private:
  Netcore::IntfId pwIntfId_;
  Bridging::VlanId vlanId_;
};

}  // namespace Fab

template <>
struct std::hash<Fab::VplsPwIntfVlanKey> {
  std::size_t operator()(Fab::VplsPwIntfVlanKey const& k) const noexcept { return k.hash(); }
};
