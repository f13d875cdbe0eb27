// Decap labels, and dropping a pseudowire's record once nothing is left in it.

#include "MarlTunnel/MarlTrace.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"

namespace Hardware::MarlTunnel {

void MarlVplsPwIntfDecapSm::handleDecapLabel(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::handleDecapLabel(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  if (!hwVplsPwDecapConfig_->decapLabelHas(pwIntfId)) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Delete");
    deleteDecapLabel(pwIntfId);
    return;
  }
  auto const record = localPwInfo(pwIntfId);
  if (!record || !record->decapLabel().isLabel()) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Add");
    addDecapLabel(pwIntfId);
    return;
  }
  // A re-published label, changed or not, re-programs every entry of the pseudowire.
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Update");
  deleteDecapLabel(pwIntfId);
  addDecapLabel(pwIntfId);
}

void MarlVplsPwIntfDecapSm::addDecapLabel(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addDecapLabel(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto record = localPwInfo(pwIntfId);
  if (!record) {
    record = Loom::make<MarlVplsPwIntfInfo>(pwIntfId);
  }
  record->decapLabelIs(hwVplsPwDecapConfig_->decapLabel(pwIntfId));
  localPwInfoIs(record);
  if (record->standby()) {
    // A standby pseudowire has one decap entry that belongs to no VLAN.
    populateMplsDecapConfigHelper(pwIntfId, Bridging::VlanIdOrNone());
  } else {
    addDecapConfig(pwIntfId, 0);
  }
}

void MarlVplsPwIntfDecapSm::deleteDecapLabel(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteDecapLabel(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto const record = localPwInfo(pwIntfId);
  if (!record) {
    return;
  }
  auto const label = record->decapLabel();
  if (record->standby()) {
    deleteMplsDecapConfig(pwIntfId, Bridging::VlanIdOrNone(), Bridging::VlanIdOrNone(), label);
  } else if (!record->vplsInstanceName().empty() && record->encapHwFecIdAvail()) {
    // Without instance or FEC id no per-VLAN entry was programmed.
    for (auto const& [vlanId, tag] : record->normalisedTagPerVlan()) {
      deleteMplsDecapConfig(pwIntfId, Bridging::VlanIdOrNone(vlanId), tag, label);
    }
  }
  record->decapLabelIs(Netcore::MplsLabel());
  delLocalPwInfo(pwIntfId);
}

void MarlVplsPwIntfDecapSm::delLocalPwInfo(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::delLocalPwInfo(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto const record = localPwInfo(pwIntfId);
  if (!record || !record->vplsInstanceName().empty()) {
    return;
  }
  if (!record->standby() && !record->encapHwFecIdAvail() && !record->decapLabel().isLabel() &&
      record->normalisedTagPerVlan().empty()) {
    MARL_TRACE(kTraceDetail, kSig, "Entry corresponding to pwIntfId: ", pwIntfId,
               " is deleted fromlocalPwInfo");
    localPwInfoDel(pwIntfId);
  }
}

}  // namespace Hardware::MarlTunnel
