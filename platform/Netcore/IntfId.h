#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Loom/Hash.h"
#include "Loom/TextForm.h"

namespace Netcore {

// Interface id: 32 bits, the interface kind in the top byte and its number below. This agent
// only meets pseudowire interfaces, named "Pseudowire<N>" with N from 1 to 65535, and the empty
// id (value 0, made from the empty string), which orders before every other id. Ids order by
// their value, so pseudowires order by N.
class IntfId {
 public:
  static constexpr std::uint32_t kPseudowireKind = 0x38000000u;
  static constexpr std::uint32_t kMaxPseudowire = 65535;

  constexpr IntfId() = default;
  // Parses an interface name; "" is the empty id. Anything else that is not "Pseudowire<N>"
  // (decimal N, 1..65535, no sign or leading zero) raises Loom::RangeError naming the text.
  explicit IntfId(std::string_view name);

  static IntfId pseudowire(std::uint32_t number);  // RangeError outside 1..65535
  // An id from its raw value, as stored in a trace record; not checked.
  static constexpr IntfId fromValue(std::uint32_t value) noexcept {
    IntfId id;
    id.value_ = value;
    return id;
  }

  constexpr std::uint32_t value() const noexcept { return value_; }
  constexpr bool empty() const noexcept { return value_ == 0; }
  constexpr bool isPseudowire() const noexcept {
    return (value_ & 0xff000000u) == kPseudowireKind && (value_ & 0xffffffu) != 0;
  }
  // N of "Pseudowire<N>"; 0 for an id that is not a pseudowire.
  constexpr std::uint32_t pseudowireNumber() const noexcept {
    return isPseudowire() ? (value_ & 0xffffffu) : 0;
  }

  // "Pseudowire<N>", "" for the empty id, "IntfId(0x...)" for anything this agent does not know.
  std::string toString() const;

  constexpr auto operator<=>(IntfId const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept { return Loom::hashValue(value_, seed); }

 private:
  std::uint32_t value_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, IntfId const& id) {
  return os << id.toString();
}

}  // namespace Netcore

template <>
struct Loom::TextCodec<Netcore::IntfId> {
  static void write(TextWriter& w, Netcore::IntfId const& v) { w.writeQuoted(v.toString()); }
  static Netcore::IntfId read(TextReader& r, std::string_view attr) {
    return Netcore::IntfId(r.readQuoted(attr));
  }
};

template <>
struct std::hash<Netcore::IntfId> {
  std::size_t operator()(Netcore::IntfId const& id) const noexcept { return id.hash(); }
};
