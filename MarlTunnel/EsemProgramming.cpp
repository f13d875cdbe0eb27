// ESEM entries: five per VLAN, in domains 6, 7, 8, 9 and then 5.

#include "MarlTunnel/MarlTrace.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"

namespace Hardware::MarlTunnel {
namespace {

using Marl::Jericho2LifProfiles;

// Domains 6 to 9 carry out-LIF profiles 22 to 25 (domain = profile - 16); domain 5 carries 21.
constexpr Jericho2LifProfiles kMeshOutLifProfiles[] = {
    Jericho2LifProfiles::vplsEsemOutLifProfile2_, Jericho2LifProfiles::vplsEsemOutLifProfile3_,
    Jericho2LifProfiles::vplsEsemOutLifProfile4_, Jericho2LifProfiles::vplsEsemOutLifProfile5_};
constexpr std::uint32_t kDomainOffset = 16;
constexpr std::uint32_t kLastDomain = 5;
constexpr Jericho2LifProfiles kLastDomainOutLifProfile =
    Jericho2LifProfiles::vplsEsemOutLifProfile1_;
constexpr std::uint8_t kTaggedEditProfile = 14;
constexpr std::uint8_t kUntaggedEditProfile = 21;

}  // namespace

void MarlVplsPwIntfDecapSm::addEsemConfig(Bridging::VlanId vlanId,
                                          Bridging::VlanIdOrNone dot1qTag) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addEsemConfig(Bridging::VlanId, "
      "Bridging::VlanIdOrNone)";
  MARL_TRACE(kTraceDetail, kSig, " vlanId: ", vlanId, " dot1qTag: ", dot1qTag);
  auto const editProfile = dot1qTag.isNone() ? kUntaggedEditProfile : kTaggedEditProfile;
  for (auto const outLifProfile : kMeshOutLifProfiles) {
    auto const domain = Marl::toValue(outLifProfile) - kDomainOffset;
    MARL_TRACE(kTraceDetail, kSig, "vlanDomainConstant = ", domain,
               " outLifProfile = ", Marl::toValue(outLifProfile));
    esemConfigVpls_->esemConfigIs(EsemConfigKeyVpls(domain, vlanId.value()),
                                  EsemConfigInfoVpls(dot1qTag.value(), editProfile, outLifProfile));
  }
  esemConfigVpls_->esemConfigIs(
      EsemConfigKeyVpls(kLastDomain, vlanId.value()),
      EsemConfigInfoVpls(dot1qTag.value(), editProfile, kLastDomainOutLifProfile));
}

void MarlVplsPwIntfDecapSm::deleteEsemConfig(Bridging::VlanId vlanId) {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteEsemConfig(Bridging::VlanId)";
  MARL_TRACE(kTraceDetail, kSig, " vlanId: ", vlanId);
  for (auto const outLifProfile : kMeshOutLifProfiles) {
    auto const domain = Marl::toValue(outLifProfile) - kDomainOffset;
    MARL_TRACE(kTraceDetail, kSig, "vlanDomainConstant = ", domain);
    esemConfigVpls_->esemConfigDel(EsemConfigKeyVpls(domain, vlanId.value()));
  }
  esemConfigVpls_->esemConfigDel(EsemConfigKeyVpls(kLastDomain, vlanId.value()));
}

}  // namespace Hardware::MarlTunnel
