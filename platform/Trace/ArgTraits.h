#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "Netcore/IntfId.h"
#include "Trace/ArgKind.h"

namespace Trace {

// How a value passed to TRACE (or to Cog::log) is stored and printed. Every specialisation
// provides:
//   static constexpr ArgKind kind;
//   numeric kinds:          static std::uint64_t raw(T const& v) noexcept;
//   kText and kFragment:    static std::string_view text(T const& v, std::string& scratch);
// text() may return a view into v or into scratch (for values that only have a text form).
// The primary template classifies by what the type offers (see DefaultArgTraits); a value
// type opts in to another treatment by specialising ArgTraits for itself.
template <class T>
struct ArgTraits;

namespace detail {

template <class T>
concept HasStr = requires(T const& v) {
  { v.str() } -> std::convertible_to<std::string_view>;
};

template <class T>
concept HasCStr = requires(T const& v) {
  { v.c_str() } -> std::convertible_to<char const*>;
};

template <class T>
concept HasIntegralValue = requires(T const& v) {
  v.value();
  requires std::integral<std::remove_cvref_t<decltype(v.value())>>;
};

template <class T>
concept HasToString = requires(T const& v) {
  { v.toString() } -> std::convertible_to<std::string>;
};

// A printable form written into a buffer that the caller reuses from one value to the next.
template <class T>
concept HasStrepInto = requires(T const& v, std::string& out) {
  v.strepInto(out);
};

template <class T>
inline constexpr bool kIsStaticFragment = false;
template <std::size_t N>
inline constexpr bool kIsStaticFragment<char const[N]> = true;

template <class T>
inline constexpr bool kIsCharBuffer = false;
template <std::size_t N>
inline constexpr bool kIsCharBuffer<char[N]> = true;

template <class T>
inline constexpr bool kIsRuntimeString =
    std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view> ||
    std::is_same_v<T, char const*> || std::is_same_v<T, char*>;

template <std::integral I>
constexpr ArgKind integralKind() {
  if constexpr (std::is_same_v<I, bool>) {
    return ArgKind::kBool;
  } else if constexpr (std::is_signed_v<I>) {
    return ArgKind::kSigned;
  } else {
    return ArgKind::kUnsigned;
  }
}

template <std::integral I>
constexpr std::uint64_t integralRaw(I v) noexcept {
  if constexpr (std::is_same_v<I, bool>) {
    return v ? 1 : 0;
  } else if constexpr (std::is_signed_v<I>) {
    // Sign-extend so that the decoder reads the same value back from the full word.
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(v));
  } else {
    return static_cast<std::uint64_t>(v);
  }
}

template <class T>
constexpr ArgKind defaultKind() {
  if constexpr (kIsStaticFragment<T>) {
    return ArgKind::kFragment;
  } else if constexpr (kIsCharBuffer<T> || kIsRuntimeString<T>) {
    return ArgKind::kText;
  } else if constexpr (std::integral<T>) {
    return integralKind<T>();
  } else if constexpr (std::is_enum_v<T>) {
    return integralKind<std::underlying_type_t<T>>();
  } else if constexpr (HasStr<T> || HasCStr<T>) {
    return ArgKind::kText;
  } else if constexpr (HasIntegralValue<T>) {
    return integralKind<std::remove_cvref_t<decltype(std::declval<T const&>().value())>>();
  } else if constexpr (HasToString<T> || HasStrepInto<T>) {
    return ArgKind::kText;
  } else {
    static_assert(sizeof(T) == 0,
                  "this type has no trace form: give it str(), c_str(), an integral value(), "
                  "toString(), strepInto(), or specialise Trace::ArgTraits for it");
    return ArgKind::kFragment;
  }
}

}  // namespace detail

// The classification every type gets unless ArgTraits is specialised for it, in this order:
// char const[N] (literals, static constexpr arrays): static fragment of the call site;
// char[N], std::string, std::string_view, char const*: runtime text;
// integral types and bool: numbers (uint8_t is a number, never a character);
// enums: their underlying integer; classes with str() or c_str(): runtime text;
// classes with an integral value(): that number; classes with toString(): that text; classes
// with strepInto(std::string&): the text it writes, into the record's scratch buffer.
template <class T>
struct DefaultArgTraits {
  static constexpr ArgKind kind = detail::defaultKind<T>();

  static std::uint64_t raw(T const& v) noexcept {
    if constexpr (std::integral<T>) {
      return detail::integralRaw(v);
    } else if constexpr (std::is_enum_v<T>) {
      return detail::integralRaw(static_cast<std::underlying_type_t<T>>(v));
    } else if constexpr (detail::HasIntegralValue<T>) {
      return detail::integralRaw(v.value());
    } else {
      return 0;
    }
  }

  static std::string_view text(T const& v, std::string& scratch) {
    if constexpr (detail::kIsStaticFragment<T> || detail::kIsCharBuffer<T>) {
      std::string_view const whole(v, std::extent_v<T>);
      return whole.substr(0, whole.find('\0'));
    } else if constexpr (std::is_same_v<T, char const*> || std::is_same_v<T, char*>) {
      return v != nullptr ? std::string_view(v) : std::string_view("(null)");
    } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>) {
      return v;
    } else if constexpr (detail::HasStr<T>) {
      if constexpr (std::is_lvalue_reference_v<decltype(v.str())>) {
        return v.str();
      } else {
        scratch = std::string(v.str());
        return scratch;
      }
    } else if constexpr (detail::HasCStr<T>) {
      char const* s = v.c_str();
      return s != nullptr ? std::string_view(s) : std::string_view("(null)");
    } else if constexpr (detail::HasToString<T>) {
      scratch = v.toString();
      return scratch;
    } else if constexpr (detail::HasStrepInto<T>) {
      v.strepInto(scratch);
      return scratch;
    } else {
      return {};
    }
  }
};

template <class T>
struct ArgTraits : DefaultArgTraits<T> {};

// Interface ids are stored as their raw 32 bits and printed by name, in Duallog and by the
// decoder alike.
template <>
struct ArgTraits<Netcore::IntfId> {
  static constexpr ArgKind kind = ArgKind::kIntfId;
  static std::uint64_t raw(Netcore::IntfId const& v) noexcept { return v.value(); }
};

// The type ArgTraits is looked up with for an argument expression of type A (as deduced by a
// forwarding reference): arrays keep their constness, so that a literal (char const[N]) is
// told apart from a writable buffer (char[N]); everything else loses reference and cv.
template <class A>
using ArgType = std::conditional_t<std::is_array_v<std::remove_reference_t<A>>,
                                   std::remove_reference_t<A>, std::remove_cvref_t<A>>;

template <class A>
inline constexpr ArgKind kArgKind = ArgTraits<ArgType<A>>::kind;

// Appends the text form of one argument, exactly as Duallog prints it.
template <class A>
void appendArgText(std::string& out, A const& v) {
  using Traits = ArgTraits<ArgType<A const&>>;
  if constexpr (isNumeric(Traits::kind)) {
    appendNumeric(out, Traits::kind, Traits::raw(v));
  } else {
    std::string scratch;
    out += Traits::text(v, scratch);
  }
}

// The text form of one argument; a static fragment gives its text.
template <class A>
std::string argText(A const& v) {
  std::string out;
  appendArgText(out, v);
  return out;
}

}  // namespace Trace
