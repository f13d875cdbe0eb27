#include "bench/scale/ScaleReport.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace Bench {
namespace {

constexpr std::uint64_t kReferenceEntries = 8192;
constexpr double kMiB = 1024.0 * 1024.0;

std::string formatted(char const* format, auto... values) {
  char line[256];
  std::snprintf(line, sizeof line, format, values...);
  return line;
}

std::vector<std::uint32_t> vlanCounts(ScaleResults const& results) {
  std::vector<std::uint32_t> counts;
  for (auto const& c : results.cases) {
    if (std::find(counts.begin(), counts.end(), c.vlans) == counts.end()) {
      counts.push_back(c.vlans);
    }
  }
  return counts;
}

void printCases(std::ostream& out, ScaleResults const& results) {
  out << formatted("%-9s %11s %5s %8s %9s %9s %10s %9s %7s %9s %10s %9s %12s\n", "case",
                   "pseudowires", "vlans", "entries", "cpu s", "wall s", "entries/s", "floor s",
                   "ratio", "hash s", "hash ratio", "ns/entry", "answer bytes");
  for (auto const& c : results.cases) {
    auto const bytes = c.answerBytes ? std::to_string(*c.answerBytes) : std::string("-");
    auto const hash = c.hashFloorSeconds ? formatted("%.4f", *c.hashFloorSeconds) : "-";
    auto const hashRatio = c.ratioToHashFloor() ? formatted("%.2f", *c.ratioToHashFloor()) : "-";
    out << formatted("%-9s %11u %5u %8llu %9.4f %9.4f %10.0f %9.4f %7.2f %9s %10s %9.0f %12s\n",
                     c.name.c_str(), c.pseudowires, c.vlans,
                     static_cast<unsigned long long>(c.entries), c.seconds, c.wallSeconds,
                     c.entriesPerSecond(), c.floorSeconds, c.ratioToFloor(), hash.c_str(),
                     hashRatio.c_str(), c.nanosecondsPerEntry(), bytes.c_str());
  }
  out << "floor s: the entries written into (teardown: erased from) the framework's collections;"
         " show: its answer\nthrough a file. hash s: the entries written into (erased from)"
         " unordered standard containers.\n";
}

void printGrowth(std::ostream& out, ScaleResults const& results) {
  out << "\ncost per entry at the largest size / at 8192 entries:\n";
  for (char const* name : {"program", "startup", "teardown", "show"}) {
    for (auto const vlans : vlanCounts(results)) {
      ScaleCase const* largest = nullptr;
      ScaleCase const* reference = nullptr;
      if (auto const growth = costGrowth(results, name, vlans, &largest, &reference)) {
        out << formatted("  %-9s %5u x %u vs %u x %u: %.2f\n", name, largest->pseudowires,
                         largest->vlans, reference->pseudowires, reference->vlans, *growth);
      }
    }
  }
}

void printMemory(std::ostream& out, ScaleResults const& results) {
  if (results.memory.empty()) {
    return;
  }
  out << "\npeak resident memory of the programmed state (fresh process per size):\n";
  out << formatted("  %11s %5s %8s %12s %10s %11s\n", "pseudowires", "vlans", "entries",
                   "baseline MiB", "peak MiB", "bytes/entry");
  for (auto const& m : results.memory) {
    out << formatted("  %11u %5u %8llu %12.1f %10.1f %11.0f\n", m.pseudowires, m.vlans,
                     static_cast<unsigned long long>(m.entries), m.baselineBytes / kMiB,
                     m.peakBytes / kMiB, m.bytesPerEntry());
  }
}

}  // namespace

std::optional<double> costGrowth(ScaleResults const& results, std::string const& name,
                                 std::uint32_t vlans, ScaleCase const** largest,
                                 ScaleCase const** reference) {
  ScaleCase const* top = nullptr;
  ScaleCase const* base = nullptr;
  for (auto const& c : results.cases) {
    if (c.name != name || c.vlans != vlans) {
      continue;
    }
    if (c.entries == kReferenceEntries) {
      base = &c;
    }
    if (!top || c.entries > top->entries) {
      top = &c;
    }
  }
  if (!top || !base || top == base || base->nanosecondsPerEntry() <= 0) {
    return std::nullopt;
  }
  if (largest) {
    *largest = top;
  }
  if (reference) {
    *reference = base;
  }
  return top->nanosecondsPerEntry() / base->nanosecondsPerEntry();
}

void printTable(std::ostream& out, ScaleResults const& results) {
  printCases(out, results);
  printGrowth(out, results);
  printMemory(out, results);
  for (auto const& reason : results.skipped) {
    out << "\nskipped: " << reason << '\n';
  }
}

void writeJson(std::filesystem::path const& file, ScaleResults const& results) {
  nlohmann::json cases = nlohmann::json::array();
  for (auto const& c : results.cases) {
    nlohmann::json one = {{"name", c.name},
                          {"pseudowires", c.pseudowires},
                          {"vlans", c.vlans},
                          {"entries", c.entries},
                          {"seconds", c.seconds},
                          {"wall_seconds", c.wallSeconds},
                          {"entries_per_second", c.entriesPerSecond()},
                          {"floor_seconds", c.floorSeconds},
                          {"ratio_to_floor", c.ratioToFloor()}};
    if (c.hashFloorSeconds) {
      one["hash_floor_seconds"] = *c.hashFloorSeconds;
    }
    if (auto const ratio = c.ratioToHashFloor()) {
      one["ratio_to_hash_floor"] = *ratio;
    }
    if (c.answerBytes) {
      one["answer_bytes"] = *c.answerBytes;
    }
    cases.push_back(std::move(one));
  }
  MemoryFigure const* largest = nullptr;
  for (auto const& m : results.memory) {
    if (!largest || m.entries > largest->entries) {
      largest = &m;
    }
  }
  nlohmann::json const document = {
      {"cases", std::move(cases)},
      {"bytes_per_entry", largest ? nlohmann::json(largest->bytesPerEntry()) : nlohmann::json()}};
  std::ofstream out(file);
  out << document.dump(2) << '\n';
  if (!out.flush()) {
    throw std::runtime_error("cannot write " + file.string());
  }
}

}  // namespace Bench
