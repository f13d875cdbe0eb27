#pragma once

#include "Cog/Log.h"

namespace Hardware::MarlTunnel {

// The library's log-message table: the structured messages it can write with Cog::log, for
// the operator. Each handle is registered with Cog when the library is loaded.

// Arguments: the split-horizon (PW) group name, then the VPLS instance name.
extern Cog::LogHandle const MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN;

}  // namespace Hardware::MarlTunnel
