#include "sim/StateJson.h"

#include <string>

#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "host/OutputTable.h"

namespace Sim {
namespace {

using Host::AgentHarness;
using Json = nlohmann::ordered_json;

std::string name(Netcore::IntfId id) {
  return id.toString();
}

Json localPwInfoJson(AgentHarness const& harness) {
  Json list = Json::array();
  if (!harness.running()) {
    return list;
  }
  for (auto const& [pw, record] : harness.decapSm().localPwInfo()) {
    Json tags = Json::object();
    for (auto const& [vlan, tag] : record->normalisedTagPerVlan()) {
      tags[std::to_string(vlan.value())] = tag.value();
    }
    list.push_back(Json{{"pwIntfId", name(pw)},
                        {"decapLabel", record->decapLabel().value()},
                        {"normalisedTagPerVlan", std::move(tags)},
                        {"vplsInstanceName", record->vplsInstanceName().str()},
                        {"groupName", record->groupName().str()},
                        {"vlanAware", record->vlanAware() != 0},
                        {"encapHwFecIdAvail", record->encapHwFecIdAvail() != 0},
                        {"splitHorizon", record->splitHorizon() != 0},
                        {"standby", record->standby() != 0},
                        {"countProgrammed", record->countProgrammed()}});
  }
  return list;
}

Json esemProgrammedJson(AgentHarness const& harness) {
  Json object = Json::object();
  if (!harness.running()) {
    return object;
  }
  for (auto const& [vlan, count] : harness.decapSm().esemProgrammed()) {
    object[std::to_string(vlan.value())] = count;
  }
  return object;
}

Json logsJson(std::vector<LogRecord> const& logs) {
  Json list = Json::array();
  for (auto const& log : logs) {
    list.push_back(Json{{"id", log.id}, {"args", log.args}});
  }
  return list;
}

}  // namespace

nlohmann::ordered_json stateJson(AgentHarness const& harness, std::vector<LogRecord> const& logs) {
  Json state = Json::object();
  for (auto const* table : Host::outputTables()) {
    if (table->jsonShape() == Host::JsonShape::members) {
      state.update(table->json(harness));
    } else {
      state[std::string(table->jsonName())] = table->json(harness);
    }
  }
  state["localPwInfo"] = localPwInfoJson(harness);
  state["esemProgrammed"] = esemProgrammedJson(harness);
  state["initialized"] = harness.running() && harness.decapSm().initialized();
  state["logs"] = logsJson(logs);
  return state;
}

nlohmann::ordered_json stepJson(StepReport const& step, nlohmann::ordered_json state) {
  Json line = Json::object();
  line["event"] = step.event;
  line["state"] = std::move(state);
  if (step.show) {
    line["show"] = *step.show;
  }
  if (step.error) {
    line["error"] = *step.error;
  }
  return line;
}

std::string jsonText(nlohmann::ordered_json const& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace Sim
