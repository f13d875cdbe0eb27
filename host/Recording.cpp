#include "host/Recording.h"

namespace Host {

using Json = nlohmann::ordered_json;

Json changeJson(InputChange const& change) {
  Json json = Json::object();
  json["op"] = change.kind == ChangeKind::set ? "set" : "del";
  json["table"] = tableName(change.table);
  if (change.table == InputTable::vlanTagInfo) {
    json["key"] = {{"pw", change.pw.toString()}, {"vlan", change.vlan}};
  } else if (!isAttribute(change.table)) {
    json["key"] = change.pw.toString();
  }
  if (change.kind == ChangeKind::del) {
    return json;
  }
  switch (change.table) {
    case InputTable::vplsPwIntfInfo: {
      auto const& info = change.pwIntfInfo;
      json["value"] = {{"vplsInstanceName", info.vplsInstanceName().str()},
                       {"groupName", info.groupName().str()},
                       {"splitHorizon", info.splitHorizon()},
                       {"standby", info.standby()},
                       {"vlanAware", info.vlanAware()},
                       {"controlWord", info.controlWord()},
                       {"flowLabel", info.flowLabel()}};
      break;
    }
    case InputTable::decapLabel:
    case InputTable::vlanTagInfo:
      json["value"] = change.number;
      break;
    case InputTable::encapHwFecId:
      json["value"] = {{"hwFecId", change.hwFecIndex.hwFecId()},
                       {"globalInLif", change.hwFecIndex.globalInLif()}};
      break;
    default:
      json["value"] = change.flag;
      break;
  }
  return json;
}

std::string recordingLine(Json const& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string recordingHeaderLine(StartState const& state, std::string const& comment) {
  Json json = Json::object();
  if (!comment.empty()) {
    json["comment"] = comment;
  }
  json["cleanSlate"] = state.cleanSlate;
  if (state.toggles) {
    json["toggles"] = Json::object();
    for (auto const& [name, on] : *state.toggles) {
      json["toggles"][name] = on;
    }
  }
  json["meshGroups"] = state.meshGroups;
  json["before"] = Json::array();
  for (auto const& change : state.before) {
    json["before"].push_back(changeJson(change));
  }
  json["outputs"] = Json::object();
  for (auto const& row : state.outputs) {
    Json& hash = json["outputs"][row.key];
    hash = Json::object();
    for (auto const& [field, text] : row.fields) {
      hash[field] = text;
    }
  }
  return recordingLine(json);
}

std::string recordingChangeLine(InputChange const& change) {
  return recordingLine(changeJson(change));
}

}  // namespace Host
