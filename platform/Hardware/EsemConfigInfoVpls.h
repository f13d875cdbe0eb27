#pragma once

#include <compare>
#include <cstdint>

#include "Hardware/Jericho2LifProfiles.h"

namespace Hardware::MarlTunnel {

// Value of a VPLS ESEM entry, one 32-bit word: the tag in bits 0-15, the edit profile in bits
// 16-23 and the out-LIF profile in bits 24-31.
class EsemConfigInfoVpls {
 public:
  constexpr EsemConfigInfoVpls() = default;
  constexpr EsemConfigInfoVpls(std::uint16_t tag, std::uint8_t editProfile,
                               Marl::Jericho2LifProfiles outLifProfile) noexcept
      : value_(std::uint32_t{tag} | (std::uint32_t{editProfile} << 16) |
               ((Marl::toValue(outLifProfile) & 0xffu) << 24)) {}

  constexpr std::uint32_t value() const noexcept { return value_; }
  constexpr std::uint16_t tag() const noexcept { return static_cast<std::uint16_t>(value_); }
  constexpr std::uint8_t editProfile() const noexcept {
    return static_cast<std::uint8_t>(value_ >> 16);
  }
  constexpr Marl::Jericho2LifProfiles outLifProfile() const noexcept {
    return static_cast<Marl::Jericho2LifProfiles>(value_ >> 24);
  }

  constexpr bool operator==(EsemConfigInfoVpls const&) const = default;

 private:
  std::uint32_t value_ = 0;
};

}  // namespace Hardware::MarlTunnel
