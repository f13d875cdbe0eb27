#pragma once

namespace Hardware::MarlTunnel {

// Whether split-horizon groups are made per VLAN domain (the toggle
// "MarlTunnelSplitHorizonGroup" in the toggle file "MarlTunnel.json"; on unless the file
// turns it off). Read on first use, once per process, and cached: a later change of the file
// has no effect until the agent restarts. Threading: safe from any thread; the first callers
// wait for the one read.
bool toggleMarlTunnelSplitHorizonGroupEnabled();

}  // namespace Hardware::MarlTunnel
