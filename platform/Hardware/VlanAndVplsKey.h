#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include "Loom/Name.h"
#include "Loom/String.h"
#include "Loom/TextForm.h"

namespace Hardware::MarlTunnel {

// The split-horizon group part of an orientation key: (instance name, VLAN, group name, split
// horizon). An instance-wide group has VLAN 0 and the instance name; a per-VLAN-domain group
// has the VLAN and an empty instance name. The VLAN is checked like a VLAN id or none: above
// 4094 raises "Bridging::VlanIdOrNone::value > 4094 not allowed".
class VlanAndVplsKey {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::VlanAndVplsKey";

  VlanAndVplsKey() = default;
  VlanAndVplsKey(Loom::String const& instanceName, std::uint16_t vlanId,
                 Loom::String const& groupName, bool splitHorizon);

  Loom::String const& instanceName() const noexcept { return instanceName_.str(); }
  std::uint16_t vlanId() const noexcept { return vlanId_; }
  Loom::String const& groupName() const noexcept { return groupName_.str(); }
  // The same names as interned handles, for lookups that only need equality and a hash.
  Loom::Name const& instanceNameHandle() const noexcept { return instanceName_; }
  Loom::Name const& groupNameHandle() const noexcept { return groupName_; }
  bool splitHorizon() const noexcept { return splitHorizon_; }

  auto operator<=>(VlanAndVplsKey const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept;

  // Printable form for traces and log messages: "(instance, vlan, group, 0|1)".
  std::string toStrep() const;
  // Appends the printable form without its closing parenthesis.
  void appendStrepOpen(std::string& out) const;

  void writeText(Loom::TextWriter& w) const;
  static VlanAndVplsKey readText(Loom::TextReader& r);

 private:
  // Interned: hundreds of thousands of keys share a few thousand names.
  Loom::Name instanceName_;
  std::uint16_t vlanId_ = 0;
  Loom::Name groupName_;
  bool splitHorizon_ = false;
};

}  // namespace Hardware::MarlTunnel
