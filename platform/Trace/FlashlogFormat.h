#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
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

// The encoding of a format-table entry in a Flashlog file (native byte order, padded to a
// multiple of 8 bytes):
//   u32 entry bytes | u32 format id | u8 level | u8 0 | u16 facility bytes | u32 elements
//   facility bytes, then per element: u8 kind, and for a fragment u32 length and its bytes.
std::string encodeFormatEntry(FormatId id, Format const& format);

struct DecodedFormatEntry {
  FormatId id = 0;
  Format format;
  std::size_t entryBytes = 0;
};

// Decodes the entry at the start of bytes. Throws FlashlogError naming the problem (the
// caller adds where the entry is).
DecodedFormatEntry decodeFormatEntry(std::span<char const> bytes);

}  // namespace Trace
