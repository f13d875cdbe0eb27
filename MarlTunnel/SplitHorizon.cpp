// Split-horizon orientation requests, additional ids, and the VXLAN regimes.

#include "MarlTunnel/LogMessages.h"
#include "MarlTunnel/MarlTrace.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "MarlTunnel/SplitHorizonToggle.h"

namespace Hardware::MarlTunnel {
namespace {

// Orientation 0 and orientation 3 both publish additional id 5; that is meant.
constexpr std::uint16_t kSpokeAdditionalId = 5;
constexpr std::uint16_t kAdditionalIdOffset = 2;

}  // namespace

LifProfileOrientationKey MarlVplsPwIntfDecapSm::getLifProfileOrientationKey(
    std::uint16_t vlanId, Netcore::IntfId pwIntfId, bool instanceWide) {
  static constexpr char kSig[] =
      "Hardware::MarlTunnel::LifProfileOrientationKey "
      "Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::getLifProfileOrientationKey(U16, "
      "Netcore::IntfId, bool)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, "   vlanId: ", vlanId,
             "  setVplsInstanceName: ", instanceWide);
  auto const& info = pwIntfInfo(pwIntfId);
  bool const wholeInstance = instanceWide || !toggleMarlTunnelSplitHorizonGroupEnabled();
  auto group =
      getVlanAndVplsGroupKeyAndType(wholeInstance ? std::uint16_t{0} : vlanId,
                                    wholeInstance ? info.vplsInstanceName() : Loom::String(),
                                    info.groupName(), info.splitHorizon());
  return LifProfileOrientationKey(std::move(group), pwIntfId);
}

std::optional<Orientation> MarlVplsPwIntfDecapSm::requestOrientation(
    LifProfileOrientationKey const& key, Trace::StaticText caller, Loom::String const& logGroupName,
    Loom::String const& logInstanceName) {
  lpoRequestIs(key);
  // The allocator answers inside the request; no answer yet counts as orientation 0.
  auto const response = lpoResponse(key);
  auto const orientation = response ? response->orientation() : Orientation::orientation0;
  if (orientation == Orientation::orientationAllocFailed) {
    // The request stays, so that a later answer can still arrive.
    MARL_TRACE(kTraceNotable, caller, " Orientation alloc failed");
    return std::nullopt;
  }
  if (vxlanPresent() && orientation > kMaxOrientationWithVxlan) {
    Cog::log(MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN, logGroupName, logInstanceName);
    MARL_TRACE(kTraceNotable, caller, " VXLAN present, allocated orientation ", orientation,
               " is not allowed");
    lpoRequestDel(key);
    return std::nullopt;
  }
  // Only a key in use is remembered: a failed or refused group must not come back as the
  // pseudowire's key after a restart.
  lifProfileOrientationKeyIs(key.pwIntfId(), key);
  return orientation;
}

std::optional<LifProfileOrientationKey> MarlVplsPwIntfDecapSm::existingVlanDomainKey(
    Netcore::IntfId pwIntfId) {
  auto const record = localPwInfo(pwIntfId);
  if (!record || record->normalisedTagPerVlan().empty()) {
    return std::nullopt;
  }
  // During an agent restart the pseudowire keeps the group key it had before; otherwise the
  // group of its lowest VLAN stands for all of them.
  if (!restartDone() && intfToLifProfileOrientationKeyMap_ &&
      intfToLifProfileOrientationKeyMap_->lifProfileOrientationKeyHas(pwIntfId)) {
    return intfToLifProfileOrientationKeyMap_->lifProfileOrientationKey(pwIntfId);
  }
  auto const lowestVlan = record->normalisedTagPerVlan().begin()->first;
  return getLifProfileOrientationKey(lowestVlan.value(), pwIntfId, false);
}

bool MarlVplsPwIntfDecapSm::addVplsPwIntfVlanDomain(Netcore::IntfId pwIntfId,
                                                    std::uint16_t vlanId) {
  static constexpr char kSig[] =
      "bool Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addVplsPwIntfVlanDomain(Netcore::IntfId, "
      "U16)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto const& info = pwIntfInfo(pwIntfId);
  if (info.standby()) {
    addDecapConfig(pwIntfId, 0);
    return true;
  }
  if (vxlanDciConfigured()) {
    MARL_TRACE(kTraceNotable, kSig, " No VPLS group when VXLAN DCI is configured");
    // Here the VLAN id fills the message's instance slot.
    Cog::log(MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN, info.groupName(),
             Loom::String(std::to_string(vlanId)));
    return false;
  }
  if (!localPwInfo(pwIntfId) || info.vlanAware() || !toggleMarlTunnelSplitHorizonGroupEnabled()) {
    return true;  // an instance-wide group is requested with the pseudowire's configuration
  }
  auto const key = getLifProfileOrientationKey(vlanId, pwIntfId, false);
  auto const orientation =
      requestOrientation(key, Trace::staticText<kSig>(), key.groupName(), key.instanceName());
  if (!orientation) {
    return false;
  }
  MARL_TRACE(kTraceDetail, kSig, " orientation: ", *orientation);
  populateAdditionalData(pwIntfId, *orientation);
  return true;
}

void MarlVplsPwIntfDecapSm::populateAdditionalData(Netcore::IntfId pwIntfId,
                                                   Orientation orientation) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::populateAdditionalData(Netcore::IntfId, "
      "Hardware::MarlTunnel::Orientation)";
  auto const& info = pwIntfInfo(pwIntfId);
  auto const additionalId =
      orientation == Orientation::orientation0
          ? kSpokeAdditionalId
          : static_cast<std::uint16_t>(toValue(orientation) + kAdditionalIdOffset);
  if (vplsPwIntfAdditionalDataMap_) {
    vplsPwIntfAdditionalDataMap_->additionalDataMapIs(getVplsIntfKey(pwIntfId, info), additionalId);
  }
  if (hwVplsPwStatus_) {
    hwVplsPwStatus_->encapAdditionalIdIs(pwIntfId, Fab::VplsEncapAdditionalId(additionalId));
  }
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, "  orientation: ", orientation);
}

void MarlVplsPwIntfDecapSm::deleteVplsPwIntfLpoRequest(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void "
      "Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVplsPwIntfLpoRequest(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto const record = localPwInfo(pwIntfId);
  if (!record || record->vplsInstanceName().empty() || record->standby()) {
    return;  // nothing was requested
  }
  // The record, not the configuration, knows the names the data was published under: on an
  // update the configuration already holds the new ones.
  auto const published = Fab::VplsPwIntfInfo(pwIntfId)
                             .vplsInstanceNameIs(record->vplsInstanceName())
                             .groupNameIs(record->groupName())
                             .splitHorizonIs(record->splitHorizon() != 0);
  if (vplsPwIntfAdditionalDataMap_) {
    vplsPwIntfAdditionalDataMap_->additionalDataMapDel(getVplsIntfKey(pwIntfId, published));
  }
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " split horizon: ", record->vlanAware(),
             " group:", record->groupName());

  auto const withdraw = [&](LifProfileOrientationKey const& key) {
    MARL_TRACE(kTraceDetail, kSig, "delete lpoRequest: for", key);
    lpoRequestDel(key);
  };
  if (record->vlanAware() || !toggleMarlTunnelSplitHorizonGroupEnabled()) {
    bool const stored = intfToLifProfileOrientationKeyMap_ &&
                        intfToLifProfileOrientationKeyMap_->lifProfileOrientationKeyHas(pwIntfId);
    withdraw(stored ? intfToLifProfileOrientationKeyMap_->lifProfileOrientationKey(pwIntfId)
                    : LifProfileOrientationKey(getVlanAndVplsGroupKeyAndType(
                                                   0, record->vplsInstanceName(),
                                                   record->groupName(), record->splitHorizon()),
                                               pwIntfId));
    return;
  }
  for (auto const& [vlanId, tag] : record->normalisedTagPerVlan()) {
    withdraw(LifProfileOrientationKey(
        getVlanAndVplsGroupKeyAndType(vlanId.value(), Loom::String(), record->groupName(),
                                      record->splitHorizon()),
        pwIntfId));
  }
}

void MarlVplsPwIntfDecapSm::retractVplsGroups() {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::retractVplsGroups()";
  MARL_TRACE(kTraceDetail, kSig);
  if (vxlanDciConfigured()) {
    MARL_TRACE(kTraceNotable, kSig, " Remove all VPLS split horizon groups");
    if (!lifProfileOrientationConfig_) {
      return;
    }
    for (auto const& key : lifProfileOrientationConfig_->lpoRequest()) {
      auto const pwIntfId = key.pwIntfId();
      Cog::log(MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN, key.groupName(),
               Loom::String(key.vlanAndVplsKey().toStrep()));
      deleteVplsPwIntfInfo(pwIntfId);
    }
    return;
  }
  if (vxlanPresent()) {
    MARL_TRACE(kTraceNotable, kSig, " Remove split horizon group 3 and 4");
    if (!lifProfileOrientationConfig_) {
      return;
    }
    for (auto const& key : lifProfileOrientationConfig_->lpoRequest()) {
      auto const response = lpoResponse(key);
      if (response && response->orientation() > kMaxOrientationWithVxlan) {
        auto const pwIntfId = key.pwIntfId();
        Cog::log(MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN, key.groupName(),
                 Loom::String(key.vlanAndVplsKey().toStrep()));
        deleteVplsPwIntfInfo(pwIntfId);
      }
    }
    return;
  }
  MARL_TRACE(kTraceDetail, kSig,
             " VXLAN is not present, add back deleted groups, initialized: ", initialized_);
  if (!initialized_) {
    return;
  }
  if (hwVplsPwConfig_) {
    for (auto const& [pwIntfId, info] : hwVplsPwConfig_->vplsPwIntfInfo()) {
      handleVplsPwIntfInfo(pwIntfId);
    }
  }
  if (hwVplsPwDecapConfig_) {
    for (auto const& [key, tag] : hwVplsPwDecapConfig_->vlanTagInfo()) {
      handleVlanTagInfo(key);
    }
  }
}

}  // namespace Hardware::MarlTunnel
