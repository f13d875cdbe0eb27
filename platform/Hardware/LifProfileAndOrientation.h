#pragma once

#include <compare>

#include "Hardware/Jericho2LifProfiles.h"
#include "Hardware/Orientation.h"

namespace Hardware::MarlTunnel {

// The allocator's answer to an orientation request: the in-LIF profile and the orientation.
// Orientation 8 (with profile 0) means the allocation failed.
class LifProfileAndOrientation {
 public:
  constexpr LifProfileAndOrientation() = default;
  constexpr LifProfileAndOrientation(Marl::Jericho2LifProfiles inLifProfile,
                                     Orientation orientation) noexcept
      : inLifProfile_(inLifProfile), orientation_(orientation) {}

  constexpr Marl::Jericho2LifProfiles inLifProfile() const noexcept { return inLifProfile_; }
  constexpr Orientation orientation() const noexcept { return orientation_; }

  constexpr bool operator==(LifProfileAndOrientation const&) const = default;

 private:
  Marl::Jericho2LifProfiles inLifProfile_ = Marl::Jericho2LifProfiles::noLifProfile_;
  Orientation orientation_ = Orientation::orientation0;
};

}  // namespace Hardware::MarlTunnel
