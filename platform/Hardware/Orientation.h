#pragma once

#include <cstdint>

namespace Hardware::MarlTunnel {

// Split-horizon orientation of a pseudowire's in-LIF: 0 for a spoke, 1 to 7 for groups, and 8
// when allocation failed. Orientations 6 and 7 (groups 3 and 4) share hardware with VXLAN and
// are not allowed while VXLAN is present.
enum class Orientation : std::uint8_t {
  orientation0 = 0,
  orientation1 = 1,
  orientation2 = 2,
  orientation3 = 3,
  orientation4 = 4,
  orientation5 = 5,
  orientation6 = 6,
  orientation7 = 7,
  orientationAllocFailed = 8,
};

// The highest orientation that may be used while VXLAN is present.
inline constexpr Orientation kMaxOrientationWithVxlan = Orientation::orientation5;

constexpr std::uint8_t toValue(Orientation o) noexcept {
  return static_cast<std::uint8_t>(o);
}

}  // namespace Hardware::MarlTunnel
