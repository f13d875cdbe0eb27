// Random sequences of input changes (DecapSequence.h: the universe, the generator and the
// invariants checked after every change and after everything is removed again).
//
// Seeded and reproducible: a failure names its seed (an assertion too, on stderr);
// MARL_DECAP_SEED=<seed> runs that sequence alone.

#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "DecapSequence.h"

namespace Hardware::MarlTunnel::test {
namespace {

constexpr int kSequences = 200;
constexpr int kSteps = 60;
constexpr std::uint64_t kBaseSeed = 0x5eed0000;

char gSeedLine[64];
extern "C" void printSeedOnAbort(int) {
  auto const ignored = ::write(STDERR_FILENO, gSeedLine, std::strlen(gSeedLine));
  (void)ignored;
}

// Choices from a seeded generator, for a fixed number of steps.
class SeededChoices : public SequenceChoices {
 public:
  explicit SeededChoices(std::uint64_t seed) : rng_(seed) {}
  std::uint32_t below(std::uint32_t n) override {
    return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(rng_);
  }
  bool anotherStep() override { return steps_++ < kSteps; }

 private:
  std::mt19937_64 rng_;
  int steps_ = 0;
};

TEST(DecapRandomizedTest, InvariantsHoldOverRandomInputSequences) {
  std::vector<std::uint64_t> seeds;
  if (char const* chosen = std::getenv("MARL_DECAP_SEED")) {
    seeds.push_back(std::strtoull(chosen, nullptr, 0));
  } else {
    for (int i = 0; i < kSequences; ++i) {
      seeds.push_back(kBaseSeed + static_cast<std::uint64_t>(i));
    }
  }
  auto const previous = std::signal(SIGABRT, printSeedOnAbort);
  int failures = 0;
  for (auto const seed : seeds) {
    std::snprintf(gSeedLine, sizeof gSeedLine, "\nassertion in the sequence of seed %llu\n",
                  static_cast<unsigned long long>(seed));
    SeededChoices choices(seed);
    auto const failure = runDecapSequence(choices, "seed " + std::to_string(seed));
    if (!failure.empty() && ++failures <= 5) {
      ADD_FAILURE() << failure;
    }
  }
  std::signal(SIGABRT, previous);
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
