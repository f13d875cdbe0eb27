#pragma once

namespace Hardware::MarlTunnel::detail {

// Forgets the cached split-horizon toggle, so that the next call reads the toggle file again.
// For tests only: an agent reads the toggle once per process.
void resetSplitHorizonToggleCacheForTest();

}  // namespace Hardware::MarlTunnel::detail
