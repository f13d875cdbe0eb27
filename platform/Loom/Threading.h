#pragma once

#include <atomic>

namespace Loom {

// Whether the framework currently runs several threads. While it does not, use counts change
// with plain loads and stores; once it does, with atomic read-modify-write operations. The
// agent switches this on before it starts a second thread and never back while threads run.
class Threading {
 public:
  static bool multiThreaded() noexcept { return multiThreaded_.load(std::memory_order_relaxed); }
  static void multiThreadedIs(bool on) noexcept {
    multiThreaded_.store(on, std::memory_order_seq_cst);
  }

 private:
  static inline std::atomic<bool> multiThreaded_{false};
};

}  // namespace Loom
