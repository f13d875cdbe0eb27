#include "sim/StateJson.h"

#include <string>

#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"

namespace Sim {
namespace {

using Host::AgentHarness;
using Json = nlohmann::ordered_json;
using Hardware::MarlTunnel::LifProfileOrientationKey;

std::string name(Netcore::IntfId id) {
  return id.toString();
}

Json orientationKeyJson(LifProfileOrientationKey const& key) {
  return Json{{"instanceName", key.instanceName().str()},
              {"vlan", key.vlanId()},
              {"groupName", key.groupName().str()},
              {"splitHorizon", key.splitHorizon()},
              {"pw", name(key.pwIntfId())}};
}

Json mplsDecapConfigJson(AgentHarness const& harness) {
  Json list = Json::array();
  for (auto const& [key, info] : harness.mplsDecapConfig->config()) {
    list.push_back(Json{{"label", key.label().value()},
                        {"innerDot1QTag", key.innerDot1QTag().value()},
                        {"keyField3", key.keyField3()},
                        {"name", info.name().str()},
                        {"flag", info.flag()},
                        {"hwFecId", info.hwFecId()},
                        {"globalInLif", info.globalInLif()},
                        {"inLifProfile", Hardware::Marl::toValue(info.inLifProfile())},
                        {"vlanId", info.vlanId()},
                        {"field8", info.field8()},
                        {"field9", info.field9()}});
  }
  return list;
}

Json labelToPwIntfJson(AgentHarness const& harness) {
  Json object = Json::object();
  for (auto const& [label, pw] : harness.decapLabelToPwIntfColl->labelToPwIntf()) {
    object[std::to_string(label.value())] = name(pw);
  }
  return object;
}

Json decapStatusJson(AgentHarness const& harness) {
  Json list = Json::array();
  if (auto const status = harness.hwVplsPwDecapStatus()) {
    for (auto const& [key, index] : status->decapStatus()) {
      list.push_back(Json{
          {"pw", name(key.pwIntfId())}, {"vlan", key.vlanId().value()}, {"index", index.value()}});
    }
  }
  return list;
}

Json encapAdditionalIdJson(AgentHarness const& harness) {
  Json object = Json::object();
  for (auto const& [pw, id] : harness.hwVplsPwStatus->encapAdditionalId()) {
    object[name(pw)] = id.value();
  }
  return object;
}

Json additionalDataMapJson(AgentHarness const& harness) {
  Json list = Json::array();
  for (auto const& [key, value] : harness.vplsPwIntfAdditionalDataMap->additionalDataMap()) {
    list.push_back(Json{{"vplsInstanceName", key.vplsInstanceName().str()},
                        {"groupName", key.groupName().str()},
                        {"pw", name(key.pwIntfId())},
                        {"splitHorizon", key.splitHorizon()},
                        {"value", value}});
  }
  return list;
}

Json lpoRequestJson(AgentHarness const& harness) {
  Json list = Json::array();
  for (auto const& key : harness.lifProfileOrientationConfig->lpoRequest()) {
    list.push_back(orientationKeyJson(key));
  }
  return list;
}

Json lpoResponseJson(AgentHarness const& harness) {
  Json list = Json::array();
  for (auto const& [key, answer] : harness.lifProfileOrientationStatus->lpoResponse()) {
    Json entry = orientationKeyJson(key);
    entry["inLifProfile"] = Hardware::Marl::toValue(answer.inLifProfile());
    entry["orientation"] = Hardware::MarlTunnel::toValue(answer.orientation());
    list.push_back(std::move(entry));
  }
  return list;
}

Json intfToKeyJson(AgentHarness const& harness) {
  Json object = Json::object();
  for (auto const& [pw, key] :
       harness.intfToLifProfileOrientationKeyMap->lifProfileOrientationKey()) {
    object[name(pw)] = orientationKeyJson(key);
  }
  return object;
}

Json esemConfigJson(AgentHarness const& harness) {
  Json list = Json::array();
  for (auto const& [key, info] : harness.esemConfigVpls->esemConfig()) {
    list.push_back(Json{{"vlanDomain", key.vlanDomain()},
                        {"vlanId", key.vlanId()},
                        {"keyField3", key.keyField3()},
                        {"tag", info.tag()},
                        {"editProfile", info.editProfile()},
                        {"outLifProfile", Hardware::Marl::toValue(info.outLifProfile())}});
  }
  return list;
}

Json tagPopPushAppJson(AgentHarness const& harness) {
  Json object = Json::object();
  for (auto const& [app, enabled] : harness.tagPopPushConfig->app()) {
    object[std::to_string(static_cast<std::uint32_t>(app))] = enabled;
  }
  return object;
}

Json evecProfileRequestJson(AgentHarness const& harness) {
  Json list = Json::array();
  for (auto const& [key, request] : harness.evecProfileRequestDir->evecProfileRequest()) {
    list.push_back(Json{{"first", request.first()}, {"second", request.second()}});
  }
  return list;
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
  state["mplsDecapConfig"] = mplsDecapConfigJson(harness);
  state["labelToPwIntf"] = labelToPwIntfJson(harness);
  state["decapStatus"] = decapStatusJson(harness);
  state["encapAdditionalId"] = encapAdditionalIdJson(harness);
  state["additionalDataMap"] = additionalDataMapJson(harness);
  state["lpoRequest"] = lpoRequestJson(harness);
  state["lpoResponse"] = lpoResponseJson(harness);
  state["intfToLifProfileOrientationKey"] = intfToKeyJson(harness);
  state["esemConfig"] = esemConfigJson(harness);
  state["tagPopPushApp"] = tagPopPushAppJson(harness);
  state["evecProfileRequest"] = evecProfileRequestJson(harness);
  state["vplsSmReady"] = harness.startupStageStatus->vplsSmReady();
  state["allocatorStartupSyncDoneCalls"] =
      harness.lifProfileOrientationAllocSm->startupSyncDoneCalls();
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
