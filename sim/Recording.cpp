#include "sim/Recording.h"

#include <nlohmann/json.hpp>

namespace Sim {
namespace {

using Json = nlohmann::ordered_json;

Json opJson(Op const& op) {
  Json json = Json::object();
  json["op"] = opName(op.kind);
  switch (op.kind) {
    case OpKind::show:
      json["args"] = op.showArgs;
      break;
    case OpKind::restart:
      break;
    case OpKind::set:
    case OpKind::del:
      json["table"] = tableName(op.table);
      if (op.table == Table::vlanTagInfo) {
        json["key"] = {{"pw", op.pw.toString()}, {"vlan", op.vlan}};
      } else if (!isAttribute(op.table)) {
        json["key"] = op.pw.toString();
      }
      if (op.kind == OpKind::del) {
        break;
      }
      switch (op.table) {
        case Table::vplsPwIntfInfo: {
          auto const& info = op.pwIntfInfo;
          json["value"] = {{"vplsInstanceName", info.vplsInstanceName().str()},
                           {"groupName", info.groupName().str()},
                           {"splitHorizon", info.splitHorizon()},
                           {"standby", info.standby()},
                           {"vlanAware", info.vlanAware()},
                           {"controlWord", info.controlWord()},
                           {"flowLabel", info.flowLabel()}};
          break;
        }
        case Table::decapLabel:
        case Table::vlanTagInfo:
          json["value"] = op.number;
          break;
        case Table::encapHwFecId:
          json["value"] = {{"hwFecId", op.hwFecIndex.hwFecId()},
                           {"globalInLif", op.hwFecIndex.globalInLif()}};
          break;
        default:
          json["value"] = op.flag;
          break;
      }
      break;
  }
  if (!op.comment.empty()) {
    json["comment"] = op.comment;
  }
  return json;
}

std::string line(Json const& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string recordingHeaderLine(Scenario const& scenario) {
  Json json = Json::object();
  if (!scenario.comment.empty()) {
    json["comment"] = scenario.comment;
  }
  json["cleanSlate"] = scenario.cleanSlate;
  if (scenario.toggles) {
    json["toggles"] = Json::object();
    for (auto const& [name, state] : *scenario.toggles) {
      json["toggles"][name] = state;
    }
  }
  json["meshGroups"] = scenario.meshGroups;
  json["before"] = Json::array();
  for (auto const& op : scenario.before) {
    json["before"].push_back(opJson(op));
  }
  json["outputs"] = Json::object();
  for (auto const& row : scenario.outputs) {
    Json& hash = json["outputs"][row.key];
    hash = Json::object();
    for (auto const& [field, text] : row.fields) {
      hash[field] = text;
    }
  }
  return line(json);
}

std::string recordingOpLine(Op const& op) {
  return line(opJson(op));
}

}  // namespace Sim
