// vpls_scale_bench: the VPLS decap agent at chip scale. For every size P x V (P pseudowires of V
// VLANs each) it measures, each against its floor (see SizeBenchmark), programming by
// notifications, the start-up walk, teardown by notifications and the show command, then the
// peak resident memory per entry in a fresh process per size (see PeakMemory). Where a size's
// decap entries outgrow the chip's in-LIF table, its show case cannot run, and the show case also
// runs at the chip's capacity: the most pseudowires of the same mix whose entries fit. It prints
// a table and, with --json FILE, writes the figures for tools. Run it from a release build:
// scripts/bench does both; docs/performance.md explains the figures.
//
//   vpls_scale_bench [--json FILE] [--pseudowires 1024,8192,65535] [--vlans 1,4,8]
//                    [--repetitions N] [--no-memory]
//
// Every case runs in a fresh process of its own over state that takes seconds to build, and each
// floor is measured in the same process over the same entries, which is why this is a plain
// program rather than a Google Benchmark one.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/scale/CaseChild.h"
#include "bench/scale/PeakMemory.h"
#include "bench/scale/PseudowireMix.h"
#include "bench/scale/ScaleReport.h"
#include "bench/scale/SizeBenchmark.h"

namespace {

// Pseudowire names end at Pseudowire65535, so the largest size has one pseudowire less than
// 65536.
std::vector<std::uint32_t> const kDefaultPseudowires{1024, 8192, 65535};
std::vector<std::uint32_t> const kDefaultVlans{1, 4, 8};
// Every size runs its cases at least three times and keeps the fastest run; sizes below this many
// entries repeat them up to five times.
constexpr std::uint64_t kRepeatBelowEntries = 131072;
constexpr int kMinRepetitions = 3;
constexpr int kMaxRepetitions = 5;

struct Options {
  std::optional<std::string> jsonFile;
  std::vector<std::uint32_t> pseudowires = kDefaultPseudowires;
  std::vector<std::uint32_t> vlans = kDefaultVlans;
  std::optional<int> repetitions;
  bool memory = true;
};

std::vector<std::uint32_t> numberList(std::string const& text) {
  std::vector<std::uint32_t> numbers;
  std::istringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    numbers.push_back(static_cast<std::uint32_t>(std::stoul(item)));
  }
  if (numbers.empty()) {
    throw std::invalid_argument("empty list '" + text + "'");
  }
  return numbers;
}

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    auto const value = [&]() -> std::string {
      if (i + 1 >= argc) {
        throw std::invalid_argument(arg + " needs a value");
      }
      return argv[++i];
    };
    if (arg == "--json") {
      options.jsonFile = value();
    } else if (arg == "--pseudowires") {
      options.pseudowires = numberList(value());
    } else if (arg == "--vlans") {
      options.vlans = numberList(value());
    } else if (arg == "--repetitions") {
      options.repetitions = std::stoi(value());
    } else if (arg == "--no-memory") {
      options.memory = false;
    } else {
      throw std::invalid_argument("unknown option '" + arg + "'");
    }
  }
  return options;
}

int repetitionsFor(Options const& options, std::uint64_t entries) {
  if (options.repetitions) {
    return *options.repetitions;
  }
  auto const fit =
      static_cast<int>(std::min<std::uint64_t>(kRepeatBelowEntries / entries, kMaxRepetitions));
  return std::max(fit, kMinRepetitions);
}

// The size at the chip's capacity for the show case, when some size's decap entries do not fit
// the chip's in-LIF table: the most pseudowires whose entries fit, of the most VLANs among those
// sizes. None when every size fits or the capacity size is one of the sizes already.
std::optional<Bench::PseudowireMix> capacityShowSize(
    std::vector<Bench::SizeBenchmark> const& sizes) {
  std::uint32_t vlans = 0;
  for (auto const& size : sizes) {
    if (!size.mix().decapEntriesFitChip()) {
      vlans = std::max(vlans, size.mix().vlans());
    }
  }
  if (vlans == 0) {
    return std::nullopt;
  }
  Bench::PseudowireMix const capacity(Bench::PseudowireMix::chipCapacityPseudowires(vlans), vlans);
  for (auto const& size : sizes) {
    if (size.mix().pseudowires() == capacity.pseudowires() && size.mix().vlans() == vlans) {
      return std::nullopt;
    }
  }
  return capacity;
}

std::string sizeName(Bench::PseudowireMix const& mix) {
  return std::to_string(mix.pseudowires()) + " x " + std::to_string(mix.vlans());
}

// The sizes take turns, one repetition each per round, so that a slow spell of the machine
// costs every size one run rather than all the runs of one size.
Bench::ScaleResults measure(Options const& options) {
  std::vector<Bench::SizeBenchmark> sizes;
  for (auto const pseudowires : options.pseudowires) {
    for (auto const vlans : options.vlans) {
      Bench::PseudowireMix const mix(pseudowires, vlans);
      sizes.emplace_back(mix, repetitionsFor(options, mix.entries()));
    }
  }
  auto const capacity = capacityShowSize(sizes);
  if (capacity) {
    sizes.emplace_back(*capacity, repetitionsFor(options, capacity->entries()),
                       Bench::SizeBenchmark::Cases::showOnly);
  }
  for (int round = 1; std::any_of(sizes.begin(), sizes.end(),
                                  [](auto const& s) { return s.repetitionsLeft() > 0; });
       ++round) {
    std::cerr << "round " << round << '\n';
    for (auto& size : sizes) {
      if (size.repetitionsLeft() > 0) {
        size.runRepetition();
      }
    }
  }
  Bench::ScaleResults results;
  for (auto const& size : sizes) {
    for (auto& c : size.results()) {
      results.cases.push_back(std::move(c));
    }
    auto const& mix = size.mix();
    if (size.showSkipped()) {
      results.skipped.push_back(
          "show at " + sizeName(mix) + ": " + *size.showSkipped() +
          (capacity ? "; show runs at " + sizeName(*capacity) + ", the chip's capacity, instead"
                    : std::string()));
    }
  }
  return results;
}

void measureMemory(Options const& options, Bench::ScaleResults& results) {
  for (auto const pseudowires : options.pseudowires) {
    for (auto const vlans : options.vlans) {
      std::cerr << "memory " << pseudowires << " x " << vlans << '\n';
      results.memory.push_back(Bench::measurePeakMemory(pseudowires, vlans));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc == 4 && std::string(argv[1]) == Bench::kMemoryChildOption) {
      return Bench::runMemoryChild(static_cast<std::uint32_t>(std::stoul(argv[2])),
                                   static_cast<std::uint32_t>(std::stoul(argv[3])));
    }
    if (argc == 5 && std::string(argv[1]) == Bench::kCaseChildOption) {
      return Bench::runCaseChild(argv[2], static_cast<std::uint32_t>(std::stoul(argv[3])),
                                 static_cast<std::uint32_t>(std::stoul(argv[4])));
    }
    auto const options = parse(argc, argv);
    auto results = measure(options);
    if (options.memory) {
      measureMemory(options, results);
    }
    Bench::printTable(std::cout, results);
    if (options.jsonFile) {
      Bench::writeJson(*options.jsonFile, results);
    }
    return 0;
  } catch (std::exception const& e) {
    std::cerr << "vpls_scale_bench: " << e.what() << '\n';
    return 1;
  }
}
