#include "Trace/Clock.h"

#include <time.h>

namespace Trace {
namespace {

std::int64_t monotonicNs() noexcept {
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC_RAW, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

// One (ticks, monotonic ns) pair. The clock read is bracketed by two tick reads and paired
// with their midpoint, which keeps the pairing error to half the bracket.
struct Sample {
  double ticks;
  std::int64_t ns;
};

Sample sample() noexcept {
  std::uint64_t const before = Clock::ticks();
  std::int64_t const ns = monotonicNs();
  std::uint64_t const after = Clock::ticks();
  return {static_cast<double>(before) + static_cast<double>(after - before) / 2, ns};
}

double measureTicksPerSecond() {
#if defined(__x86_64__) || defined(__i386__)
  // 2 ms keeps start-up quick; the anchors written into the ring correct the drift that the
  // remaining error would cause over hours.
  constexpr std::int64_t kCalibrationNs = 2'000'000;
  Sample const first = sample();
  timespec const pause{0, kCalibrationNs};
  ::nanosleep(&pause, nullptr);
  Sample const last = sample();
  double const elapsedNs = static_cast<double>(last.ns - first.ns);
  if (elapsedNs <= 0 || last.ticks <= first.ticks) {
    return 1e9;
  }
  return (last.ticks - first.ticks) * 1e9 / elapsedNs;
#else
  return 1e9;
#endif
}

}  // namespace

double Clock::ticksPerSecond() {
  static double const rate = measureTicksPerSecond();
  return rate;
}

std::int64_t Clock::realtimeNs() noexcept {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

}  // namespace Trace
