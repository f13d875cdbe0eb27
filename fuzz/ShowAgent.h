#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "MarlTunnel/VplsDecapOutput.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "host/AgentHarness.h"

namespace Fuzz {

// The agent the command-socket fuzzers talk to: the library hosted as the tunnel agent hosts
// it (Host::AgentHarness), with a few pseudowires programmed (several instances and groups, one
// instance literally named "None", a standby and a VLAN-aware one, short names Pw1 and Pw12)
// and its command socket open in a private directory. Built on first use and kept for the
// fuzzing process; nothing changes its inputs afterwards.
//
// It also answers the show command as its documentation says it answers: the argument text's
// first three blank-separated words filter instance, group and interface short name ("None"
// or a missing word as documented), and what passes is printed as the callback prints it.
//
// Runs on the fuzzing thread, which is the scheduler's.
class ShowAgent {
 public:
  static ShowAgent& instance();
  ShowAgent(ShowAgent const&) = delete;
  ShowAgent& operator=(ShowAgent const&) = delete;
  ~ShowAgent();

  Orb::AgentSocketHandlerSm& socket() const;
  Orb::TaskSchedulerRoot& scheduler() const { return *harness_.scheduler; }

  // The show command's answer to `args` by the filter rules above.
  std::string expectedShow(std::string_view args) const;

 private:
  ShowAgent();
  void program();

  std::filesystem::path const dir_;
  Host::AgentHarness harness_;
  // What the show command answers without filters.
  Hardware::MarlTunnel::VplsDecapEntryMap all_;
};

}  // namespace Fuzz
