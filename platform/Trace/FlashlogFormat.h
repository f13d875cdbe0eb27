#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Trace/ArgKind.h"

namespace Trace {

using FormatId = std::uint32_t;

// One element of a message: a static fragment (kind kFragment, with its text) or an argument
// slot of the given kind (text empty).
struct FormatElement {
  ArgKind kind = ArgKind::kFragment;
  std::string text;

  bool operator==(FormatElement const&) const = default;
};

// The static description of one trace call site or log message: where it belongs (facility
// and level; logs use facility "Log" and their severity) and its elements in message order.
// Records carry only the format id and the argument values; the decoder rebuilds the text
// from this description.
struct Format {
  std::string facility;
  int level = 0;
  std::vector<FormatElement> elements;

  std::size_t argCount() const;
  bool operator==(Format const&) const = default;
};

// The encoding of an entry of the format table in a Flashlog file (native byte order, padded to
// a multiple of 8 bytes). The table holds the formats of call sites and the static texts that
// records refer to by id (Trace::StaticText); both take their ids from one sequence.
//   u32 entry bytes | u32 id | u8 level | u8 entry type | u16 facility bytes | u32 count
//   entry type 0, a format: count is the number of elements; the facility bytes, then per
//     element: u8 kind, and for a fragment u32 length and its bytes.
//   entry type 1, a static text: level and facility bytes 0, count is the text's length; then
//     the text's bytes.
std::string encodeFormatEntry(FormatId id, Format const& format);
std::string encodeStaticTextEntry(FormatId id, std::string_view text);

struct DecodedFormatEntry {
  FormatId id = 0;
  Format format;                          // of a format entry
  std::optional<std::string> staticText;  // of a static text entry (format then empty)
  std::size_t entryBytes = 0;
};

// Decodes the entry at the start of bytes. Throws FlashlogError naming the problem (the
// caller adds where the entry is).
DecodedFormatEntry decodeFormatEntry(std::span<char const> bytes);

}  // namespace Trace
