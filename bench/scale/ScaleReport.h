#pragma once

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "bench/scale/PeakMemory.h"
#include "bench/scale/ScaleCase.h"

namespace Bench {

// Everything one run of the scale benchmarks measured, and how it is shown: a table for people
// and a JSON file for tools.
struct ScaleResults {
  std::vector<ScaleCase> cases;
  std::vector<MemoryFigure> memory;
  // Cases that could not run, with the reason, e.g. the show case beyond the chip's in-LIF table.
  std::vector<std::string> skipped;
};

// Cost per entry of a case at its largest size over its cost at 8192 entries, per VLANs per
// pseudowire (1024 x 8 for 8 VLANs, 8192 x 1 for one); none when either size is missing.
std::optional<double> costGrowth(ScaleResults const& results, std::string const& name,
                                 std::uint32_t vlans, ScaleCase const** largest = nullptr,
                                 ScaleCase const** reference = nullptr);

// The cases, the growth of the cost per entry, the memory per entry and what was skipped.
void printTable(std::ostream& out, ScaleResults const& results);

// {"cases": [{"name", "pseudowires", "vlans", "entries", "seconds", "entries_per_second",
// "floor_seconds", "ratio_to_floor", "wall_seconds"} (show cases add "answer_bytes", the others
// "hash_floor_seconds" and "ratio_to_hash_floor")], "bytes_per_entry": N} with N at the largest
// size measured; seconds are CPU seconds. Throws std::runtime_error when the file cannot be
// written.
void writeJson(std::filesystem::path const& file, ScaleResults const& results);

}  // namespace Bench
