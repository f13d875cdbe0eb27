#pragma once

#include <compare>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "Loom/Hash.h"
#include "Loom/RangeError.h"

namespace Loom {

// The framework's immutable string: set at construction, compared and hashed by value.
// Copies are independent values; there is no mutator.
class String {
 public:
  String() = default;
  String(char const* text) : value_(text ? text : "") {}
  String(std::string text) : value_(std::move(text)) {}
  String(std::string_view text) : value_(text) {}

  std::string const& str() const noexcept { return value_; }
  char const* c_str() const noexcept { return value_.c_str(); }
  std::string_view view() const noexcept { return value_; }
  std::size_t size() const noexcept { return value_.size(); }
  bool empty() const noexcept { return value_.empty(); }

  // Negative, zero or positive, like memcmp over the bytes.
  int compare(String const& other) const noexcept { return value_.compare(other.value_); }
  std::strong_ordering operator<=>(String const& other) const noexcept {
    // Keys of large collections hold short names that are mostly empty or differ in their
    // first byte; those are decided here, without the library's compare call.
    bool const empty = value_.empty();
    bool const otherEmpty = other.value_.empty();
    if (empty || otherEmpty) {
      return otherEmpty <=> empty;
    }
    auto const first = static_cast<unsigned char>(value_.front());
    auto const otherFirst = static_cast<unsigned char>(other.value_.front());
    if (first != otherFirst) {
      return first <=> otherFirst;
    }
    return value_ <=> other.value_;
  }
  bool operator==(String const& other) const noexcept = default;
  bool operator==(char const* other) const noexcept { return value_ == other; }

  std::size_t hash(std::size_t seed = 0) const noexcept { return hashBytes(seed, value_); }

 private:
  std::string value_;
};

inline std::ostream& operator<<(std::ostream& os, String const& s) {
  return os << s.str();
}

}  // namespace Loom

template <>
struct std::hash<Loom::String> {
  std::size_t operator()(Loom::String const& s) const noexcept { return s.hash(); }
};
