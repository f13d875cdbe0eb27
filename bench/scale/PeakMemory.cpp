#include "bench/scale/PeakMemory.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Statedb/SharedTableManager.h"
#include "bench/scale/BenchEnvironment.h"
#include "bench/scale/PseudowireMix.h"
#include "bench/scale/SelfProcess.h"

namespace Bench {
namespace {

// A field of /proc/self/status in bytes ("VmRSS:	  12345 kB").
std::uint64_t statusBytes(std::string_view field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with(field) && line.size() > field.size() && line[field.size()] == ':') {
      return std::stoull(line.substr(field.size() + 1)) * 1024;
    }
  }
  throw std::runtime_error("no " + std::string(field) + " in /proc/self/status");
}

}  // namespace

MemoryFigure measurePeakMemory(std::uint32_t pseudowires, std::uint32_t vlans) {
  auto const p = std::to_string(pseudowires);
  auto const v = std::to_string(vlans);
  std::istringstream output(runSelf({kMemoryChildOption, p, v}));
  MemoryFigure figure{pseudowires, vlans, std::uint64_t{pseudowires} * vlans, 0, 0};
  if (!(output >> figure.baselineBytes >> figure.peakBytes)) {
    throw std::runtime_error("the memory child for " + p + " x " + v + " printed nothing");
  }
  return figure;
}
int runMemoryChild(std::uint32_t pseudowires, std::uint32_t vlans) {
  PseudowireMix const mix(pseudowires, vlans);
  BenchEnvironment environment;
  Statedb::SharedTableManager::resetAllForTest();
  Host::AgentHarness agent(environment.agentSettings(false));
  agent.start();
  auto const baseline = statusBytes("VmRSS");
  mix.addAll(agent);
  auto const peak = statusBytes("VmHWM");
  std::printf("%llu %llu\n", static_cast<unsigned long long>(baseline),
              static_cast<unsigned long long>(peak));
  return 0;
}

}  // namespace Bench
