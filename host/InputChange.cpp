#include "host/InputChange.h"

#include <array>
#include <nlohmann/json.hpp>
#include <utility>

namespace Host {
namespace {

constexpr std::array<std::pair<InputTable, std::string_view>, 8> kTableNames{{
    {InputTable::vplsPwIntfInfo, "vplsPwIntfInfo"},
    {InputTable::decapLabel, "decapLabel"},
    {InputTable::vlanTagInfo, "vlanTagInfo"},
    {InputTable::encapHwFecId, "encapHwFecId"},
    {InputTable::startupSyncDone, "startupSyncDone"},
    {InputTable::restartDone, "restartDone"},
    {InputTable::vxlanPresent, "vxlanPresent"},
    {InputTable::vxlanDciConfigured, "vxlanDciConfigured"},
}};

std::string printable(std::string const& text) {
  std::string const quoted =
      nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return quoted.substr(1, quoted.size() - 2);
}

std::string describeValue(InputChange const& change) {
  switch (change.table) {
    case InputTable::vplsPwIntfInfo: {
      auto const& info = change.pwIntfInfo;
      std::string text = "instance \"" + printable(info.vplsInstanceName().str()) + "\"";
      if (!info.groupName().empty()) {
        text += " group \"" + printable(info.groupName().str()) + "\"";
      }
      std::pair<bool, char const*> const flags[] = {
          {info.splitHorizon(), "split-horizon"}, {info.standby(), "standby"},
          {info.vlanAware(), "vlan-aware"},       {info.controlWord(), "control-word"},
          {info.flowLabel(), "flow-label"},
      };
      for (auto const& [on, name] : flags) {
        if (on) {
          text += std::string(" ") + name;
        }
      }
      return text;
    }
    case InputTable::decapLabel:
    case InputTable::vlanTagInfo:
      return std::to_string(change.number);
    case InputTable::encapHwFecId:
      return "hwFecId " + std::to_string(change.hwFecIndex.hwFecId()) + " globalInLif " +
             std::to_string(change.hwFecIndex.globalInLif());
    default:
      return change.flag ? "true" : "false";
  }
}

}  // namespace

std::string_view tableName(InputTable table) {
  for (auto const& [t, name] : kTableNames) {
    if (t == table) {
      return name;
    }
  }
  return "?";
}

bool isAttribute(InputTable table) {
  return table == InputTable::startupSyncDone || table == InputTable::restartDone ||
         table == InputTable::vxlanPresent || table == InputTable::vxlanDciConfigured;
}

std::string describe(InputChange const& change) {
  bool const set = change.kind == ChangeKind::set;
  std::string text = std::string(set ? "set " : "del ") + std::string(tableName(change.table));
  if (!isAttribute(change.table)) {
    text += " " + change.pw.toString();
    if (change.table == InputTable::vlanTagInfo) {
      text += " vlan " + std::to_string(change.vlan);
    }
  }
  if (set) {
    text += " = " + describeValue(change);
  }
  return text;
}

}  // namespace Host
