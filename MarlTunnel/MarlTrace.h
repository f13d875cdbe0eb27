#pragma once

#include <string>
#include <string_view>

#include "Hardware/LifProfileOrientationKey.h"
#include "Loom/Assert.h"
#include "Trace/Trace.h"

namespace Hardware::MarlTunnel {

// The library's trace facility, "MarlTunnel".
Trace::Facility& marlTunnelFacility();

// Trace levels of the library. Every handler and programming operation traces its entry at
// kTraceDetail; start-up at kTraceStartup; conditions an operator may be chasing (allocation
// failures, groups refused under VXLAN, entries the hardware holds but the configuration does
// not) at kTraceNotable.
inline constexpr int kTraceCleanSlate = 0;
inline constexpr int kTraceNotable = 1;
inline constexpr int kTraceStartup = 2;
inline constexpr int kTraceDetail = 8;

// The source unit named in the state machine's assertions.
inline constexpr char kDecapSmUnit[] = "MarlTunnel/MarlVplsPwIntfDecapSm";

}  // namespace Hardware::MarlTunnel

// An orientation key traces as its printable form, written straight into the record's text
// instead of through a temporary string per piece.
template <>
struct Trace::ArgTraits<Hardware::MarlTunnel::LifProfileOrientationKey> {
  static constexpr ArgKind kind = ArgKind::kText;
  static std::string_view text(Hardware::MarlTunnel::LifProfileOrientationKey const& key,
                               std::string& scratch) {
    key.strepInto(scratch);
    return scratch;
  }
};

// One trace of the library: the fragments in order form one message.
#define MARL_TRACE(level, ...) \
  TRACE(::Hardware::MarlTunnel::marlTunnelFacility(), level, __VA_ARGS__)
