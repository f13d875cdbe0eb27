#pragma once

#include <cstdint>
#include <filesystem>

#include "Cog/Log.h"

namespace Bench {

// The process settings every scale measurement runs under, set for the object's lifetime: a
// private directory (removed at the end) holding the Flashlog file, the agent command socket and
// an empty toggle directory, so that every toggle has its default; the Flashlog recording into
// that file; the Duallog off for every facility the agent traces to; log messages counted
// instead of written to stderr. One per process, created before the first agent.
class BenchEnvironment {
 public:
  BenchEnvironment();
  ~BenchEnvironment();
  BenchEnvironment(BenchEnvironment const&) = delete;
  BenchEnvironment& operator=(BenchEnvironment const&) = delete;

  // Log messages the agent wrote since the start; a correct mix writes none.
  std::uint64_t logMessages() const noexcept { return logMessages_; }

 private:
  std::filesystem::path dir_;
  Cog::LogSink previousSink_;
  std::uint64_t logMessages_ = 0;
};

}  // namespace Bench
