#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Trace {

// How one element of a trace message is stored in a Flashlog record and turned into text.
// The numeric values are part of the Flashlog file format: never renumber them.
enum class ArgKind : std::uint8_t {
  kFragment = 0,  // static text of the call site; stored once in the format table
  kSigned = 1,    // one word, two's complement; text: decimal
  kUnsigned = 2,  // one word; text: decimal
  kBool = 3,      // one word, 0 or 1; text: "0" or "1"
  kText = 4,      // bounded copy of a runtime string (at most kMaxTextBytes bytes)
  kIntfId = 5,    // one word, the raw 32-bit interface id; text: the id's name
  // One word, the id of a text registered once in the format table (Trace::StaticText); text:
  // the whole registered text.
  kStaticText = 6,
};

// Longest runtime text a Flashlog record keeps; longer text is cut to this many bytes. Static
// fragments and static texts are kept whole: they are in the file's table, not in records.
inline constexpr std::size_t kMaxTextBytes = 64;

// Whether a kind is a number in one word whose text appendNumeric writes.
constexpr bool isNumeric(ArgKind kind) noexcept {
  return kind == ArgKind::kSigned || kind == ArgKind::kUnsigned || kind == ArgKind::kBool ||
         kind == ArgKind::kIntfId;
}

constexpr bool isValidArgKind(std::uint8_t raw) noexcept {
  return raw <= static_cast<std::uint8_t>(ArgKind::kStaticText);
}

// Appends the text form of a numeric argument. Duallog and the Flashlog decoder both go
// through this one function, so a decoded record reads exactly like the Duallog line.
void appendNumeric(std::string& out, ArgKind kind, std::uint64_t raw);

}  // namespace Trace
