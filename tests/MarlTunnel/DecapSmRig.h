#pragma once

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Cog/Log.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "MarlTunnel/detail/SplitHorizonToggleForTest.h"

namespace Hardware::MarlTunnel::test {

inline Netcore::IntfId pw(std::uint32_t n) {
  return Netcore::IntfId::pseudowire(n);
}
inline Bridging::VlanId vlan(std::uint32_t v) {
  return Bridging::VlanId(v);
}
inline Fab::VplsPwIntfVlanKey pwVlan(std::uint32_t n, std::uint32_t v) {
  return Fab::VplsPwIntfVlanKey(pw(n), vlan(v));
}

// The orientation request key of a pseudowire's group: instance-wide groups have the instance
// name and VLAN 0, per-VLAN-domain groups an empty instance name and the VLAN.
inline LifProfileOrientationKey lpoKey(std::string const& instance, std::uint16_t vlanId,
                                       std::string const& group, std::uint32_t n,
                                       bool splitHorizon = true) {
  return LifProfileOrientationKey(VlanAndVplsKey(instance, vlanId, group, splitHorizon), pw(n));
}

// The text of one MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN message as the rig records it.
inline std::string reducedLog(std::string const& group, std::string const& instance) {
  return "MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN(" + group + ", " + instance + ")";
}

// The decap state machine on real platform entities, with the orientation allocator answering
// its requests, and the structured log messages recorded. Inputs are written through the input
// entities, so the state machine sees real notifications.
struct DecapSmRig {
  DecapSmRig() {
    detail::resetSplitHorizonToggleCacheForTest();
    Cog::logSinkIs([this](Cog::LogMessage const& message, std::vector<std::string> const& args,
                          std::string const&) {
      logs.push_back(std::string(message.identifier) + "(" + join(args) + ")");
    });
  }
  ~DecapSmRig() {
    sm = nullptr;
    Cog::logSinkIs({});
  }
  DecapSmRig(DecapSmRig const&) = delete;
  DecapSmRig& operator=(DecapSmRig const&) = delete;

  void start(bool cleanSlate = true) {
    sm = MarlVplsPwIntfDecapSm::MarlVplsPwIntfDecapSmIs(
        decapConfig, decapStatus, pwConfig, pwStatus, mplsDecapConfig, mplsDecapStatus,
        additionalData, lpoConfig, lpoStatus, esemConfig, esemStatus, tagPopPush, evec, labelToPw,
        vtep, allocator, keyMap, cleanSlate, startupStage);
  }

  // Writes of the inputs.
  void config(std::uint32_t n, std::string const& instance, std::string const& group = "",
              bool standby = false, bool vlanAware = false, bool splitHorizon = true) {
    pwConfig->vplsPwIntfInfoIs(pw(n), Fab::VplsPwIntfInfo(pw(n))
                                          .vplsInstanceNameIs(instance)
                                          .groupNameIs(group)
                                          .standbyIs(standby)
                                          .vlanAwareIs(vlanAware)
                                          .splitHorizonIs(splitHorizon));
  }
  void label(std::uint32_t n, std::uint32_t value) {
    decapConfig->decapLabelIs(pw(n), Netcore::MplsLabel(value));
  }
  void tag(std::uint32_t n, std::uint32_t v, std::uint32_t normalised) {
    decapConfig->vlanTagInfoIs(pwVlan(n, v), Bridging::VlanIdOrNone(normalised));
  }
  void fec(std::uint32_t n, std::uint32_t hwFecId, std::uint32_t globalInLif) {
    decapConfig->encapHwFecIdIs(pw(n), Fab::NexthopIndex(hwFecId, globalInLif));
  }
  void removeConfig(std::uint32_t n) { pwConfig->vplsPwIntfInfoDel(pw(n)); }
  void removeLabel(std::uint32_t n) { decapConfig->decapLabelDel(pw(n)); }
  void removeTag(std::uint32_t n, std::uint32_t v) { decapConfig->vlanTagInfoDel(pwVlan(n, v)); }
  void removeFec(std::uint32_t n) { decapConfig->encapHwFecIdDel(pw(n)); }
  // Replaces the orientation allocator; call before start().
  void allocatorIs(std::uint32_t meshGroups) {
    allocator = LifProfileOrientationAllocSm::LifProfileOrientationAllocSmIs(lpoConfig, lpoStatus,
                                                                             meshGroups);
  }

  // Reads of the outputs.
  std::size_t decapEntries() const { return mplsDecapConfig->config().size(); }
  bool hasEntry(std::uint32_t label, std::uint32_t innerTag) const {
    return mplsDecapConfig->configHas(
        MplsDecapInfoKey(Netcore::MplsLabel(label), Bridging::VlanIdOrNone(innerTag), 0));
  }
  MplsDecapInfo entry(std::uint32_t label, std::uint32_t innerTag) const {
    return mplsDecapConfig->config(
        MplsDecapInfoKey(Netcore::MplsLabel(label), Bridging::VlanIdOrNone(innerTag), 0));
  }
  std::size_t esemEntries() const { return esemConfig->esemConfig().size(); }
  std::uint32_t countProgrammed(std::uint32_t n) const {
    auto const record = sm->localPwInfo(pw(n));
    return record ? record->countProgrammed() : 0;
  }
  bool appEnabled() const { return tagPopPush->appHas(Marl::VtAppId::vplsPwTagPopPush); }
  bool evecRequested() const { return evec->evecProfileRequestHas(EvecProfileKey(14, 25)); }

  // A pseudowire with all its inputs, written in the order configuration, label 1000 + n,
  // VLAN tag (vlanId, normalised 100), FEC id.
  void fullPw(std::uint32_t n, std::string const& instance, std::string const& group,
              bool vlanAware = false, std::uint32_t vlanId = 10) {
    config(n, instance, group, false, vlanAware);
    label(n, 1000 + n);
    tag(n, vlanId, 100);
    fec(n, 0x1000 + n, 0x2000 + n);
  }

  // The orientation requests in place, each in its printable form, in key order.
  std::vector<std::string> requests() const {
    std::vector<std::string> out;
    for (auto const& key : lpoConfig->lpoRequest()) {
      out.push_back(key.toStrep());
    }
    return out;
  }
  Orientation orientation(LifProfileOrientationKey const& key) const {
    return lpoStatus->lpoResponse(key).orientation();
  }
  // The pseudowire's published encap additional id; 0 when none is published.
  std::uint16_t additionalId(std::uint32_t n) const {
    return pwStatus->encapAdditionalId(pw(n)).value();
  }

  static std::string join(std::vector<std::string> const& parts) {
    std::string out;
    for (auto const& p : parts) {
      out += (out.empty() ? "" : ", ") + p;
    }
    return out;
  }

  Loom::Ptr<Fab::HwVplsPwDecapConfig> decapConfig =
      Fab::HwVplsPwDecapConfig::HwVplsPwDecapConfigIs();
  Loom::Ptr<Fab::HwVplsPwDecapStatus> decapStatus =
      Fab::HwVplsPwDecapStatus::HwVplsPwDecapStatusIs();
  Loom::Ptr<Fab::HwVplsPwConfig> pwConfig = Fab::HwVplsPwConfig::HwVplsPwConfigIs();
  Loom::Ptr<Fab::HwVplsPwStatus> pwStatus = Fab::HwVplsPwStatus::HwVplsPwStatusIs();
  Loom::Ptr<MplsDecapConfig> mplsDecapConfig = MplsDecapConfig::MplsDecapConfigIs();
  Loom::Ptr<MplsDecapStatus> mplsDecapStatus = MplsDecapStatus::MplsDecapStatusIs();
  Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> additionalData =
      Fab::VplsPwIntfAdditionalDataMap::VplsPwIntfAdditionalDataMapIs();
  Loom::Ptr<LifProfileOrientationConfig> lpoConfig =
      LifProfileOrientationConfig::LifProfileOrientationConfigIs();
  Loom::Ptr<LifProfileOrientationStatus> lpoStatus =
      LifProfileOrientationStatus::LifProfileOrientationStatusIs();
  Loom::Ptr<EsemConfigVpls> esemConfig = EsemConfigVpls::EsemConfigVplsIs();
  Loom::Ptr<EsemStatusVpls> esemStatus = EsemStatusVpls::EsemStatusVplsIs();
  Loom::Ptr<TagPopPushConfig> tagPopPush = TagPopPushConfig::TagPopPushConfigIs();
  Loom::Ptr<EvecProfileRequestDir> evec = EvecProfileRequestDir::EvecProfileRequestDirIs();
  Loom::Ptr<Fab::LabelToPwIntfId> labelToPw = Fab::LabelToPwIntfId::LabelToPwIntfIdIs();
  Loom::Ptr<VtepTypeStatus> vtep = VtepTypeStatus::VtepTypeStatusIs();
  Loom::Ptr<LifProfileOrientationAllocSm> allocator =
      LifProfileOrientationAllocSm::LifProfileOrientationAllocSmIs(lpoConfig, lpoStatus, 4);
  Loom::Ptr<IntfToLifProfileOrientationKeyMap> keyMap =
      IntfToLifProfileOrientationKeyMap::IntfToLifProfileOrientationKeyMapIs();
  Loom::Ptr<StartupStageStatus> startupStage = StartupStageStatus::StartupStageStatusIs();
  Loom::Ptr<MarlVplsPwIntfDecapSm> sm;
  std::vector<std::string> logs;
};

// Every change of the state machine's outputs, in order: "<output> +" when an entry is written
// (also again), "<output> -" when one is removed. VTT2 entries are told apart from the other
// decap entries by the profile they were written with. Withdrawn orientation requests are also
// kept by key, in their printable form.
class OutputRecorder : LifProfileOrientationConfig::Reactor,
                       Fab::LabelToPwIntfId::Reactor,
                       MplsDecapConfig::Reactor,
                       Fab::HwVplsPwDecapStatus::Reactor,
                       EsemConfigVpls::Reactor,
                       TagPopPushConfig::Reactor,
                       EvecProfileRequestDir::Reactor {
 public:
  explicit OutputRecorder(DecapSmRig& rig) : r_(rig) { subscribe(true); }
  ~OutputRecorder() override { subscribe(false); }
  OutputRecorder(OutputRecorder const&) = delete;
  OutputRecorder& operator=(OutputRecorder const&) = delete;

  // The changes since the last call; with `outputs`, only those of outputs named so.
  std::vector<std::string> take(std::vector<std::string> const& outputs = {}) {
    std::vector<std::string> out;
    for (auto const& e : std::exchange(events_, {})) {
      if (outputs.empty() || std::any_of(outputs.begin(), outputs.end(),
                                         [&](auto const& o) { return e.starts_with(o); })) {
        out.push_back(e);
      }
    }
    return out;
  }

  std::vector<std::string> withdrawnRequests;

 private:
  void subscribe(bool on) {
    auto const each = [&](auto&... publishers) {
      ((on ? publishers.subscribe(*this) : publishers.unsubscribe(*this)), ...);
    };
    each(r_.lpoConfig->publisher(), r_.labelToPw->publisher(), r_.mplsDecapConfig->publisher(),
         r_.decapStatus->publisher(), r_.esemConfig->publisher(), r_.tagPopPush->publisher(),
         r_.evec->publisher());
  }
  void add(std::string const& what, bool present) {
    events_.push_back(what + (present ? " +" : " -"));
  }

  void onLpoRequest(LifProfileOrientationKey const& k) override {
    bool const present = r_.lpoConfig->lpoRequestHas(k);
    add("orientation request", present);
    if (!present) {
      withdrawnRequests.push_back(k.toStrep());
    }
  }
  void onLabelToPwIntf(Netcore::MplsLabel const& k) override {
    add("label map", r_.labelToPw->labelToPwIntfHas(k));
  }
  void onConfig(MplsDecapInfoKey const& k) override {
    bool const present = r_.mplsDecapConfig->configHas(k);
    if (present && r_.mplsDecapConfig->config(k).inLifProfile() ==
                       Marl::Jericho2LifProfiles::vplsVtt2InLifProfile_) {
      vtt2_.insert(k);
    }
    add(vtt2_.contains(k) ? "VTT2 entry" : "decap entry", present);
    if (!present) {
      vtt2_.erase(k);
    }
  }
  void onDecapStatus(Fab::VplsPwIntfVlanKey const& k) override {
    add("decap status", r_.decapStatus->decapStatusHas(k));
  }
  void onEsemConfig(EsemConfigKeyVpls const& k) override {
    add("ESEM " + std::to_string(k.vlanDomain()), r_.esemConfig->esemConfigHas(k));
  }
  void onApp(Marl::VtAppId const& k) override { add("app", r_.tagPopPush->appHas(k)); }
  void onEvecProfileRequest(EvecProfileKey const& k) override {
    add("EVEC", r_.evec->evecProfileRequestHas(k));
  }

  DecapSmRig& r_;
  std::vector<std::string> events_;
  std::set<MplsDecapInfoKey> vtt2_;
};

}  // namespace Hardware::MarlTunnel::test
