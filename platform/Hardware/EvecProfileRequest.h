#pragma once

#include <compare>
#include <cstdint>

#include "Hardware/EvecProfileKey.h"

namespace Hardware::MarlTunnel {

// An EVEC profile request: an 8-byte value of two 32-bit fields that is also its own key.
class EvecProfileRequest {
 public:
  constexpr EvecProfileRequest() = default;
  constexpr EvecProfileRequest(std::uint32_t first, std::uint32_t second) noexcept
      : key_(first, second) {}

  constexpr EvecProfileKey key() const noexcept { return key_; }
  constexpr std::uint32_t first() const noexcept { return key_.first(); }
  constexpr std::uint32_t second() const noexcept { return key_.second(); }

  constexpr bool operator==(EvecProfileRequest const&) const = default;

 private:
  EvecProfileKey key_;
};

}  // namespace Hardware::MarlTunnel
