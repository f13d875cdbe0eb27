#include "bench/scale/BenchEnvironment.h"

#include <stdlib.h>

#include <string>

#include "Trace/Trace.h"
#include "host/PrivateDir.h"

namespace Bench {
namespace {

// The facilities an agent's VPLS side traces to.
constexpr char const* kFacilities[] = {"MarlTunnel", "Orb"};

}  // namespace

BenchEnvironment::BenchEnvironment() : dir_(Host::makePrivateDir("vpls-scale")) {
  std::filesystem::create_directory(dir_ / "toggles");
  ::unsetenv(Trace::Duallog::kLevelsEnv);
  for (auto const* facility : kFacilities) {
    Trace::Duallog::levelDel(facility);
  }
  Trace::Flashlog::open(dir_ / "vpls-scale.flashlog");
}

Host::AgentSettings BenchEnvironment::agentSettings(bool chip) {
  Host::AgentSettings settings;
  settings.chip = chip;
  settings.socketDir = dir_ / "sockets";
  settings.toggleDir = dir_ / "toggles";
  settings.logSink = [this](Cog::LogMessage const&, std::vector<std::string> const&,
                            std::string const&) { ++logMessages_; };
  return settings;
}

BenchEnvironment::~BenchEnvironment() {
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

}  // namespace Bench
