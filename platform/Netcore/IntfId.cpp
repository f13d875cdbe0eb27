#include "Netcore/IntfId.h"

#include <charconv>
#include <cstdio>

#include "Loom/RangeError.h"

namespace Netcore {
namespace {

constexpr std::string_view kPseudowirePrefix = "Pseudowire";

[[noreturn]] void badName(std::string_view name) {
  throw Loom::RangeError("Netcore::IntfId: '" + std::string(name) +
                         "' is not an interface name (expected Pseudowire<1..65535>)");
}

}  // namespace

IntfId::IntfId(std::string_view name) {
  if (name.empty()) {
    return;
  }
  if (!name.starts_with(kPseudowirePrefix)) {
    badName(name);
  }
  auto const digits = name.substr(kPseudowirePrefix.size());
  if (digits.empty() || digits.front() == '0' || digits.size() > 5) {
    badName(name);
  }
  std::uint32_t number = 0;
  auto const [ptr, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (ec != std::errc() || ptr != digits.data() + digits.size() || number > kMaxPseudowire) {
    badName(name);
  }
  value_ = kPseudowireKind | number;
}

IntfId IntfId::pseudowire(std::uint32_t number) {
  if (number < 1 || number > kMaxPseudowire) {
    throw Loom::RangeError("Netcore::IntfId: pseudowire number " + std::to_string(number) +
                           " not in 1..65535");
  }
  return fromValue(kPseudowireKind | number);
}

std::string IntfId::toString() const {
  if (empty()) {
    return {};
  }
  if (isPseudowire()) {
    return std::string(kPseudowirePrefix) + std::to_string(pseudowireNumber());
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "IntfId(0x%08x)", value_);
  return buf;
}

}  // namespace Netcore
