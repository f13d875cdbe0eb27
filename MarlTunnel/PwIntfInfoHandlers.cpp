// Pseudowire interface info: a pseudowire's configuration appearing, changing and vanishing.

#include "MarlTunnel/LogMessages.h"
#include "MarlTunnel/MarlTrace.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "MarlTunnel/SplitHorizonToggle.h"

namespace Hardware::MarlTunnel {

void MarlVplsPwIntfDecapSm::handleVplsPwIntfInfo(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::handleVplsPwIntfInfo(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  bool const configured = hwVplsPwConfig_ && hwVplsPwConfig_->vplsPwIntfInfoHas(pwIntfId);
  auto const record = localPwInfo(pwIntfId);
  if (!configured) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Delete");
    deleteVplsPwIntfInfo(pwIntfId);
    return;
  }
  if (!record) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Add");
    if (pwIntfInfo(pwIntfId).standby()) {
      MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ",
                 "This pseudowire is in standby mode");
    }
    addVplsPwIntfInfo(pwIntfId);
  } else if (record->placeholder()) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Add");
    addVplsPwIntfInfo(pwIntfId);
  } else {
    // An update is a full tear-down and rebuild; old and new values are never compared.
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Update");
    deleteVplsPwIntfInfo(pwIntfId);
    addVplsPwIntfInfo(pwIntfId);
  }
}

void MarlVplsPwIntfDecapSm::addVplsPwIntfInfo(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addVplsPwIntfInfo(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto const info = pwIntfInfo(pwIntfId);
  Loom::String const instanceName = info.vplsInstanceName();
  Loom::String const groupName = info.groupName();

  std::optional<Orientation> orientation;
  if (info.standby()) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "pw is standby.");
  } else if (vxlanDciConfigured()) {
    MARL_TRACE(kTraceNotable, kSig, " No VPLS group when VXLAN DCI is configured");
    Cog::log(MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN, groupName, instanceName);
    return;
  } else if (info.vlanAware() || !toggleMarlTunnelSplitHorizonGroupEnabled()) {
    auto const key = getLifProfileOrientationKey(0, pwIntfId, true);
    orientation = requestOrientation(key, Trace::staticText<kSig>(), groupName, instanceName);
    if (!orientation) {
      return;
    }
    MARL_TRACE(kTraceDetail, kSig, " orientation: ", *orientation);
  } else if (auto const key = existingVlanDomainKey(pwIntfId)) {
    // Groups per VLAN domain: the VLANs that arrive later request theirs from VLAN tag info
    // handling; one already known is requested here so that the additional id is published.
    orientation = requestOrientation(*key, Trace::staticText<kSig>(), groupName, instanceName);
    if (!orientation) {
      return;
    }
    MARL_TRACE(kTraceDetail, kSig, " orientation: ", *orientation);
  }

  auto record = localPwInfo(pwIntfId);
  if (!record) {
    record = Loom::make<MarlVplsPwIntfInfo>(pwIntfId);
  }
  record->vplsInstanceNameIs(instanceName);
  record->groupNameIs(groupName);
  record->splitHorizonIs(info.splitHorizon());
  record->standbyIs(info.standby());
  record->vlanAwareIs(info.vlanAware());
  localPwInfoIs(record);

  if (!info.standby() && orientation) {
    populateAdditionalData(pwIntfId, *orientation);
  }
  addDecapConfig(pwIntfId, 0);
}

void MarlVplsPwIntfDecapSm::deleteVplsPwIntfInfo(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVplsPwIntfInfo(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto const record = localPwInfo(pwIntfId);
  if (!record) {
    return;
  }
  // A placeholder had nothing programmed for a configuration.
  if (!record->vplsInstanceName().empty()) {
    if (!record->standby() && record->decapLabel().isLabel()) {
      auto const label = record->decapLabel();
      for (auto const& [vlanId, tag] : record->normalisedTagPerVlan()) {
        deleteMplsDecapConfig(pwIntfId, Bridging::VlanIdOrNone(vlanId), tag, label);
      }
      deleteMplsDecapConfig(pwIntfId, Bridging::VlanIdOrNone(), Bridging::VlanIdOrNone(), label);
    }
    deleteVplsPwIntfLpoRequest(pwIntfId);
  }
  auto const info = pwIntfInfo(pwIntfId);
  record->vplsInstanceNameIs(info.vplsInstanceName());
  record->groupNameIs(info.groupName());
  delLocalPwInfo(pwIntfId);

  // While an agent restart is in progress the key map is rebuilt from scratch; afterwards it
  // keeps the key a pseudowire last used.
  if (!restartDone() && intfToLifProfileOrientationKeyMap_) {
    intfToLifProfileOrientationKeyMap_->lifProfileOrientationKeyDel(pwIntfId);
  }
  if (hwVplsPwStatus_) {
    hwVplsPwStatus_->encapAdditionalIdDel(pwIntfId);
  }
}

Fab::VplsIntfKey MarlVplsPwIntfDecapSm::getVplsIntfKey(Netcore::IntfId pwIntfId,
                                                       Fab::VplsPwIntfInfo const& info) const {
  return Fab::VplsIntfKey(info.vplsInstanceName(), info.groupName(), pwIntfId, info.splitHorizon());
}

VlanAndVplsKey MarlVplsPwIntfDecapSm::getVlanAndVplsGroupKeyAndType(
    std::uint16_t vlanId, Loom::String const& instanceName, Loom::String const& groupName,
    bool type) const {
  return VlanAndVplsKey(instanceName, vlanId, groupName, type);
}

}  // namespace Hardware::MarlTunnel
