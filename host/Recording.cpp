#include "host/Recording.h"

#include "host/InputTables.h"

namespace Host {

using Json = nlohmann::ordered_json;

Json changeJson(InputChange const& change, bool sameBatch) {
  auto const& table = inputTable(change.table);
  Json json = Json::object();
  json["op"] = change.kind == ChangeKind::set ? "set" : "del";
  json["table"] = table.name;
  auto const columns = [&](std::span<InputColumn const> columns) {
    if (columns.size() == 1) {
      return Json(cellJson(columns.front().get(change)));
    }
    Json object = Json::object();
    for (auto const& column : columns) {
      object[std::string(column.name)] = cellJson(column.get(change));
    }
    return object;
  };
  if (!table.keyColumns.empty()) {
    json["key"] = columns(table.keyColumns);
  }
  if (change.kind == ChangeKind::set) {
    json["value"] = columns(table.valueColumns);
  }
  if (sameBatch) {
    json["sameBatch"] = true;
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
  if (state.chipRows != Hardware::Marl::AradIhpLifTable::kMaxLifIndex) {
    json["chipRows"] = state.chipRows;
  }
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

std::string recordingChangeLine(InputChange const& change, bool sameBatch) {
  return recordingLine(changeJson(change, sameBatch));
}

}  // namespace Host
