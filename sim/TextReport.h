#pragma once

#include <string>
#include <vector>

#include "host/AgentHarness.h"
#include "sim/ScenarioRunner.h"

namespace Sim {

// What a show op answered, kept for the report.
struct ShowRecord {
  int event = 0;
  std::string request;
  std::string answer;
};

// The human-readable report of the agent's state, for a network engineer at a glance: a summary
// of the agent and VXLAN, the pseudowire table with each one's status, the decap entries, the
// ESEM entries per VLAN, the split-horizon requests with their answers, the log messages and
// the answers of show ops. Aligned columns; an empty section is one line ending in "(none)".
// Reads the harness only; runs on the agent's thread.
std::string textReport(Host::AgentHarness const& harness, std::vector<LogRecord> const& logs,
                       std::vector<ShowRecord> const& shows = {});

}  // namespace Sim
