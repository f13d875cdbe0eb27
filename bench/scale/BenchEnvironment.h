#pragma once

#include <cstdint>
#include <filesystem>

#include "host/AgentSettings.h"

namespace Bench {

// What every scale measurement runs under, for the object's lifetime: a private directory
// (removed at the end) holding the Flashlog file, the agent command socket and an empty toggle
// directory, so that every toggle has its default; the Flashlog recording into that file; the
// Duallog off for every facility the agent traces to. Its agents' settings count log messages
// instead of writing them to stderr. One per process, created before the first agent.
class BenchEnvironment {
 public:
  BenchEnvironment();
  ~BenchEnvironment();
  BenchEnvironment(BenchEnvironment const&) = delete;
  BenchEnvironment& operator=(BenchEnvironment const&) = delete;

  // The settings of an agent measured here (its allocator's mesh slots at their default).
  Host::AgentSettings agentSettings(bool chip);

  // Log messages the agent wrote since the start; a correct mix writes none.
  std::uint64_t logMessages() const noexcept { return logMessages_; }

 private:
  std::filesystem::path dir_;
  std::uint64_t logMessages_ = 0;
};

}  // namespace Bench
