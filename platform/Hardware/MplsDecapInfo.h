#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

#include "Hardware/Jericho2LifProfiles.h"
#include "Hardware/MplsDecapInfoKey.h"
#include "Loom/BoundedString.h"
#include "Loom/String.h"
#include "Loom/TextForm.h"

namespace Hardware::MarlTunnel {

// Value of an MPLS decapsulation entry, in the field order the table's consumer reads:
// name (at most 100 bytes), flag, HW FEC id, global in-LIF, in-LIF profile, a copy of the key,
// VLAN id, and two constant fields. What VPLS writes:
//   normal entry: FEC id and global in-LIF of the pseudowire, profile 10-14, the VLAN;
//   standby entry: FEC id, in-LIF and profile 0, VLAN field 1;
//   VTT2 entry: the pseudowire's global in-LIF, profile 15, VLAN field 1;
// and always name "", flag false, field8 0, field9 2.
class MplsDecapInfo {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::MplsDecapInfo";
  static constexpr std::size_t kNameMaxLength = 100;
  using Name = Loom::BoundedString<kNameMaxLength>;

  MplsDecapInfo() = default;
  explicit MplsDecapInfo(MplsDecapInfoKey key) : key_(key) {}

  Name const& name() const noexcept { return name_; }
  bool flag() const noexcept { return flag_; }
  std::uint64_t hwFecId() const noexcept { return hwFecId_; }
  std::uint32_t globalInLif() const noexcept { return globalInLif_; }
  Marl::Jericho2LifProfiles inLifProfile() const noexcept { return inLifProfile_; }
  MplsDecapInfoKey const& key() const noexcept { return key_; }
  std::uint16_t vlanId() const noexcept { return vlanId_; }
  std::uint8_t field8() const noexcept { return field8_; }
  std::uint16_t field9() const noexcept { return field9_; }

  MplsDecapInfo& nameIs(Name v) { return set(name_, std::move(v)); }
  MplsDecapInfo& flagIs(bool v) { return set(flag_, v); }
  MplsDecapInfo& hwFecIdIs(std::uint64_t v) { return set(hwFecId_, v); }
  MplsDecapInfo& globalInLifIs(std::uint32_t v) { return set(globalInLif_, v); }
  MplsDecapInfo& inLifProfileIs(Marl::Jericho2LifProfiles v) { return set(inLifProfile_, v); }
  MplsDecapInfo& keyIs(MplsDecapInfoKey v) { return set(key_, v); }
  MplsDecapInfo& vlanIdIs(std::uint16_t v) { return set(vlanId_, v); }
  MplsDecapInfo& field8Is(std::uint8_t v) { return set(field8_, v); }
  MplsDecapInfo& field9Is(std::uint16_t v) { return set(field9_, v); }

  bool operator==(MplsDecapInfo const&) const = default;

  void writeText(Loom::TextWriter& w) const;
  static MplsDecapInfo readText(Loom::TextReader& r);

 private:
  template <class T, class V>
  MplsDecapInfo& set(T& field, V&& v) {
    field = std::forward<V>(v);
    return *this;
  }

  Name name_;
  bool flag_ = false;
  std::uint64_t hwFecId_ = 0;
  std::uint32_t globalInLif_ = 0;
  Marl::Jericho2LifProfiles inLifProfile_ = Marl::Jericho2LifProfiles::noLifProfile_;
  MplsDecapInfoKey key_;
  std::uint16_t vlanId_ = 1;
  std::uint8_t field8_ = 0;
  std::uint16_t field9_ = 2;
};

}  // namespace Hardware::MarlTunnel
