#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "host/AgentHarness.h"
#include "host/InputChange.h"
#include "host/TableColumn.h"

namespace Host {

// One column of an input table, read from and written to an input change: its name (a field of
// the state database's hash and of the scenario's value object), what it holds, its range (a
// number from `min` to `max`; a name of at most `max` bytes) and whether it may be left out
// (then the change keeps its default).
struct InputColumn {
  std::string_view name;
  ColumnKind kind;
  std::uint64_t min;
  std::uint64_t max;
  bool optional;
  Cell (*get)(InputChange const&);
  void (*set)(InputChange&, Cell const&);
};

// The description of one input table, from which every encoding of its changes is derived:
// the state database's rows and keys (dblink/InputRows.h, dblink/KeyLayout.h), the scenario's
// and the recording's ops (host/Recording.h, sim/Scenario.h), the writes into the harness's
// entities (host/InputWriter.h) and the one-line description. A keyed table has key columns;
// an attribute has none and one value column, `value`, and is one state-database key of its
// own, so that one write of it is one set of it.
//
// In a scenario a single key column is the bare key ("Pseudowire1"), several are an object
// ({"pw": ..., "vlan": ...}); a single value column is the bare value, several an object.
struct InputTableDescription {
  InputTable table;
  std::string_view name;  // "vplsPwIntfInfo"
  // The state-database key up to the key columns, which follow it separated by '|': a keyed
  // table's name ("VPLS_PW_INTF_INFO"); an attribute's whole key, its entity's table and its
  // own name ("VPLS_DECAP_CONFIG|restartDone"). The first segment is the table of the key.
  std::string_view redisName;
  std::span<InputColumn const> keyColumns;
  std::span<InputColumn const> valueColumns;
  // Readies a change whose key columns are set for its value columns (the configuration record
  // names its pseudowire).
  void (*prepare)(InputChange&);
  // Writes the change into the harness's inputs; whether they already hold it; every element
  // they hold, as sets (keyed tables only).
  void (*apply)(AgentHarness&, InputChange const&);
  bool (*holds)(AgentHarness const&, InputChange const&);
  void (*forEach)(AgentHarness const&, std::function<void(InputChange&&)> const&);
  // The value for people ("instance \"v1\" group \"g\" split-horizon", "1001", "true").
  std::string (*describeValue)(InputChange const&);
};

// Every input table, in the order of InputTable.
std::span<InputTableDescription const> inputTables();
InputTableDescription const& inputTable(InputTable table);

// A column's value in a change as the state database writes it.
inline std::string columnText(InputColumn const& column, InputChange const& change) {
  return cellText(column.get(change));
}

}  // namespace Host
