#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Fab/NexthopIndex.h"
#include "Fab/VplsPwIntfInfo.h"
#include "Netcore/IntfId.h"

namespace Sim {

// The input tables a scenario writes: four keyed tables of the pseudowire configuration and
// four boolean attributes (two of the decap configuration, two of the VTEP type status).
enum class Table : std::uint8_t {
  vplsPwIntfInfo,
  decapLabel,
  vlanTagInfo,
  encapHwFecId,
  startupSyncDone,
  restartDone,
  vxlanPresent,
  vxlanDciConfigured,
};

// The table's name as scenarios spell it.
std::string_view tableName(Table table);
// The attributes are set with a bare value; the others have keys.
bool isAttribute(Table table);

enum class OpKind : std::uint8_t { set, del, show, restart };

std::string_view opName(OpKind kind);

// One validated scenario operation. Only the members that the kind and table use are
// meaningful: the key (`pw`, plus `vlan` for VLAN tag info), the value of the table (`pwIntfInfo`,
// `number` for a label or a normalised tag, `hwFecIndex`, `flag` for an attribute), the argument
// text of a show op. Values are already range-checked, so building the platform's value types
// from them cannot fail.
struct Op {
  OpKind kind = OpKind::restart;
  Table table = Table::vplsPwIntfInfo;
  Netcore::IntfId pw;
  std::uint16_t vlan = 0;
  Fab::VplsPwIntfInfo pwIntfInfo;
  std::uint32_t number = 0;
  Fab::NexthopIndex hwFecIndex;
  bool flag = false;
  std::string showArgs;
  std::string comment;
};

// One line for people: "set decapLabel Pseudowire1 = 1001", "del vlanTagInfo Pseudowire1 vlan
// 10", "set vxlanPresent = true", "show \"None None None\"", "restart".
std::string describe(Op const& op);

// One output element as the state database holds it: its key ("MPLS_DECAP_CONFIG|1001|10|0")
// and its hash, field name to text, in the order given.
struct StateRow {
  std::string key;
  std::vector<std::pair<std::string, std::string>> fields;
};

// A whole scenario file, validated: a scenario object, or a recording (one scenario object
// without events on the first line, then one op per line).
struct Scenario {
  std::string comment;
  bool cleanSlate = true;
  // Toggle name to state; no value means no toggle file at all.
  std::optional<std::map<std::string, bool>> toggles;
  std::uint32_t meshGroups = 4;
  std::vector<Op> before;
  std::vector<Op> events;
  // Output state present before start-up (what an earlier agent left), in file order.
  std::vector<StateRow> outputs;
  // A recording whose last line has no line end was cut short while that line was written:
  // the number of that line, which is left out.
  std::optional<std::size_t> truncatedAtLine;
};

// A scenario that cannot run. what() is one line naming where the problem is (the event
// index or before[i], then the field) and what it is.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The toggles a scenario may set (the library's toggle file holds these names).
std::vector<std::string_view> knownToggles();

// Parses and validates the whole text; the first problem found raises ScenarioError. A text
// that is one JSON value is a scenario object; otherwise, when its first line is a JSON object,
// it is a recording, whose errors name the line ("line 7: key: ...").
Scenario parseScenario(std::string_view text);

// Reads and validates a scenario file; the error message starts with the file's path.
Scenario loadScenario(std::filesystem::path const& path);

}  // namespace Sim
