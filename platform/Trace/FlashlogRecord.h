#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "Trace/ArgTraits.h"
#include "Trace/Flashlog.h"

// Encoding of one trace call's arguments into a Flashlog record (layout in FlashlogLayout.h).
// Static fragments are not stored: they are in the format table. A message whose arguments
// are all numbers or static texts (one word, the text's id) is a fixed number of plain stores
// with no branch on the values; runtime text arguments cost a copy of at most kMaxTextBytes
// bytes each.
namespace Trace::detail {

template <class A>
inline constexpr bool kIsSlot = kArgKind<A> != ArgKind::kFragment;
template <class A>
inline constexpr bool kIsTextSlot = kArgKind<A> == ArgKind::kText;

inline void putText(Ring const& ring, std::uint64_t& at, std::string_view text) noexcept {
  std::size_t const n = std::min(text.size(), kMaxTextBytes);
  ring.put(at++, n);
  for (std::size_t i = 0; i < n; i += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + i, std::min<std::size_t>(8, n - i));
    ring.put(at++, word);
  }
}

template <class A, std::size_t N>
void prepareText(std::remove_reference_t<A> const& v, std::array<std::string, N>& scratch,
                 std::array<std::string_view, N>& views, std::size_t& next) {
  if constexpr (kIsTextSlot<A>) {
    views[next] = ArgTraits<ArgType<A>>::text(v, scratch[next]);
    ++next;
  }
}

template <class A, std::size_t N>
void putArg(Ring const& ring, std::uint64_t& at, std::remove_reference_t<A> const& v,
            std::array<std::string_view, N> const& views, std::size_t& next) noexcept {
  if constexpr (kIsTextSlot<A>) {
    putText(ring, at, views[next++]);
  } else if constexpr (kIsSlot<A>) {
    ring.put(at++, ArgTraits<ArgType<A>>::raw(v));
  }
}

// Records one message. A is deduced by forwarding reference so that literals (char const[N])
// are told apart from writable buffers.
template <class... A>
void record(FormatId id, A&&... args) {
  constexpr std::size_t kSlots = (std::size_t{kIsSlot<A>} + ... + 0);
  constexpr std::size_t kTexts = (std::size_t{kIsTextSlot<A>} + ... + 0);
  static_assert(
      2 + kSlots + kTexts * (layout::textWords(kMaxTextBytes) - 1) <= layout::kMaxRecordWords,
      "too many arguments for one trace record");
  if (id == layout::kUnrecordedFormat) [[unlikely]] {
    return;
  }
  std::array<std::string, kTexts> scratch;
  std::array<std::string_view, kTexts> views;
  std::uint64_t words = 2 + kSlots;
  if constexpr (kTexts > 0) {
    std::size_t next = 0;
    (prepareText<A>(args, scratch, views, next), ...);
    for (std::string_view v : views) {
      words += layout::textWords(std::min(v.size(), kMaxTextBytes)) - 1;
    }
  }
  Ring const& r = ring();
  std::uint64_t const position = r.reserve(words);
  std::uint64_t at = position + 1;
  r.put(at++, r.now());
  std::size_t next = 0;
  (putArg<A>(r, at, args, views, next), ...);
  r.commit(position, words, id);
}

}  // namespace Trace::detail
