#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

#include "Loom/Hash.h"
#include "Loom/TextForm.h"

namespace Hardware::MarlTunnel {

// Key of an ESEM entry requested for VPLS: (VLAN domain, VLAN id, third field). VPLS uses
// domains 5 to 9 and always 2046 in the third field.
class EsemConfigKeyVpls {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::EsemConfigKeyVpls";
  static constexpr std::uint16_t kVplsKeyField3 = 2046;

  EsemConfigKeyVpls() = default;
  EsemConfigKeyVpls(std::uint32_t vlanDomain, std::uint16_t vlanId,
                    std::uint16_t keyField3 = kVplsKeyField3) noexcept
      : vlanDomain_(vlanDomain), vlanId_(vlanId), keyField3_(keyField3) {}

  std::uint32_t vlanDomain() const noexcept { return vlanDomain_; }
  std::uint16_t vlanId() const noexcept { return vlanId_; }
  std::uint16_t keyField3() const noexcept { return keyField3_; }

  auto operator<=>(EsemConfigKeyVpls const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept {
    return Loom::hashValue(keyField3_,
                           Loom::hashValue(vlanId_, Loom::hashValue(vlanDomain_, seed)));
  }

  void writeText(Loom::TextWriter& w) const;
  static EsemConfigKeyVpls readText(Loom::TextReader& r);

 private:
  std::uint32_t vlanDomain_ = 0;
  std::uint16_t vlanId_ = 0;
  std::uint16_t keyField3_ = kVplsKeyField3;
};

}  // namespace Hardware::MarlTunnel
