#pragma once

#include <set>
#include <string>
#include <vector>

#include "Hardware/Orientation.h"
#include "Netcore/IntfId.h"
#include "sim/AgentHarness.h"
#include "sim/ScenarioRunner.h"

namespace Sim {

// What a show op answered, kept for the report.
struct ShowRecord {
  int event = 0;
  std::string request;
  std::string answer;
};

// What a pseudowire is waiting for, derived from the inputs and outputs: "programmed",
// "standby", "waiting for label", "waiting for VLAN tag info, encap FEC id", "waiting for
// configuration", "FEC id arrived before instance (re-publish it)", "orientation allocation
// failed", "no split-horizon group under VXLAN DCI", "split-horizon group refused under VXLAN",
// "programmed for 1 of 2 VLANs", "not programmed". The rules and their order are in
// docs/scenarios.md.
std::string pseudowireStatus(AgentHarness const& harness, Netcore::IntfId pw);
// The same with the orientations answered for the pseudowire's requests, in any order, from
// the caller's index of the answers (the overload above walks every answer to find them).
std::string pseudowireStatus(AgentHarness const& harness, Netcore::IntfId pw,
                             std::vector<Hardware::MarlTunnel::Orientation> const& orientations);

// Every pseudowire that any input or the state machine knows, in interface order.
std::set<Netcore::IntfId> knownPseudowires(AgentHarness const& harness);
// Whether any input or the state machine knows the pseudowire (it has a status then).
bool pseudowireKnown(AgentHarness const& harness, Netcore::IntfId pw);

// The human-readable report of the agent's state, for a network engineer at a glance: a summary
// of the agent and VXLAN, the pseudowire table with each one's status, the decap entries, the
// ESEM entries per VLAN, the split-horizon requests with their answers, the log messages and
// the answers of show ops. Aligned columns; an empty section is one line ending in "(none)".
// Reads the harness only; runs on the agent's thread.
std::string textReport(AgentHarness const& harness, std::vector<LogRecord> const& logs,
                       std::vector<ShowRecord> const& shows = {});

}  // namespace Sim
