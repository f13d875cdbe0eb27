#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
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

// A whole scenario file, validated.
struct Scenario {
  std::string comment;
  bool cleanSlate = true;
  // Toggle name to state; no value means no toggle file at all.
  std::optional<std::map<std::string, bool>> toggles;
  std::uint32_t meshGroups = 4;
  std::vector<Op> before;
  std::vector<Op> events;
};

// A scenario that cannot run. what() is one line naming where the problem is (the event
// index or before[i], then the field) and what it is.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The toggles a scenario may set (the library's toggle file holds these names).
std::vector<std::string_view> knownToggles();

// Parses and validates the whole text; the first problem found raises ScenarioError.
Scenario parseScenario(std::string_view text);

// Reads and validates a scenario file; the error message starts with the file's path.
Scenario loadScenario(std::filesystem::path const& path);

}  // namespace Sim
