#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bench/scale/PseudowireMix.h"
#include "bench/scale/ScaleCase.h"

namespace Bench {

// Runs the cases of one size (program, startup, teardown, show; see CaseChild) against their
// floors and hash floors, each part in a fresh child process, and keeps the fastest run of each
// case and of each floor over the repetitions. A size may run the show case alone: the size at
// the chip's capacity, measured for show where larger sizes cannot run it. Throws
// std::runtime_error when a child fails. Single-threaded.
class SizeBenchmark {
 public:
  enum class Cases { all, showOnly };

  SizeBenchmark(PseudowireMix const& mix, int repetitions, Cases cases = Cases::all);

  // Repetitions still to run.
  int repetitionsLeft() const noexcept { return repetitionsLeft_; }
  // Runs one repetition of every case.
  void runRepetition();
  // The fastest runs so far.
  std::vector<ScaleCase> results() const;
  PseudowireMix const& mix() const noexcept { return mix_; }
  // Why the show case could not run at this size; empty when it ran.
  std::optional<std::string> const& showSkipped() const noexcept { return showSkipped_; }

 private:
  void runPart(char const* part);
  void keep(std::string const& line);
  ScaleCase& result(std::string const& name);

  PseudowireMix const mix_;
  Cases cases_;
  int repetitionsLeft_;
  std::vector<ScaleCase> results_;
  std::optional<std::string> showSkipped_;
};

}  // namespace Bench
