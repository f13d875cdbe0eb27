#include "Netcore/MplsLabel.h"

#include <charconv>

#include "Loom/RangeError.h"

namespace Netcore {

MplsLabel::MplsLabel(std::uint32_t value) : value_(value) {
  if (value > kNone) {
    throw Loom::RangeError("Netcore::MplsLabel::value > 1048576 not allowed");
  }
}

MplsLabel MplsLabel::fromString(std::string_view text) {
  std::uint64_t value = 0;
  auto const* end = text.data() + text.size();
  auto const [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec == std::errc::invalid_argument || ptr != end) {
    throw Loom::RangeError("Netcore::MplsLabel: '" + std::string(text) + "' is not a label");
  }
  if (ec == std::errc::result_out_of_range || value > kNone) {
    throw Loom::RangeError("Netcore::MplsLabel::value > 1048576 not allowed");
  }
  return MplsLabel(static_cast<std::uint32_t>(value));
}

}  // namespace Netcore
