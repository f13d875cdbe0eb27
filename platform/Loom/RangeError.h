#pragma once

#include <stdexcept>
#include <string>

namespace Loom {

// Raised by a typed value whose constructor is given a value outside its range. `what()` is the
// type's fixed text, for example "Bridging::VlanId::value < 1 or > 4094 not allowed".
class RangeError : public std::range_error {
 public:
  explicit RangeError(std::string const& text) : std::range_error(text) {}
};

}  // namespace Loom
