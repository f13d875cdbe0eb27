#pragma once

#include <time.h>

#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#else
#include <chrono>
#endif

namespace Trace {

// The time bases of Flashlog records. A precise wall-clock read costs more than the whole
// rest of a record, so records carry one of two cheap stamps:
//  - coarseNs(): wall-clock nanoseconds as of the last kernel tick (a few ns to read; the
//    resolution is the kernel tick, typically 1 to 4 ms);
//  - ticks(): the cycle counter on x86 (constant rate, in step across cores on any machine
//    this agent runs on), monotonic nanoseconds elsewhere. Resolution well below a
//    microsecond, but reading it costs about 10 ns on some virtual machines. A file stamped
//    with ticks carries anchors (ticks, wall-clock nanoseconds) and the tick rate, from which
//    the decoder turns ticks back into wall-clock time.
// Threading: all functions are safe from any thread.
class Clock {
 public:
  static std::uint64_t coarseNs() noexcept {
    timespec ts{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &ts);
    return static_cast<std::uint64_t>(ts.tv_sec) * 1'000'000'000u +
           static_cast<std::uint64_t>(ts.tv_nsec);
  }

  static std::uint64_t ticks() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
#endif
  }

  // Ticks per second, measured once per process against the monotonic clock (a few
  // milliseconds, on first use).
  static double ticksPerSecond();

  // Wall-clock time in nanoseconds since the epoch.
  static std::int64_t realtimeNs() noexcept;
};

}  // namespace Trace
