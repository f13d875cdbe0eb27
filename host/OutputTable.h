#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/AgentHarness.h"
#include "host/StateRow.h"
#include "host/TableColumn.h"

namespace Host {

// How the runner's JSON state shows a table: a list of objects (key columns, then value
// columns), an object keyed by the one key column (its value the one value column, or an object
// of the value columns), or the value columns as members of the state itself (a single row).
enum class JsonShape : std::uint8_t { list, map, members };

// The keys noted by a watch, turned into rows on demand.
class TableWatch {
 public:
  virtual ~TableWatch() = default;
  // The rows of the keys noted since the last take, each once, in key order: the element's
  // current hash, or none when it is gone.
  virtual void take(std::vector<RowUpdate>& rows) = 0;
  // Forgets the keys noted so far.
  virtual void forget() = 0;
};

// One output table of the agent, whatever its key and value types: every encoding of its
// elements (state-database rows written and read back, the runner's JSON state, the rows of the
// keys that changed) is derived from its one description (host/OutputTables.cpp).
class OutputTable {
 public:
  virtual ~OutputTable() = default;

  // The state database's name ("MPLS_DECAP_CONFIG") and the JSON state's ("mplsDecapConfig").
  virtual std::string_view redisName() const = 0;
  virtual std::string_view jsonName() const = 0;
  virtual JsonShape jsonShape() const = 0;
  // Whether an agent starting over the rows an earlier one left loads them (the decap status
  // is rebuilt by the start-up walk instead).
  virtual bool loadedAtStart() const = 0;

  // Every element present, as rows, in key order.
  virtual void forEachRow(AgentHarness const& harness,
                          std::function<void(std::string&&, Fields&&)> const& visit) const = 0;
  // The table in the runner's JSON state (for `members`, an object of the members).
  virtual nlohmann::ordered_json json(AgentHarness const& harness) const = 0;
  // Writes the element of a row read back into the harness's entity; BadRow names what does
  // not decode.
  virtual void load(AgentHarness& harness, std::string_view key, Fields const& fields) const = 0;
  // Subscribes to the table's entity, which must be there, and notes each key notified; null
  // for a table whose changes cannot be watched (the state-machine status: compare its row).
  virtual std::unique_ptr<TableWatch> watch(AgentHarness& harness) const = 0;
};

// The agent's output tables, in the order of the contract (docs/agent.md).
std::span<OutputTable const* const> outputTables();
// The table a key belongs to by its first segment, if any.
OutputTable const* outputTableOf(std::string_view key);

}  // namespace Host
