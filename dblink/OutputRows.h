#pragma once

#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Fab/VplsIntfKey.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Hardware/EsemConfigKeyVpls.h"
#include "Hardware/EvecProfileKey.h"
#include "Hardware/LifProfileOrientationKey.h"
#include "Hardware/MplsDecapInfoKey.h"
#include "Hardware/VtAppId.h"
#include "Netcore/IntfId.h"
#include "Netcore/MplsLabel.h"
#include "dblink/KeyLayout.h"
#include "host/AgentHarness.h"
#include "host/StateRow.h"

// The agent's outputs as state-database rows: each output element of the harness's entities
// as one key and its hash, for writing, and the way back, for an agent that starts over the
// outputs an earlier one left. The fields are those of the scenario runner's JSON state.
namespace DbLink {

// A row of one output element: its key and its current hash, none when the element is absent.
struct OutputRow {
  std::string key;
  std::optional<Fields> fields;
};

// One output element's row, by the element's key in its entity.
OutputRow mplsDecapConfigRow(Host::AgentHarness const& h,
                             Hardware::MarlTunnel::MplsDecapInfoKey const& k);
OutputRow labelToPwIntfRow(Host::AgentHarness const& h, Netcore::MplsLabel k);
OutputRow decapStatusRow(Host::AgentHarness const& h, Fab::VplsPwIntfVlanKey const& k);
OutputRow encapAdditionalIdRow(Host::AgentHarness const& h, Netcore::IntfId k);
OutputRow additionalDataRow(Host::AgentHarness const& h, Fab::VplsIntfKey const& k);
OutputRow lpoRequestRow(Host::AgentHarness const& h,
                        Hardware::MarlTunnel::LifProfileOrientationKey const& k);
OutputRow lpoResponseRow(Host::AgentHarness const& h,
                         Hardware::MarlTunnel::LifProfileOrientationKey const& k);
OutputRow intfToLpoKeyRow(Host::AgentHarness const& h, Netcore::IntfId k);
OutputRow esemConfigRow(Host::AgentHarness const& h,
                        Hardware::MarlTunnel::EsemConfigKeyVpls const& k);
OutputRow tagPopPushAppRow(Host::AgentHarness const& h, Hardware::Marl::VtAppId k);
OutputRow evecProfileRequestRow(Host::AgentHarness const& h,
                                Hardware::MarlTunnel::EvecProfileKey const& k);
OutputRow smStatusRow(Host::AgentHarness const& h);
// A pseudowire's status row (what it waits for), given its status text; none: it is unknown.
OutputRow pwStatusRow(Netcore::IntfId pw, std::optional<std::string> status);

// Every output row present in memory (pseudowire statuses aside, which the agent derives), in
// table order.
void forEachOutputRow(Host::AgentHarness const& h,
                      std::function<void(std::string&& key, Fields&& fields)> const& visit);

// Loads output rows found in the state database into the harness's entities, before its agent
// starts: every output table but the decap status (the starting agent's walk rebuilds it) and
// the statuses the agent derives; then the orientation allocator takes its slots back from the
// requests and answers, and continues its count of start-up syncs. A row that does not decode
// is left out; the returned lines name each such key and its problem.
std::vector<std::string> loadOutputRows(Host::AgentHarness& h,
                                        std::vector<Host::StateRow> const& rows);
std::vector<std::string> loadOutputRows(Host::AgentHarness& h,
                                        std::unordered_map<std::string, Fields> const& rows);

}  // namespace DbLink
