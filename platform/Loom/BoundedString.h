#pragma once

#include <cstddef>

#include "Loom/Name.h"
#include "Loom/RangeError.h"
#include "Loom/String.h"

namespace Loom {

// A string attribute with a maximum length in bytes; longer text is refused with the
// framework's fixed range text.
template <std::size_t MaxLength>
class BoundedString {
 public:
  static constexpr std::size_t maxLength() noexcept { return MaxLength; }

  BoundedString() = default;
  BoundedString(String const& text) {
    if (text.size() > MaxLength) {
      throw RangeError("Cog::String::bytes > maxLength() not allowed");
    }
    value_ = Name(text);
  }
  BoundedString(char const* text) : BoundedString(String(text)) {}

  String const& value() const noexcept { return value_.str(); }
  std::string const& str() const noexcept { return value_.str().str(); }
  bool empty() const noexcept { return value_.empty(); }

  auto operator<=>(BoundedString const&) const = default;
  bool operator==(BoundedString const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept { return value_.hash(seed); }

 private:
  // Interned: such attributes are mostly the same few texts (often empty) in many entries.
  Name value_;
};

}  // namespace Loom
