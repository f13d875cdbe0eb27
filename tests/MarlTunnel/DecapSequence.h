#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Hardware::MarlTunnel::test {

// Where a sequence's choices come from: a seeded generator (the randomized test) or the bytes
// of a fuzz input (fuzz/DecapSequenceFuzzer.cpp). Every choice, which step to take and its
// values, is one call of below().
class SequenceChoices {
 public:
  virtual ~SequenceChoices() = default;
  // A number in 0..n-1; n is at least 1.
  virtual std::uint32_t below(std::uint32_t n) = 0;
  // Whether the sequence takes another step before everything is removed again.
  virtual bool anotherStep() = 0;
};

// Runs one sequence of valid input changes over a small universe of pseudowires, VLANs and
// labels against the decap state machine on real platform entities (DecapSmRig), checking the
// state machine's invariants after every change, then removes every input in an order the
// choices give and checks that only what is left behind on purpose is left. Returns what went
// wrong, with `name` and the steps taken; empty when nothing did.
//
// Only sequences that stay clear of the state machine's own assertions and range errors are
// generated (see the rules in DecapSequence.cpp); an exception out of a step is reported as a
// failure.
std::string runDecapSequence(SequenceChoices& choices, std::string const& name);

}  // namespace Hardware::MarlTunnel::test
