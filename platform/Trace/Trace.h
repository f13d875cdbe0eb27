#pragma once

#include <string>

#include "Trace/ArgTraits.h"
#include "Trace/Duallog.h"
#include "Trace/Facility.h"
#include "Trace/Flashlog.h"
#include "Trace/FlashlogRecord.h"
#include "Trace/StaticText.h"

// TRACE(facility, level, fragments...): the one way to trace.
//
//   TRACE(marlTunnelFacility(), 8, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
//
// The variadic arguments are the pieces of one message in order. String literals and
// char const[N] arrays are the static fragments of the call site; everything else is an
// argument, classified by Trace::ArgTraits (numbers, enums, text, interface ids, static texts
// handed in by another function: Trace::StaticText). Every call
// records into the Flashlog; when the facility has the level enabled, the pieces are also
// joined, with nothing between them, into one Duallog line. The call site's format is
// registered once, on its first execution. level must be a constant 0..9. Each argument is
// evaluated exactly once. The arguments reach the helpers as lvalues, whose deduced types
// keep the const of arrays: that is what tells a literal from a writable buffer.
#define TRACE(facility, level, ...)                                                        \
  do {                                                                                     \
    static_assert((level) >= 0 && (level) <= ::Trace::kMaxLevel, "trace levels are 0..9"); \
    ::Trace::Facility& marlTraceFacility_ = (facility);                                    \
    [&marlTraceFacility_](auto&&... marlTraceArgs_) {                                      \
      static ::Trace::FormatId const marlTraceFormat_ =                                    \
          ::Trace::detail::callSiteFormat(marlTraceFacility_, (level), marlTraceArgs_...); \
      ::Trace::detail::record(marlTraceFormat_, marlTraceArgs_...);                        \
      if (marlTraceFacility_.enabled(level)) [[unlikely]] {                                \
        ::Trace::detail::emitLine(marlTraceArgs_...);                                      \
      }                                                                                    \
    }(__VA_ARGS__);                                                                        \
  } while (false)

namespace Trace::detail {

template <class A>
void addElement(Format& format, std::remove_reference_t<A> const& v) {
  if constexpr (kArgKind<A> == ArgKind::kFragment) {
    std::string scratch;
    format.elements.push_back(
        {ArgKind::kFragment, std::string(ArgTraits<ArgType<A>>::text(v, scratch))});
  } else {
    format.elements.push_back({kArgKind<A>, {}});
  }
}

// The format of a call site, registered with the Flashlog; runs once per call site.
template <class... A>
FormatId callSiteFormat(Facility const& facility, int level, A&&... args) {
  Format format{facility.name(), level, {}};
  (addElement<A>(format, args), ...);
  return Flashlog::formatIs(format);
}

template <class... A>
void emitLine(A const&... args) {
  std::string line;
  (appendArgText(line, args), ...);
  Duallog::write(line);
}

}  // namespace Trace::detail
