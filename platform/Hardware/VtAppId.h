#pragma once

#include <cstdint>

namespace Hardware::Marl {

// Tag pop/push applications of the chip's VLAN translation. VPLS decapsulation needs one,
// enabled while any VLAN of a VPLS instance has its ESEM entries.
enum class VtAppId : std::uint32_t {
  vplsPwTagPopPush = 25,
};

}  // namespace Hardware::Marl
