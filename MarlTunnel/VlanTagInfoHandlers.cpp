// VLAN tag info: the VLANs a pseudowire carries, with their normalised tags.
//
// Order of work on add: local tag record, split-horizon orientation, MPLS decap, ESEM entry,
// ESEM count. On delete: ESEM count and ESEM entry, split-horizon request, MPLS decap, local tag
// record, local pseudowire record.

#include "MarlTunnel/MarlTrace.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "MarlTunnel/SplitHorizonToggle.h"

namespace Hardware::MarlTunnel {
namespace {

EvecProfileKey const kVplsEvecProfile(EvecProfileKey::kVplsEditProfile, EvecProfileKey::kVplsVtApp);

}  // namespace

void MarlVplsPwIntfDecapSm::handleVlanTagInfo(Fab::VplsPwIntfVlanKey const& key) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::handleVlanTagInfo(const "
      "Fab::VplsPwIntfVlanKey&)";
  auto const pwIntfId = key.pwIntfId();
  auto const vlanId = key.vlanId();
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  if (!hwVplsPwDecapConfig_->vlanTagInfoHas(key)) {
    // Also for a pair that was never added: deleteVlanTagInfo asserts on that.
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId, " ", "Delete");
    deleteVlanTagInfo(pwIntfId, vlanId);
    return;
  }
  auto const record = localPwInfo(pwIntfId);
  if (record && record->normalisedTagPerVlanHas(vlanId)) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId, " ", "Update");
    deleteVlanTagInfo(pwIntfId, vlanId);
  } else {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId, " ", "Add");
  }
  addVlanTagInfo(key);
}

void MarlVplsPwIntfDecapSm::addVlanTagInfo(Fab::VplsPwIntfVlanKey const& key) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addVlanTagInfo(const "
      "Fab::VplsPwIntfVlanKey&)";
  auto const pwIntfId = key.pwIntfId();
  auto const vlanId = key.vlanId();
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  auto record = localPwInfo(pwIntfId);
  if (!record) {
    record = Loom::make<MarlVplsPwIntfInfo>(pwIntfId);
  }
  record->normalisedTagPerVlanIs(vlanId, hwVplsPwDecapConfig_->vlanTagInfo(key));
  localPwInfoIs(record);

  bool const perVlanGroup = !record->vplsInstanceName().empty() && !record->groupName().empty() &&
                            !record->standby() && !record->vlanAware() &&
                            toggleMarlTunnelSplitHorizonGroupEnabled();
  if (perVlanGroup && !addVplsPwIntfVlanDomain(pwIntfId, vlanId.value())) {
    // The decap entry is still programmed; the operator was told through the log message.
    MARL_TRACE(kTraceDetail, kSig, "addVplsPwIntfVlanDomain failed. ");
  }
  addDecapConfig(pwIntfId, vlanId.value());
  addEsemConfig(vlanId, hwVplsPwDecapConfig_->vlanTagInfo(key));

  if (auto const count = esemProgrammed(vlanId)) {
    esemProgrammedIs(vlanId, static_cast<std::uint16_t>(*count + 1));
    return;
  }
  if (esemProgrammed_.empty()) {
    // The first VLAN of the whole state machine brings the tag pop/push application.
    if (tagPopPushConfig_) {
      tagPopPushConfig_->appIs(Marl::VtAppId::vplsPwTagPopPush, true);
    }
    if (evecProfileRequestDir_) {
      evecProfileRequestDir_->evecProfileRequestIs(
          EvecProfileRequest(kVplsEvecProfile.first(), kVplsEvecProfile.second()));
    }
  }
  esemProgrammedIs(vlanId, 1);
}

void MarlVplsPwIntfDecapSm::deleteVlanTagInfo(Netcore::IntfId pwIntfId, Bridging::VlanId vlanId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVlanTagInfo(Netcore::IntfId, "
      "Bridging::VlanId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  // clang-format off
  LOOM_ASSERT( esemProgrammedHas( vlanId ), kDecapSmUnit, kSig );
  // clang-format on
  auto const count = *esemProgrammed(vlanId);
  if (count == 1) {
    esemProgrammedDel(vlanId);
    if (esemProgrammed_.empty()) {
      if (tagPopPushConfig_) {
        tagPopPushConfig_->appDel(Marl::VtAppId::vplsPwTagPopPush);
      }
      if (evecProfileRequestDir_) {
        evecProfileRequestDir_->evecProfileRequestDel(kVplsEvecProfile);
      }
    }
    deleteEsemConfig(vlanId);
  } else {
    esemProgrammedIs(vlanId, static_cast<std::uint16_t>(count - 1));
  }

  auto const record = localPwInfo(pwIntfId);
  if (!record) {
    return;
  }
  auto const& info = pwIntfInfo(pwIntfId);
  if (!info.standby() && !info.vlanAware() && toggleMarlTunnelSplitHorizonGroupEnabled()) {
    // The pair's per-VLAN-domain group, keyed as it was requested: no instance name.
    LifProfileOrientationKey const key(
        getVlanAndVplsGroupKeyAndType(vlanId.value(), Loom::String(), record->groupName(),
                                      record->splitHorizon()),
        pwIntfId);
    MARL_TRACE(kTraceDetail, kSig, "delete lpoRequest: for", key);
    lpoRequestDel(key);
  }
  if (!record->vplsInstanceName().empty() && record->decapLabel().isLabel() &&
      record->encapHwFecIdAvail() && record->normalisedTagPerVlanHas(vlanId)) {
    deleteMplsDecapConfig(pwIntfId, Bridging::VlanIdOrNone(vlanId),
                          record->normalisedTagPerVlan(vlanId), record->decapLabel());
  }
  record->normalisedTagPerVlanDel(vlanId);
  delLocalPwInfo(pwIntfId);
}

}  // namespace Hardware::MarlTunnel
