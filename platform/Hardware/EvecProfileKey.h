#pragma once

#include <compare>
#include <cstdint>

namespace Hardware::MarlTunnel {

// Key of an EVEC (egress VLAN editing command) profile request: two 32-bit fields. VPLS asks
// for the profile (14, 25): the edit profile of a tagged ESEM entry and the tag pop/push
// application.
class EvecProfileKey {
 public:
  static constexpr std::uint32_t kVplsEditProfile = 14;
  static constexpr std::uint32_t kVplsVtApp = 25;

  constexpr EvecProfileKey() = default;
  constexpr EvecProfileKey(std::uint32_t first, std::uint32_t second) noexcept
      : first_(first), second_(second) {}

  constexpr std::uint32_t first() const noexcept { return first_; }
  constexpr std::uint32_t second() const noexcept { return second_; }

  constexpr auto operator<=>(EvecProfileKey const&) const = default;

 private:
  std::uint32_t first_ = 0;
  std::uint32_t second_ = 0;
};

}  // namespace Hardware::MarlTunnel
