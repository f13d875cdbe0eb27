#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "Loom/Errors.h"

namespace Loom {

// Seeded hashing for value types. A hashable value type has a member `std::size_t hash(
// std::size_t seed) const`; a type that declares `static constexpr bool hashable = false`
// refuses, and asking for its hash raises NotHashableError.
inline std::size_t hashCombine(std::size_t seed, std::size_t value) noexcept {
  // 64-bit variant of the classic mix; spreads small integer keys across buckets.
  return seed ^ (value + 0x9e3779b97f4a7c15ull + (seed << 12) + (seed >> 4));
}

inline std::size_t hashBytes(std::size_t seed, std::string_view bytes) noexcept {
  return hashCombine(seed, std::hash<std::string_view>{}(bytes));
}

template <std::integral T>
std::size_t hashValue(T const& v, std::size_t seed = 0) noexcept {
  return hashCombine(seed, static_cast<std::size_t>(v));
}

template <class T>
requires requires(T const& v, std::size_t s) {
  { v.hash(s) } -> std::convertible_to<std::size_t>;
}
std::size_t hashValue(T const& v, std::size_t seed = 0) {
  return v.hash(seed);
}

template <class T>
requires(!T::hashable) std::size_t hashValue(T const&, std::size_t = 0) {
  throw NotHashableError(T::typeName);
}

// Adapter for std::unordered_* containers.
template <class T>
struct Hasher {
  std::size_t operator()(T const& v) const { return hashValue(v); }
};

}  // namespace Loom
