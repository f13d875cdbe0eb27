#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Bench {

// One measurement: the CPU time of the measuring thread and the wall time it took.
struct Timing {
  double seconds = 0;
  double wallSeconds = 0;
};

// The figures of one case at one size: its time (CPU and wall), the CPU time of its floors in
// the same run, and for the show case the length of the answer. The floor writes (or erases)
// the case's output entries into the framework's collections; the hash floor does the same with
// unordered standard containers, which the show case has no counterpart of.
struct ScaleCase {
  std::string name;
  std::uint32_t pseudowires = 0;
  std::uint32_t vlans = 0;
  std::uint64_t entries = 0;
  double seconds = 0;
  double wallSeconds = 0;
  double floorSeconds = 0;
  std::optional<double> hashFloorSeconds;
  std::optional<std::uint64_t> answerBytes;

  double entriesPerSecond() const { return seconds > 0 ? entries / seconds : 0; }
  double ratioToFloor() const { return floorSeconds > 0 ? seconds / floorSeconds : 0; }
  std::optional<double> ratioToHashFloor() const {
    if (!hashFloorSeconds || *hashFloorSeconds <= 0) {
      return std::nullopt;
    }
    return seconds / *hashFloorSeconds;
  }
  double nanosecondsPerEntry() const { return entries > 0 ? seconds * 1e9 / entries : 0; }
};

}  // namespace Bench
