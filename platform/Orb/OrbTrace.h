#pragma once

#include "Trace/Trace.h"

namespace Orb {

// The agent services' trace facility, "Orb".
Trace::Facility& orbFacility();

// Trace levels of the agent services: failures of the services themselves at kOrbTraceError;
// clients that misbehave or vanish (refused requests, timeouts, resets) at kOrbTraceClient;
// every connection's coming and going at kOrbTraceDetail.
inline constexpr int kOrbTraceError = 1;
inline constexpr int kOrbTraceClient = 5;
inline constexpr int kOrbTraceDetail = 8;

}  // namespace Orb
