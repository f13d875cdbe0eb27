#include "bench/scale/BenchEnvironment.h"

#include <stdlib.h>

#include <string>

#include "Cog/Toggle.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "Trace/Trace.h"
#include "sim/PrivateDir.h"

namespace Bench {
namespace {

// The facilities an agent's VPLS side traces to.
constexpr char const* kFacilities[] = {"MarlTunnel", "Orb"};

}  // namespace

BenchEnvironment::BenchEnvironment() : dir_(Sim::makePrivateDir("vpls-scale")) {
  std::filesystem::create_directory(dir_ / "toggles");
  ::setenv(Cog::kToggleDirEnv, (dir_ / "toggles").c_str(), 1);
  ::unsetenv(Trace::Duallog::kLevelsEnv);
  for (auto const* facility : kFacilities) {
    Trace::Duallog::levelDel(facility);
  }
  Trace::Flashlog::open(dir_ / "vpls-scale.flashlog");
  Orb::AgentSocketHandlerSm::socketDirIs((dir_ / "sockets").string());
  previousSink_ = Cog::logSinkIs([this](Cog::LogMessage const&, std::vector<std::string> const&,
                                        std::string const&) { ++logMessages_; });
}

BenchEnvironment::~BenchEnvironment() {
  Cog::logSinkIs(std::move(previousSink_));
  Orb::AgentSocketHandlerSm::socketDirIs("");
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

}  // namespace Bench
