#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/AgentHarness.h"
#include "host/StateRow.h"

// The agent's outputs as state-database rows, over every output table (host/OutputTable.h):
// for writing, and the way back, for an agent that starts over the outputs an earlier one left.
namespace Host {

// Every output row present in memory, table by table in the order of the contract, each
// table's rows in key order.
void forEachOutputRow(AgentHarness const& harness,
                      std::function<void(std::string&& key, Fields&& fields)> const& visit);

// Loads output rows found in the state database into the harness's entities, before its agent
// starts: every output table that is loaded at start (not the decap status, which the starting
// agent's walk rebuilds); the orientation requests first, so that the allocator's answers to
// them are then replaced by the answers found; then the allocator takes its slots back from the
// requests and answers and continues its count of start-up syncs. A row that does not decode,
// or belongs to no output table, is left out; the returned lines name each such key and its
// problem. Rows of tables that are not the agent's outputs are passed over silently. The rows
// are loaded in the order given (a recording lists them in key order; an agent loads what it
// found in key order), so that the same rows load to the same state.
std::vector<std::string> loadOutputRows(AgentHarness& harness, std::vector<StateRow> const& rows);
// The same over rows kept elsewhere: `rows(visit, wanted)` visits each row of the tables (a
// key's first segment) that `wanted` accepts, in order (a source that decodes its rows then
// decodes only those); it is called twice.
using RowVisit = std::function<void(std::string_view key, Fields const& fields)>;
using TableWanted = std::function<bool(std::string_view table)>;
using RowSource = std::function<void(RowVisit const& visit, TableWanted const& wanted)>;
std::vector<std::string> loadOutputRows(AgentHarness& harness, RowSource const& rows);

}  // namespace Host
