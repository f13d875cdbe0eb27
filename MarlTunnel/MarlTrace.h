#pragma once

#include "Loom/Assert.h"
#include "Trace/Trace.h"

namespace Hardware::MarlTunnel {

// The library's trace facility, "MarlTunnel".
Trace::Facility& marlTunnelFacility();

// Trace levels of the library. Every handler and programming operation traces its entry at
// kTraceDetail; start-up at kTraceStartup; conditions an operator may be chasing (allocation
// failures, groups refused under VXLAN, entries the hardware holds but the configuration does
// not) at kTraceNotable, where they arise. A caller that only notes that such an operation
// failed and goes on (addVlanTagInfo after addVplsPwIntfVlanDomain) traces that at
// kTraceDetail: the condition itself was traced at kTraceNotable by the operation.
inline constexpr int kTraceCleanSlate = 0;
inline constexpr int kTraceNotable = 1;
inline constexpr int kTraceStartup = 2;
inline constexpr int kTraceDetail = 8;

// The source unit named in the state machine's assertions.
inline constexpr char kDecapSmUnit[] = "MarlTunnel/MarlVplsPwIntfDecapSm";

}  // namespace Hardware::MarlTunnel

// One trace of the library: the fragments in order form one message.
#define MARL_TRACE(level, ...) \
  TRACE(::Hardware::MarlTunnel::marlTunnelFacility(), level, __VA_ARGS__)
