#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "Trace/ArgTraits.h"
#include "Trace/Flashlog.h"

namespace Trace {

// A text with static storage duration, typically a function's signature, handed on as an
// argument to a trace call site that is not its own: a helper that traces on behalf of its
// caller. It is registered once in the Flashlog's format table, like a call site's format, so
// that a record holds only its id (one word, nothing copied) and the decoder prints the whole
// text; Duallog prints the text itself. Made only by staticText<Text>(), whose template argument
// can only name an object with static storage duration: the text outlives every copy of the
// value, and its id is registered before any record refers to it.
// Threading: a plain value; staticText() may be called from any thread.
class StaticText {
 public:
  std::string_view text() const noexcept { return text_; }
  // Its id in the Flashlog's table; layout::kUnrecordedFormat when the table's ids ran out.
  FormatId id() const noexcept { return id_; }

 private:
  template <auto const& Text>
  friend StaticText staticText();

  StaticText(std::string_view text, FormatId id) noexcept : text_(text), id_(id) {}

  std::string_view text_;
  FormatId id_;
};

// The static text of a constexpr character array with static storage duration (at namespace
// scope or a static local, such as a function's kSig), up to its first NUL:
//   requestOrientation(key, Trace::staticText<kSig>(), ...);
// The text is registered on the first call for that array; later calls cost one check.
template <auto const& Text>
StaticText staticText() {
  using Array = std::remove_cvref_t<decltype(Text)>;
  static_assert(std::is_array_v<Array> && std::is_same_v<std::remove_extent_t<Array>, char>,
                "a static text is a character array");
  constexpr std::string_view whole(Text, std::extent_v<Array>);
  constexpr std::string_view text = whole.substr(0, whole.find('\0'));
  static FormatId const id = Flashlog::staticTextIs(text);
  return StaticText(text, id);
}

// Recorded as its id, printed as its whole text.
template <>
struct ArgTraits<StaticText> {
  static constexpr ArgKind kind = ArgKind::kStaticText;
  static std::uint64_t raw(StaticText const& v) noexcept { return v.id(); }
  static std::string_view text(StaticText const& v, std::string&) noexcept { return v.text(); }
};

}  // namespace Trace
