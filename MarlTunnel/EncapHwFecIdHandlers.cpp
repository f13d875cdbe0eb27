// Encap HW FEC ids: a non-standby pseudowire's per-VLAN entries wait for it.

#include "MarlTunnel/MarlTrace.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"

namespace Hardware::MarlTunnel {

void MarlVplsPwIntfDecapSm::handleEncapHwFecId(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::handleEncapHwFecId(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  if (!hwVplsPwDecapConfig_->encapHwFecIdHas(pwIntfId)) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Delete");
    deleteEncapHwFecId(pwIntfId);
    return;
  }
  auto const record = localPwInfo(pwIntfId);
  if (!record || record->vplsInstanceName().empty()) {
    // Not recorded before the pseudowire's instance is known; the instance arriving later does
    // not pick it up, only the next notification of this key (or the start-up walk) does.
    return;
  }
  if (!record->encapHwFecIdAvail()) {
    MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Add");
    addEncapHwFecId(pwIntfId);
    return;
  }
  // Re-programs every entry, so that they carry the FEC id and global in-LIF read now.
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " ", "Update");
  deleteEncapHwFecId(pwIntfId);
  addEncapHwFecId(pwIntfId);
}

void MarlVplsPwIntfDecapSm::addEncapHwFecId(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addEncapHwFecId(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto record = localPwInfo(pwIntfId);
  if (!record) {
    record = Loom::make<MarlVplsPwIntfInfo>(pwIntfId);
  }
  record->encapHwFecIdAvailIs(1);
  localPwInfoIs(record);
  addDecapConfig(pwIntfId, 0);
}

void MarlVplsPwIntfDecapSm::deleteEncapHwFecId(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteEncapHwFecId(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto const record = localPwInfo(pwIntfId);
  if (!record) {
    return;
  }
  // A standby pseudowire's single entry does not depend on the FEC id and stays.
  if (!record->vplsInstanceName().empty() && !record->standby() && record->decapLabel().isLabel()) {
    auto const label = record->decapLabel();
    for (auto const& [vlanId, tag] : record->normalisedTagPerVlan()) {
      deleteMplsDecapConfig(pwIntfId, Bridging::VlanIdOrNone(vlanId), tag, label);
    }
  }
  record->encapHwFecIdAvailIs(0);
  delLocalPwInfo(pwIntfId);
}

}  // namespace Hardware::MarlTunnel
