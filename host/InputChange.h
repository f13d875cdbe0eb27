#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Fab/NexthopIndex.h"
#include "Fab/VplsPwIntfInfo.h"
#include "Netcore/IntfId.h"

namespace Host {

// The agent's input tables: four keyed tables of the pseudowire configuration and four boolean
// attributes (two of the decap configuration, two of the VTEP type status).
enum class InputTable : std::uint8_t {
  vplsPwIntfInfo,
  decapLabel,
  vlanTagInfo,
  encapHwFecId,
  startupSyncDone,
  restartDone,
  vxlanPresent,
  vxlanDciConfigured,
};

// The table's name as scenarios and recordings spell it ("vplsPwIntfInfo", ...).
std::string_view tableName(InputTable table);
// The attributes are set with a bare value; the other tables have keys.
bool isAttribute(InputTable table);

enum class ChangeKind : std::uint8_t { set, del };

// One change of one input element, whoever made it: a scenario event, a state-database key
// that was written or deleted, a benchmark's generator. Only the members that the table uses
// are meaningful: the key (`pw`, plus `vlan` for VLAN tag info) and, for a set, the value
// (`pwIntfInfo`, `number` for a label or a normalised tag, `hwFecIndex`, `flag` for an
// attribute). Values are range-checked by whoever decoded them, so building the platform's
// value types from them cannot fail.
struct InputChange {
  ChangeKind kind = ChangeKind::set;
  InputTable table = InputTable::vplsPwIntfInfo;
  Netcore::IntfId pw;
  std::uint16_t vlan = 0;
  Fab::VplsPwIntfInfo pwIntfInfo;
  std::uint32_t number = 0;
  Fab::NexthopIndex hwFecIndex;
  bool flag = false;
};

// One line for people: "set decapLabel Pseudowire1 = 1001", "del vlanTagInfo Pseudowire1 vlan
// 10", "set vxlanPresent = true". Names are shown with JSON's escapes, so the line stays one.
std::string describe(InputChange const& change);

}  // namespace Host
