#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include "Hardware/VlanAndVplsKey.h"
#include "Netcore/IntfId.h"

namespace Hardware::MarlTunnel {

// Key of one orientation request: the split-horizon group (VlanAndVplsKey) and the pseudowire
// that asks. Several pseudowires of one group make one request each; the allocator gives all
// requests of a group the same orientation.
class LifProfileOrientationKey {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::LifProfileOrientationKey";

  LifProfileOrientationKey() = default;
  LifProfileOrientationKey(VlanAndVplsKey group, Netcore::IntfId pwIntfId)
      : group_(std::move(group)), pwIntfId_(pwIntfId) {}

  VlanAndVplsKey const& vlanAndVplsKey() const noexcept { return group_; }
  Loom::String const& instanceName() const noexcept { return group_.instanceName(); }
  std::uint16_t vlanId() const noexcept { return group_.vlanId(); }
  Loom::String const& groupName() const noexcept { return group_.groupName(); }
  bool splitHorizon() const noexcept { return group_.splitHorizon(); }
  Netcore::IntfId pwIntfId() const noexcept { return pwIntfId_; }

  auto operator<=>(LifProfileOrientationKey const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept {
    return pwIntfId_.hash(group_.hash(seed));
  }

  // Printable form for traces: "(instance, vlan, group, 0|1, Pseudowire<N>)".
  std::string toStrep() const;
  // Replaces `out` with the printable form; `out` keeps its storage from one use to the next.
  void strepInto(std::string& out) const;

  void writeText(Loom::TextWriter& w) const;
  static LifProfileOrientationKey readText(Loom::TextReader& r);

 private:
  VlanAndVplsKey group_;
  Netcore::IntfId pwIntfId_;
};

}  // namespace Hardware::MarlTunnel

template <>
struct std::hash<Hardware::MarlTunnel::LifProfileOrientationKey> {
  std::size_t operator()(Hardware::MarlTunnel::LifProfileOrientationKey const& k) const noexcept {
    return k.hash();
  }
};
