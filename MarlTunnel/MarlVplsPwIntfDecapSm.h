#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Fab/HwVplsPwConfig.h"
#include "Fab/HwVplsPwDecapConfig.h"
#include "Fab/HwVplsPwDecapStatus.h"
#include "Fab/HwVplsPwStatus.h"
#include "Fab/LabelToPwIntfId.h"
#include "Fab/VplsIntfKey.h"
#include "Fab/VplsPwIntfAdditionalDataMap.h"
#include "Fab/VplsPwIntfInfo.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Hardware/EsemConfigVpls.h"
#include "Hardware/EsemStatusVpls.h"
#include "Hardware/EvecProfileRequestDir.h"
#include "Hardware/IntfToLifProfileOrientationKeyMap.h"
#include "Hardware/Jericho2LifProfiles.h"
#include "Hardware/LifProfileOrientationAllocSm.h"
#include "Hardware/LifProfileOrientationConfig.h"
#include "Hardware/LifProfileOrientationKey.h"
#include "Hardware/LifProfileOrientationStatus.h"
#include "Hardware/MplsDecapConfig.h"
#include "Hardware/MplsDecapStatus.h"
#include "Hardware/Orientation.h"
#include "Hardware/StartupStageStatus.h"
#include "Hardware/TagPopPushConfig.h"
#include "Hardware/VlanAndVplsKey.h"
#include "Hardware/VtepTypeStatus.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/TypeData.h"
#include "MarlTunnel/MarlVplsPwIntfInfo.h"
#include "Netcore/IntfId.h"
#include "Netcore/MplsLabel.h"
#include "Trace/StaticText.h"

namespace Hardware::MarlTunnel {

// The VPLS pseudowire decapsulation state machine. It turns pseudowire configuration (the
// pseudowire's VPLS instance and split-horizon group, its decap label, per-VLAN tag info, its
// encapsulation HW FEC id, VXLAN presence) into hardware-table requests (MPLS decap and VTT2
// entries, ESEM entries, split-horizon orientation requests, the tag pop/push application and
// its EVEC profile) and status for other agents (decap status per pseudowire and VLAN, encap
// additional ids, the label-to-pseudowire map, readiness).
//
// Three inputs notify it: the decap configuration, the pseudowire configuration and the VTEP
// type status. A notification carries one key; the handler re-reads the current value (absent
// means deleted), decides Add, Update (always delete, then add) or Delete, and writes its
// outputs synchronously. Per pseudowire it keeps a `MarlVplsPwIntfInfo` record in `localPwInfo`,
// and per VLAN the number of (pseudowire, VLAN) pairs that use the VLAN's ESEM entries in
// `esemProgrammed`. Construction subscribes the reactors and walks the existing inputs at once
// (`handleInit`). Destruction withdraws nothing: what it wrote stays in the outputs.
//
// Broken invariants are fatal assertions; out-of-range values raise the framework's range
// errors; nothing is caught here. Runs on the agent's scheduler thread; takes no locks.
class MarlVplsPwIntfDecapSm : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::MarlVplsPwIntfDecapSm";

  MarlVplsPwIntfDecapSm(
      Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
      Loom::Ptr<Fab::HwVplsPwDecapStatus> const& hwVplsPwDecapStatus,
      Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig,
      Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus,
      Loom::Ptr<MplsDecapConfig> const& decapConfig,
      Loom::Ptr<MplsDecapStatus const> const& decapStatus,
      Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap,
      Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig,
      Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus,
      Loom::Ptr<EsemConfigVpls> const& esemConfigVpls,
      Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls,
      Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig,
      Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir,
      Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl,
      Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus,
      Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm,
      Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap,
      bool startCleanSlate, Loom::Ptr<StartupStageStatus> const& startupStageStatus);
  ~MarlVplsPwIntfDecapSm() override;

  static Loom::Ptr<MarlVplsPwIntfDecapSm> MarlVplsPwIntfDecapSmIs(
      Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
      Loom::Ptr<Fab::HwVplsPwDecapStatus> const& hwVplsPwDecapStatus,
      Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig,
      Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus,
      Loom::Ptr<MplsDecapConfig> const& decapConfig,
      Loom::Ptr<MplsDecapStatus const> const& decapStatus,
      Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap,
      Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig,
      Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus,
      Loom::Ptr<EsemConfigVpls> const& esemConfigVpls,
      Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls,
      Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig,
      Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir,
      Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl,
      Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus,
      Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm,
      Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap,
      bool startCleanSlate, Loom::Ptr<StartupStageStatus> const& startupStageStatus);

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // Held entities.
  Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig() const {
    return hwVplsPwDecapConfig_;
  }
  Loom::Ptr<Fab::HwVplsPwDecapStatus> const& hwVplsPwDecapStatus() const {
    return hwVplsPwDecapStatus_;
  }
  Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig() const { return hwVplsPwConfig_; }
  Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus() const { return hwVplsPwStatus_; }
  Loom::Ptr<MplsDecapConfig> const& decapConfig() const { return decapConfig_; }
  Loom::Ptr<MplsDecapStatus const> const& decapStatus() const { return decapStatus_; }
  Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap() const {
    return vplsPwIntfAdditionalDataMap_;
  }
  Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig() const {
    return lifProfileOrientationConfig_;
  }
  Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus() const {
    return lifProfileOrientationStatus_;
  }
  Loom::Ptr<EsemConfigVpls> const& esemConfigVpls() const { return esemConfigVpls_; }
  Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls() const { return esemStatusVpls_; }
  Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig() const { return tagPopPushConfig_; }
  Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir() const {
    return evecProfileRequestDir_;
  }
  Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl() const {
    return decapLabelToPwIntfColl_;
  }
  Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus() const { return vtepTypeStatus_; }
  Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm() const {
    return lifProfileOrientationAllocSm_;
  }
  Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap() const {
    return intfToLifProfileOrientationKeyMap_;
  }
  bool startCleanSlate() const noexcept { return startCleanSlate_; }
  Loom::Ptr<StartupStageStatus> const& startupStageStatus() const { return startupStageStatus_; }
  bool initialized() const noexcept { return initialized_; }

  // Local collections.
  auto const& localPwInfo() const noexcept { return localPwInfo_; }
  Loom::Ptr<MarlVplsPwIntfInfo> localPwInfo(Netcore::IntfId pwIntfId) const;
  void localPwInfoIs(Loom::Ptr<MarlVplsPwIntfInfo> const& record);
  Loom::Ptr<MarlVplsPwIntfInfo> localPwInfoDel(Netcore::IntfId pwIntfId);
  void localPwInfoDelAll() { localPwInfo_.clear(); }

  auto const& esemProgrammed() const noexcept { return esemProgrammed_; }
  std::optional<std::uint16_t> esemProgrammed(Bridging::VlanId vlanId) const;
  bool esemProgrammedHas(Bridging::VlanId vlanId) const { return esemProgrammed_.has(vlanId); }
  void esemProgrammedIs(Bridging::VlanId vlanId, std::uint16_t count) {
    esemProgrammed_.set(vlanId, count);
  }
  void esemProgrammedDel(Bridging::VlanId vlanId) { esemProgrammed_.erase(vlanId); }
  void esemProgrammedDelAll() { esemProgrammed_.clear(); }

  // Notification switch: subscribes (true) or unsubscribes (false) the three reactors.
  void hasNotificationActiveIs(bool on);
  bool hasNotificationActive() const noexcept {
    return nodeFlag(Loom::NodeFlag::notificationActive);
  }
  // While set, dispatchers drop notifications. Returns the previous value.
  virtual bool cogDoZombieReactors(bool zombie);
  bool zombieReactors() const noexcept { return nodeFlag(Loom::NodeFlag::zombieReactors); }

  // The framework's per-attribute entry points; each forwards to its handler.
  void cog_handleHwVplsPwDecapConfig_startupSyncDone() { handleStartupSyncDone(); }
  void cog_handleHwVplsPwDecapConfig_encapHwFecId(Netcore::IntfId pwIntfId) {
    handleEncapHwFecId(pwIntfId);
  }
  void cog_handleHwVplsPwConfig_vplsPwIntfInfo(Netcore::IntfId pwIntfId) {
    handleVplsPwIntfInfo(pwIntfId);
  }
  void cog_handleHwVplsPwDecapConfig_vlanTagInfo(Fab::VplsPwIntfVlanKey const& key) {
    handleVlanTagInfo(key);
  }
  void cog_handleHwVplsPwDecapConfig_decapLabel(Netcore::IntfId pwIntfId) {
    handleDecapLabel(pwIntfId);
  }

  // Start-up and start-up sync.
  void handleInit();
  void handleStartupSyncDone();

  // Pseudowire interface info.
  void handleVplsPwIntfInfo(Netcore::IntfId pwIntfId);
  void addVplsPwIntfInfo(Netcore::IntfId pwIntfId);
  void deleteVplsPwIntfInfo(Netcore::IntfId pwIntfId);
  Fab::VplsIntfKey getVplsIntfKey(Netcore::IntfId pwIntfId, Fab::VplsPwIntfInfo const& info) const;
  VlanAndVplsKey getVlanAndVplsGroupKeyAndType(std::uint16_t vlanId,
                                               Loom::String const& instanceName,
                                               Loom::String const& groupName, bool type) const;

  // Split-horizon orientation and VXLAN.
  LifProfileOrientationKey getLifProfileOrientationKey(std::uint16_t vlanId,
                                                       Netcore::IntfId pwIntfId, bool instanceWide);
  bool addVplsPwIntfVlanDomain(Netcore::IntfId pwIntfId, std::uint16_t vlanId);
  void populateAdditionalData(Netcore::IntfId pwIntfId, Orientation orientation);
  void deleteVplsPwIntfLpoRequest(Netcore::IntfId pwIntfId);
  void retractVplsGroups();

  // Decap label.
  void handleDecapLabel(Netcore::IntfId pwIntfId);
  void addDecapLabel(Netcore::IntfId pwIntfId);
  void deleteDecapLabel(Netcore::IntfId pwIntfId);
  void delLocalPwInfo(Netcore::IntfId pwIntfId);

  // MPLS decap and VTT2 entries.
  void populateMplsDecapConfig(Netcore::IntfId pwIntfId);
  void populateMplsDecapConfigHelper(Netcore::IntfId pwIntfId, Bridging::VlanIdOrNone vlanIdOrNone);
  void deleteMplsDecapConfig(Netcore::IntfId pwIntfId, Bridging::VlanIdOrNone vlanId,
                             Bridging::VlanIdOrNone innerDot1QTag, Netcore::MplsLabel label);
  void addDecapConfig(Netcore::IntfId pwIntfId, std::uint16_t vlanId);
  void updateVtt2DecapConfig(Netcore::IntfId pwIntfId, bool add,
                             Marl::Jericho2LifProfiles inLifProfile, std::uint32_t globalInLif,
                             Netcore::MplsLabel label, Bridging::VlanId vlanId);

  // Encap HW FEC id.
  void handleEncapHwFecId(Netcore::IntfId pwIntfId);
  void addEncapHwFecId(Netcore::IntfId pwIntfId);
  void deleteEncapHwFecId(Netcore::IntfId pwIntfId);

  // VLAN tag info.
  void handleVlanTagInfo(Fab::VplsPwIntfVlanKey const& key);
  void addVlanTagInfo(Fab::VplsPwIntfVlanKey const& key);
  void deleteVlanTagInfo(Netcore::IntfId pwIntfId, Bridging::VlanId vlanId);

  // ESEM entries.
  void addEsemConfig(Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1qTag);
  void deleteEsemConfig(Bridging::VlanId vlanId);

 private:
  // Reactor on the decap configuration: routes each member to its handler.
  class DecapConfigDispatcher : public Fab::HwVplsPwDecapConfig::Reactor {
   public:
    explicit DecapConfigDispatcher(MarlVplsPwIntfDecapSm& sm) : sm_(sm) {}
    void onVlanTagInfo(Fab::VplsPwIntfVlanKey const& key) override;
    void onEncapHwFecId(Netcore::IntfId const& pwIntfId) override;
    void onDecapLabel(Netcore::IntfId const& pwIntfId) override;
    void onStartupSyncDone() override;

   private:
    MarlVplsPwIntfDecapSm& sm_;
  };
  // Reactor on the pseudowire configuration.
  class PwConfigDispatcher : public Fab::HwVplsPwConfig::Reactor {
   public:
    explicit PwConfigDispatcher(MarlVplsPwIntfDecapSm& sm) : sm_(sm) {}
    void onVplsPwIntfInfo(Netcore::IntfId const& pwIntfId) override;

   private:
    MarlVplsPwIntfDecapSm& sm_;
  };
  // Reactor on the VTEP type status: either VXLAN flag settles the split-horizon groups.
  class VtepTypeDispatcher : public VtepTypeStatus::Reactor {
   public:
    explicit VtepTypeDispatcher(MarlVplsPwIntfDecapSm& sm) : sm_(sm) {}
    void onVxlanPresent() override;
    void onVxlanDciConfigured() override;

   private:
    MarlVplsPwIntfDecapSm& sm_;
  };

  // A reactor slot: empty, or holding its dispatcher subscribed to the entity's publisher.
  template <class Entity, class Dispatcher>
  class ReactorSlot {
   public:
    bool filled() const noexcept { return dispatcher_.has_value(); }
    void fill(Entity const& entity, MarlVplsPwIntfDecapSm& sm) {
      dispatcher_.emplace(sm);
      entity.publisher().subscribe(*dispatcher_);
    }
    void empty(Entity const& entity) {
      entity.publisher().unsubscribe(*dispatcher_);
      dispatcher_.reset();
    }

   private:
    std::optional<Dispatcher> dispatcher_;
  };

  void unsubscribeAll();

  // Reads of the inputs that treat an absent entity like an absent key. The configuration is
  // the stored record, valid until the configuration changes: a handler that writes outputs
  // (whose reactors might change it) before its last use takes a copy.
  Fab::VplsPwIntfInfo const& pwIntfInfo(Netcore::IntfId pwIntfId) const;
  bool vxlanPresent() const;
  bool vxlanDciConfigured() const;
  bool restartDone() const;
  std::optional<LifProfileAndOrientation> lpoResponse(LifProfileOrientationKey const& key) const;

  // Writes to outputs that the agent may not provide.
  void lpoRequestIs(LifProfileOrientationKey const& key);
  void lpoRequestDel(LifProfileOrientationKey const& key);
  void lifProfileOrientationKeyIs(Netcore::IntfId pwIntfId, LifProfileOrientationKey const& key);

  // The orientation request of one split-horizon group of a pseudowire, checked against the
  // allocator's answer and the VXLAN regime; the orientation to use, or none when the group
  // cannot be programmed (allocation failed, or refused while VXLAN is present). Its traces
  // begin with the caller's signature, a static text so that the Flashlog keeps it whole.
  std::optional<Orientation> requestOrientation(LifProfileOrientationKey const& key,
                                                Trace::StaticText caller,
                                                Loom::String const& logGroupName,
                                                Loom::String const& logInstanceName);

  // The key of a per-VLAN-domain group when the pseudowire's record already carries VLANs.
  std::optional<LifProfileOrientationKey> existingVlanDomainKey(Netcore::IntfId pwIntfId);

  Loom::Ptr<Fab::HwVplsPwDecapConfig const> const hwVplsPwDecapConfig_;
  Loom::Ptr<Fab::HwVplsPwDecapStatus> const hwVplsPwDecapStatus_;
  Loom::Ptr<Fab::HwVplsPwConfig const> const hwVplsPwConfig_;
  Loom::Ptr<Fab::HwVplsPwStatus> const hwVplsPwStatus_;
  Loom::Ptr<MplsDecapConfig> const decapConfig_;
  Loom::Ptr<MplsDecapStatus const> const decapStatus_;
  Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const vplsPwIntfAdditionalDataMap_;
  Loom::Ptr<LifProfileOrientationConfig> const lifProfileOrientationConfig_;
  Loom::Ptr<LifProfileOrientationStatus const> const lifProfileOrientationStatus_;
  Loom::Ptr<EsemConfigVpls> const esemConfigVpls_;
  Loom::Ptr<EsemStatusVpls const> const esemStatusVpls_;
  Loom::Ptr<TagPopPushConfig> const tagPopPushConfig_;
  Loom::Ptr<EvecProfileRequestDir> const evecProfileRequestDir_;
  Loom::Ptr<Fab::LabelToPwIntfId> const decapLabelToPwIntfColl_;
  Loom::Ptr<VtepTypeStatus const> const vtepTypeStatus_;
  Loom::Ptr<LifProfileOrientationAllocSm> const lifProfileOrientationAllocSm_;
  Loom::Ptr<IntfToLifProfileOrientationKeyMap> const intfToLifProfileOrientationKeyMap_;
  bool const startCleanSlate_;
  Loom::Ptr<StartupStageStatus> const startupStageStatus_;
  Loom::Collection<Netcore::IntfId, Loom::Ptr<MarlVplsPwIntfInfo>> localPwInfo_;
  Loom::Collection<Bridging::VlanId, std::uint16_t> esemProgrammed_;
  bool initialized_ = false;

  ReactorSlot<Fab::HwVplsPwDecapConfig, DecapConfigDispatcher> decapConfigSlot_;
  ReactorSlot<Fab::HwVplsPwConfig, PwConfigDispatcher> pwConfigSlot_;
  ReactorSlot<VtepTypeStatus, VtepTypeDispatcher> vtepTypeSlot_;
};

// Free creation entry point, forwarding to MarlVplsPwIntfDecapSmIs.
Loom::Ptr<MarlVplsPwIntfDecapSm> marlVplsPwIntfDecapSmFactory(
    Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
    Loom::Ptr<Fab::HwVplsPwDecapStatus> const& hwVplsPwDecapStatus,
    Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig,
    Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus,
    Loom::Ptr<MplsDecapConfig> const& decapConfig,
    Loom::Ptr<MplsDecapStatus const> const& decapStatus,
    Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap,
    Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig,
    Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus,
    Loom::Ptr<EsemConfigVpls> const& esemConfigVpls,
    Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls,
    Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig,
    Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir,
    Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl,
    Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus,
    Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm,
    Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap,
    bool startCleanSlate, Loom::Ptr<StartupStageStatus> const& startupStageStatus);

}  // namespace Hardware::MarlTunnel
