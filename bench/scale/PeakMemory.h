#pragma once

#include <cstdint>

namespace Bench {

// The resident memory that one size's programmed state takes: baseline, the process's resident
// memory with a started agent and no configuration; peak, its high-water mark once the mix is
// programmed by notifications (inputs, outputs, the state machine's records, the allocator).
struct MemoryFigure {
  std::uint32_t pseudowires = 0;
  std::uint32_t vlans = 0;
  std::uint64_t entries = 0;
  std::uint64_t baselineBytes = 0;
  std::uint64_t peakBytes = 0;

  double bytesPerEntry() const {
    return entries > 0 && peakBytes > baselineBytes
               ? static_cast<double>(peakBytes - baselineBytes) / static_cast<double>(entries)
               : 0;
  }
};

// The option that makes this program a memory child.
inline constexpr char kMemoryChildOption[] = "--memory-child";

// Measures one size in a fresh process (this program run again with the child option), so
// that sizes share no heap. Throws std::runtime_error when the child fails.
MemoryFigure measurePeakMemory(std::uint32_t pseudowires, std::uint32_t vlans);

// The child's side: programs the size and prints "<baseline> <peak>" in bytes on stdout, read
// from VmRSS and VmHWM of /proc/self/status. Returns the exit code.
int runMemoryChild(std::uint32_t pseudowires, std::uint32_t vlans);

}  // namespace Bench
