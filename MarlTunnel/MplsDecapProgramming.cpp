// MPLS decap and VTT2 entries: the hardware requests of one pseudowire and VLAN.
//
// Order of writes for one entry: orientation request, label map, counter, decap entry, decap
// status, VTT2 entry. On removal: VTT2 entry, counter, decap entry, label map, decap status.

#include "MarlTunnel/MarlTrace.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"

namespace Hardware::MarlTunnel {
namespace {

using Marl::Jericho2LifProfiles;

// Constant fields of every VPLS decap entry.
constexpr std::uint16_t kNoVlanField = 1;
constexpr std::uint8_t kField8 = 0;
constexpr std::uint16_t kField9 = 2;

MplsDecapInfo constantDecapInfo(MplsDecapInfoKey const& key) {
  return MplsDecapInfo(key)
      .nameIs(MplsDecapInfo::Name(""))
      .flagIs(false)
      .hwFecIdIs(0)
      .globalInLifIs(0)
      .inLifProfileIs(Jericho2LifProfiles::noLifProfile_)
      .vlanIdIs(kNoVlanField)
      .field8Is(kField8)
      .field9Is(kField9);
}

}  // namespace

void MarlVplsPwIntfDecapSm::addDecapConfig(Netcore::IntfId pwIntfId, std::uint16_t vlanId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addDecapConfig(Netcore::IntfId, U16)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  auto const record = localPwInfo(pwIntfId);
  if (!record || !record->decapLabel().isLabel()) {
    return;
  }
  bool const ready =
      record->standby() || (!record->vplsInstanceName().empty() && record->encapHwFecIdAvail() &&
                            !record->normalisedTagPerVlan().empty());
  if (!ready) {
    return;  // the handler that brings the missing piece calls again
  }
  if (vlanId == 0) {
    if (record->standby()) {
      populateMplsDecapConfigHelper(pwIntfId, Bridging::VlanIdOrNone());
    } else {
      populateMplsDecapConfig(pwIntfId);
    }
    return;
  }
  populateMplsDecapConfigHelper(pwIntfId, Bridging::VlanIdOrNone(vlanId));
}

void MarlVplsPwIntfDecapSm::populateMplsDecapConfig(Netcore::IntfId pwIntfId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::populateMplsDecapConfig(Netcore::IntfId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId);
  auto const record = localPwInfo(pwIntfId);
  if (!record) {
    return;
  }
  for (auto const& [vlanId, tag] : record->normalisedTagPerVlan()) {
    populateMplsDecapConfigHelper(pwIntfId, Bridging::VlanIdOrNone(vlanId));
  }
}

void MarlVplsPwIntfDecapSm::populateMplsDecapConfigHelper(Netcore::IntfId pwIntfId,
                                                          Bridging::VlanIdOrNone vlanIdOrNone) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::populateMplsDecapConfigHelper(Netcore::"
      "IntfId, Bridging::VlanIdOrNone)";
  std::uint16_t const vlanId = vlanIdOrNone.value();
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  auto const& config = pwIntfInfo(pwIntfId);
  bool const standby = config.standby();
  bool const vlanAware = config.vlanAware();
  // clang-format off
  LOOM_ASSERT( hwVplsPwDecapConfig()->decapLabelHas( pwIntfId ) and ( standby or ( hwVplsPwDecapConfig()->vlanTagInfoHas( Fab::VplsPwIntfVlanKey( pwIntfId, Bridging::VlanId( vlanId ) ) ) and hwVplsPwDecapConfig()->encapHwFecIdHas( pwIntfId ) ) ), kDecapSmUnit, kSig );
  // clang-format on
  auto const record = localPwInfo(pwIntfId);
  LOOM_ASSERT(record, kDecapSmUnit, kSig);

  Bridging::VlanIdOrNone const innerDot1QTag =
      standby ? Bridging::VlanIdOrNone()
              : hwVplsPwDecapConfig_->vlanTagInfo(
                    Fab::VplsPwIntfVlanKey(pwIntfId, Bridging::VlanId(vlanId)));
  auto const label = hwVplsPwDecapConfig_->decapLabel(pwIntfId);
  MplsDecapInfoKey const key(label, innerDot1QTag, 0);
  auto info = constantDecapInfo(key);

  Fab::NexthopIndex statusIndex;
  std::uint32_t globalInLif = 0;
  if (!standby) {
    Bridging::VlanId const vlan(vlanId);
    statusIndex = hwVplsPwDecapConfig_->encapHwFecId(pwIntfId);
    auto const hwFecId = statusIndex.hwFecId();
    globalInLif = statusIndex.globalInLif();
    MARL_TRACE(kTraceDetail, kSig, "hwFecId: ", hwFecId, " globalInLif: ", globalInLif);
    info.globalInLifIs(globalInLif);

    // A VLAN-aware pseudowire has one group for all its VLANs.
    std::uint16_t const orientationVlan = record->vlanAware() ? std::uint16_t{0} : vlan.value();
    auto const lpoKey = getLifProfileOrientationKey(orientationVlan, pwIntfId, vlanAware);
    lpoRequestIs(lpoKey);
    auto const response = lpoResponse(lpoKey);
    if (response && response->orientation() == Orientation::orientationAllocFailed) {
      MARL_TRACE(kTraceNotable, kSig, " Orientation alloc failed for ", lpoKey);
      return;
    }
    auto const inLifProfile =
        response ? response->inLifProfile() : Jericho2LifProfiles::noLifProfile_;
    MARL_TRACE(kTraceDetail, kSig, "inLIfProfile = ", Marl::toValue(inLifProfile));
    // clang-format off
    LOOM_ASSERT( inLifProfile >= Jericho2LifProfiles::vplsSpokeInLifProfile_ && inLifProfile <= Jericho2LifProfiles::vplsMeshInLifProfile4_, kDecapSmUnit, kSig );
    // clang-format on
    info.inLifProfileIs(inLifProfile).vlanIdIs(vlan.value()).field8Is(kField8);
    MARL_TRACE(kTraceDetail, kSig, "hwFecIdNew ", hwFecId);
    info.hwFecIdIs(hwFecId);
  }

  if (decapLabelToPwIntfColl_) {
    decapLabelToPwIntfColl_->labelToPwIntfIs(label, pwIntfId);
  }
  record->countProgrammedIs(record->countProgrammed() + 1);
  decapConfig_->configIs(key, info);
  if (standby) {
    return;
  }
  Bridging::VlanId const vlan(vlanId);
  hwVplsPwDecapStatus_->decapStatusIs(Fab::VplsPwIntfVlanKey(pwIntfId, vlan), statusIndex);
  if (vlanAware && record->countProgrammed() == 1) {
    updateVtt2DecapConfig(pwIntfId, true, Jericho2LifProfiles::vplsVtt2InLifProfile_, globalInLif,
                          label, vlan);
  }
}

void MarlVplsPwIntfDecapSm::deleteMplsDecapConfig(Netcore::IntfId pwIntfId,
                                                  Bridging::VlanIdOrNone vlanId,
                                                  Bridging::VlanIdOrNone innerDot1QTag,
                                                  Netcore::MplsLabel label) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteMplsDecapConfig(Netcore::IntfId, "
      "Bridging::VlanIdOrNone, Bridging::VlanIdOrNone, Netcore::MplsLabel)";
  MARL_TRACE(kTraceDetail, kSig, " label: ", label, " innerDot1QTag: ", innerDot1QTag,
             " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  auto const record = localPwInfo(pwIntfId);
  LOOM_ASSERT(record, kDecapSmUnit, kSig);
  bool const standby = record->standby();
  MplsDecapInfoKey const key(label, innerDot1QTag, 0);
  if (!decapConfig_->configHas(key)) {
    return;
  }
  if (record->vlanAware() && !standby && record->countProgrammed() == 1) {
    // The VTT2 entry goes with the last entry, under that entry's VLAN, which need not be the
    // VLAN it was added under.
    updateVtt2DecapConfig(pwIntfId, false, Jericho2LifProfiles::vplsVtt2InLifProfile_, 0, label,
                          Bridging::VlanId(vlanId.value()));
  }
  record->countProgrammedIs(record->countProgrammed() - 1);
  decapConfig_->configDel(key);
  if (decapLabelToPwIntfColl_) {
    decapLabelToPwIntfColl_->labelToPwIntfDel(label);
  }
  if (standby) {
    return;
  }
  hwVplsPwDecapStatus_->decapStatusDel(
      Fab::VplsPwIntfVlanKey(pwIntfId, Bridging::VlanId(vlanId.value())));
}

void MarlVplsPwIntfDecapSm::updateVtt2DecapConfig(Netcore::IntfId pwIntfId, bool add,
                                                  Marl::Jericho2LifProfiles inLifProfile,
                                                  std::uint32_t globalInLif,
                                                  Netcore::MplsLabel label,
                                                  Bridging::VlanId vlanId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::updateVtt2DecapConfig(Netcore::IntfId, "
      "bool, Hardware::Marl::Jericho2LifProfiles, U32, Netcore::MplsLabel, Bridging::VlanId)";
  MARL_TRACE(kTraceDetail, kSig, " pwIntfId = ", pwIntfId, " add = ", add,
             " inLifProfile = ", Marl::toValue(inLifProfile), " globalInLif = ", globalInLif,
             " label = ", label);
  MplsDecapInfoKey const key(label, Bridging::VlanIdOrNone(vlanId), 0);
  if (!add) {
    decapConfig_->configDel(key);
    return;
  }
  decapConfig_->configIs(
      key, constantDecapInfo(key).globalInLifIs(globalInLif).inLifProfileIs(inLifProfile));
}

}  // namespace Hardware::MarlTunnel
