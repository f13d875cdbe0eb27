#include "host/PseudowireStatus.h"

#include <algorithm>
#include <array>
#include <utility>

#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "MarlTunnel/SplitHorizonToggle.h"

namespace Host {
namespace {

using Hardware::MarlTunnel::Orientation;

constexpr std::array<std::pair<PwStatusCode, std::string_view>, 14> kCodeNames{{
    {PwStatusCode::agentStopped, "agentStopped"},
    {PwStatusCode::waitingForConfiguration, "waitingForConfiguration"},
    {PwStatusCode::standby, "standby"},
    {PwStatusCode::standbyWaitingForLabel, "standbyWaitingForLabel"},
    {PwStatusCode::standbyNotProgrammed, "standbyNotProgrammed"},
    {PwStatusCode::orientationFailed, "orientationFailed"},
    {PwStatusCode::noGroupUnderDci, "noGroupUnderDci"},
    {PwStatusCode::refusedUnderVxlan, "refusedUnderVxlan"},
    {PwStatusCode::fecIdBeforeInstance, "fecIdBeforeInstance"},
    {PwStatusCode::waitingForInputs, "waitingForInputs"},
    {PwStatusCode::programmed, "programmed"},
    {PwStatusCode::partlyProgrammed, "partlyProgrammed"},
    {PwStatusCode::notProgrammed, "notProgrammed"},
    {PwStatusCode::waitingForChip, "waitingForChip"},
}};

// The members of a collection keyed by (pseudowire, VLAN) that belong to one pseudowire: a
// range of the ordered keys, so that a status costs a lookup, not a walk of the table.
template <class Coll, class Visit>
void forEachOfPseudowire(Coll const& collection, Netcore::IntfId pw, Visit const& visit) {
  for (auto it = collection.lowerBound(Fab::VplsPwIntfVlanKey(pw, Bridging::VlanId(1)));
       it != collection.end() && it->first.pwIntfId() == pw; ++it) {
    visit(it->first, it->second);
  }
}

std::size_t programmedVlans(AgentHarness const& harness, Netcore::IntfId pw) {
  std::size_t count = 0;
  if (auto const status = harness.hwVplsPwDecapStatus()) {
    forEachOfPseudowire(status->decapStatus(), pw,
                        [&](Fab::VplsPwIntfVlanKey const&, Fab::NexthopIndex) { ++count; });
  }
  return count;
}

// A standby pseudowire has one decap entry, under its label and no inner tag.
bool standbyEntryProgrammed(AgentHarness const& harness, Netcore::IntfId pw) {
  auto const& decap = *harness.hwVplsPwDecapConfig;
  if (!decap.decapLabelHas(pw)) {
    return false;
  }
  auto const label = decap.decapLabel(pw);
  return harness.mplsDecapConfig->configHas(
             Hardware::MarlTunnel::MplsDecapInfoKey(label, Bridging::VlanIdOrNone(), 0)) &&
         harness.decapLabelToPwIntfColl->labelToPwIntf(label) == pw;
}

PseudowireStatus status(PwStatusCode code, std::string words) {
  return PseudowireStatus{code, std::move(words)};
}

// The pseudowire's decap requests (all under its label) that wait for the chip, and how many
// requests it has; none while no chip is attached.
std::pair<std::size_t, std::size_t> chipWaits(AgentHarness const& harness, Netcore::IntfId pw) {
  auto const* chip = harness.chip();
  auto const& decap = *harness.hwVplsPwDecapConfig;
  if (chip == nullptr || chip->waitingCount() == 0 || !decap.decapLabelHas(pw)) {
    return {0, 0};
  }
  auto const label = decap.decapLabel(pw);
  if (harness.decapLabelToPwIntfColl->labelToPwIntf(label) != pw) {
    return {0, 0};
  }
  auto const& requests = harness.mplsDecapConfig->config();
  std::size_t waiting = 0;
  std::size_t all = 0;
  for (auto it = requests.lowerBound(
           Hardware::MarlTunnel::MplsDecapInfoKey(label, Bridging::VlanIdOrNone(), 0));
       it != requests.end() && it->first.label() == label; ++it) {
    ++all;
    waiting += chip->waiting(it->first) ? 1 : 0;
  }
  return {waiting, all};
}

// A programmed pseudowire whose entries the chip has no room for says so.
PseudowireStatus programmedOnChip(AgentHarness const& harness, Netcore::IntfId pw,
                                  PseudowireStatus programmed) {
  auto const [waiting, all] = chipWaits(harness, pw);
  if (waiting == 0) {
    return programmed;
  }
  return status(PwStatusCode::waitingForChip, "waiting for the chip: " + std::to_string(waiting) +
                                                  " of " + std::to_string(all) +
                                                  " decap entries (in-LIF table full)");
}

PseudowireStatus standbyStatus(AgentHarness const& harness, Netcore::IntfId pw) {
  if (!harness.hwVplsPwDecapConfig->decapLabelHas(pw)) {
    return status(PwStatusCode::standbyWaitingForLabel, "standby, waiting for label");
  }
  return standbyEntryProgrammed(harness, pw)
             ? programmedOnChip(harness, pw, status(PwStatusCode::standby, "standby"))
             : status(PwStatusCode::standbyNotProgrammed, "standby, not programmed");
}

// A group under VXLAN asks for its orientation once it can: an instance-wide group with the
// configuration, a group per VLAN domain with each VLAN.
bool refusedUnderVxlan(AgentHarness const& harness, Netcore::IntfId pw,
                       Fab::VplsPwIntfInfo const& info, bool hasVlans) {
  bool const meshGroup = info.splitHorizon() && !info.groupName().empty();
  bool const instanceWide =
      info.vlanAware() || !Hardware::MarlTunnel::toggleMarlTunnelSplitHorizonGroupEnabled();
  return harness.vtepTypeStatus->vxlanPresent() && meshGroup && (instanceWide || hasVlans) &&
         !harness.hwVplsPwStatus->encapAdditionalIdHas(pw);
}

std::string joined(std::vector<std::string> const& parts) {
  std::string out;
  for (auto const& part : parts) {
    out += (out.empty() ? "" : ", ") + part;
  }
  return out;
}

}  // namespace

std::string_view codeName(PwStatusCode code) {
  for (auto const& [c, name] : kCodeNames) {
    if (c == code) {
      return name;
    }
  }
  return "?";
}

std::vector<std::pair<std::uint16_t, std::uint16_t>> vlanTags(AgentHarness const& harness,
                                                              Netcore::IntfId pw) {
  std::vector<std::pair<std::uint16_t, std::uint16_t>> tags;
  forEachOfPseudowire(harness.hwVplsPwDecapConfig->vlanTagInfo(), pw,
                      [&](Fab::VplsPwIntfVlanKey const& key, Bridging::VlanIdOrNone tag) {
                        tags.emplace_back(key.vlanId().value(), tag.value());
                      });
  return tags;
}

std::vector<Orientation> orientationsOf(AgentHarness const& harness, Netcore::IntfId pw) {
  std::vector<Orientation> orientations;
  for (auto const& [key, answer] : harness.lifProfileOrientationStatus->lpoResponse()) {
    if (key.pwIntfId() == pw && std::find(orientations.begin(), orientations.end(),
                                          answer.orientation()) == orientations.end()) {
      orientations.push_back(answer.orientation());
    }
  }
  return orientations;
}

std::set<Netcore::IntfId> knownPseudowires(AgentHarness const& harness) {
  std::set<Netcore::IntfId> pws;
  for (auto const& [pw, info] : harness.hwVplsPwConfig->vplsPwIntfInfo()) {
    pws.insert(pw);
  }
  auto const& decap = *harness.hwVplsPwDecapConfig;
  for (auto const& [pw, label] : decap.decapLabel()) {
    pws.insert(pw);
  }
  for (auto const& [key, tag] : decap.vlanTagInfo()) {
    pws.insert(key.pwIntfId());
  }
  for (auto const& [pw, index] : decap.encapHwFecId()) {
    pws.insert(pw);
  }
  if (harness.running()) {
    for (auto const& [pw, record] : harness.decapSm().localPwInfo()) {
      pws.insert(pw);
    }
  }
  return pws;
}

bool pseudowireKnown(AgentHarness const& harness, Netcore::IntfId pw) {
  auto const& decap = *harness.hwVplsPwDecapConfig;
  bool hasTags = false;
  forEachOfPseudowire(
      decap.vlanTagInfo(), pw,
      [&](Fab::VplsPwIntfVlanKey const&, Bridging::VlanIdOrNone) { hasTags = true; });
  return harness.hwVplsPwConfig->vplsPwIntfInfoHas(pw) || decap.decapLabelHas(pw) || hasTags ||
         decap.encapHwFecIdHas(pw) || (harness.running() && harness.decapSm().localPwInfo(pw));
}

PseudowireStatus pseudowireStatus(AgentHarness const& harness, Netcore::IntfId pw) {
  return pseudowireStatus(harness, pw, orientationsOf(harness, pw));
}

PseudowireStatus pseudowireStatus(AgentHarness const& harness, Netcore::IntfId pw,
                                  std::vector<Orientation> const& orientations) {
  if (!harness.running()) {
    return status(PwStatusCode::agentStopped, "agent stopped");
  }
  auto const& pwConfig = *harness.hwVplsPwConfig;
  auto const& decap = *harness.hwVplsPwDecapConfig;
  if (!pwConfig.vplsPwIntfInfoHas(pw)) {
    return status(PwStatusCode::waitingForConfiguration, "waiting for configuration");
  }
  auto const info = pwConfig.vplsPwIntfInfo(pw);
  if (info.standby()) {
    return standbyStatus(harness, pw);
  }
  if (std::find(orientations.begin(), orientations.end(), Orientation::orientationAllocFailed) !=
      orientations.end()) {
    return status(PwStatusCode::orientationFailed, "orientation allocation failed");
  }
  auto const vlans = vlanTags(harness, pw).size();
  auto const programmed = programmedVlans(harness, pw);
  bool const complete = vlans > 0 && programmed == vlans;
  if (harness.vtepTypeStatus->vxlanDciConfigured() && !complete) {
    return status(PwStatusCode::noGroupUnderDci, "no split-horizon group under VXLAN DCI");
  }
  if (refusedUnderVxlan(harness, pw, info, vlans > 0)) {
    return status(PwStatusCode::refusedUnderVxlan, "split-horizon group refused under VXLAN");
  }
  auto const record = harness.decapSm().localPwInfo(pw);
  if (decap.encapHwFecIdHas(pw) && record && !record->vplsInstanceName().empty() &&
      !record->encapHwFecIdAvail()) {
    return status(PwStatusCode::fecIdBeforeInstance,
                  "FEC id arrived before instance (re-publish it)");
  }
  std::vector<std::string> missing;
  if (!decap.decapLabelHas(pw)) {
    missing.emplace_back("label");
  }
  if (vlans == 0) {
    missing.emplace_back("VLAN tag info");
  }
  if (!decap.encapHwFecIdHas(pw)) {
    missing.emplace_back("encap FEC id");
  }
  if (!missing.empty()) {
    return status(PwStatusCode::waitingForInputs, "waiting for " + joined(missing));
  }
  if (complete) {
    return programmedOnChip(harness, pw, status(PwStatusCode::programmed, "programmed"));
  }
  if (programmed > 0) {
    return programmedOnChip(
        harness, pw,
        status(PwStatusCode::partlyProgrammed, "programmed for " + std::to_string(programmed) +
                                                   " of " + std::to_string(vlans) + " VLANs"));
  }
  return status(PwStatusCode::notProgrammed, "not programmed");
}

}  // namespace Host
