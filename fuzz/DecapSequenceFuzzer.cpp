// Fuzzes sequences of input changes to the decap state machine: the input's bytes are the
// choices of the sequence generator that the randomized test uses
// (tests/MarlTunnel/DecapSequence.h): which valid step to take next and its values, one byte a
// choice, steps until the bytes run out, then everything removed again in an order the
// remaining choices give. The invariants of that file are checked after every step and at the
// end; a violation, an exception or an assertion of the state machine is a crash.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "DecapSequence.h"
#include "FuzzCheck.h"

namespace {

// At most this many steps before the removal, so that one input stays quick.
constexpr int kMaxSteps = 60;

// Choices read from the fuzz input: one byte for a choice among at most 256, two for more;
// 0 once the bytes are used up.
class ByteChoices : public Hardware::MarlTunnel::test::SequenceChoices {
 public:
  explicit ByteChoices(std::span<std::uint8_t const> bytes) : bytes_(bytes) {}

  std::uint32_t below(std::uint32_t n) override {
    std::uint32_t value = next();
    if (n > 256) {
      value = value << 8 | next();
    }
    return value % n;
  }
  bool anotherStep() override { return !bytes_.empty() && steps_++ < kMaxSteps; }

 private:
  std::uint32_t next() {
    if (bytes_.empty()) {
      return 0;
    }
    auto const byte = bytes_.front();
    bytes_ = bytes_.subspan(1);
    return byte;
  }

  std::span<std::uint8_t const> bytes_;
  int steps_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  ByteChoices choices({data, size});
  auto const failure = Hardware::MarlTunnel::test::runDecapSequence(choices, "fuzz input");
  Fuzz::require(failure.empty(), failure);
  return 0;
}
