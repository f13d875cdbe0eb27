#include "MarlTunnel/SplitHorizonToggle.h"

#include <atomic>
#include <mutex>

#include "Cog/Toggle.h"
#include "MarlTunnel/detail/SplitHorizonToggleForTest.h"

namespace Hardware::MarlTunnel {
namespace {

constexpr int kUnread = -1;

// The cached state (0 or 1), kUnread until the first call reads the file. A mutex rather
// than std::call_once, because tests must be able to forget the value.
std::atomic<int> cachedState{kUnread};
std::mutex readMutex;

}  // namespace

bool toggleMarlTunnelSplitHorizonGroupEnabled() {
  int state = cachedState.load(std::memory_order_acquire);
  if (state == kUnread) [[unlikely]] {
    std::lock_guard lock(readMutex);
    state = cachedState.load(std::memory_order_relaxed);
    if (state == kUnread) {
      state = static_cast<int>(
                  Cog::getToggleState("MarlTunnelSplitHorizonGroup", "MarlTunnel.json", true)) &
              1;
      cachedState.store(state, std::memory_order_release);
    }
  }
  return state != 0;
}

namespace detail {

void resetSplitHorizonToggleCacheForTest() {
  std::lock_guard lock(readMutex);
  cachedState.store(kUnread, std::memory_order_release);
}

}  // namespace detail

}  // namespace Hardware::MarlTunnel
