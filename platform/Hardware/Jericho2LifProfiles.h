#pragma once

#include <cstdint>

namespace Hardware::Marl {

// The chip's LIF profiles that VPLS uses. In-LIF profiles 10 to 14 carry a pseudowire's
// split-horizon orientation (10 for a spoke, 11 to 14 for the four mesh groups); 15 is the
// profile of a VLAN-aware pseudowire's VTT2 entry; 21 to 25 are the out-LIF profiles of the
// five ESEM entries of a VLAN.
enum class Jericho2LifProfiles : std::uint32_t {
  noLifProfile_ = 0,
  vplsSpokeInLifProfile_ = 10,
  vplsMeshInLifProfile1_ = 11,
  vplsMeshInLifProfile2_ = 12,
  vplsMeshInLifProfile3_ = 13,
  vplsMeshInLifProfile4_ = 14,
  vplsVtt2InLifProfile_ = 15,
  vplsEsemOutLifProfile1_ = 21,
  vplsEsemOutLifProfile2_ = 22,
  vplsEsemOutLifProfile3_ = 23,
  vplsEsemOutLifProfile4_ = 24,
  vplsEsemOutLifProfile5_ = 25,
};

constexpr std::uint32_t toValue(Jericho2LifProfiles p) noexcept {
  return static_cast<std::uint32_t>(p);
}

}  // namespace Hardware::Marl
