#pragma once

#include <string_view>

#include "Fab/EvpnVplsInteropStatus.h"
#include "Fab/FabL3AdjSyncStatusExternal.h"
#include "Fab/FecIdToHwFecIdRequest.h"
#include "Fab/FecIdToHwFecIdResponse.h"
#include "Fab/HwVplsMactConfig.h"
#include "Fab/HwVplsPwConfig.h"
#include "Fab/HwVplsPwDecapConfig.h"
#include "Fab/HwVplsPwDecapStatus.h"
#include "Fab/HwVplsPwStatus.h"
#include "Fab/VplsHwCollectionStatus.h"
#include "Fab/VplsHwSingletonStatus.h"
#include "Fab/VplsPwIntfAdditionalDataMap.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/TypeData.h"
#include "Mpls/Api/LabelManagerStatus.h"
#include "Mpls/Hardware/Capability.h"
#include "Mpls/LfibStatus.h"
#include "Orb/IoctlDrvFab.h"
#include "Orb/TaskSchedulerRoot.h"
#include "Pseudowire/VplsForwardingStatus.h"
#include "Statedb/EntityManager.h"

namespace Fab {

// The seat of the VPLS pseudowire state machine that the hardware agents share: it drives the
// pseudowires' HW FEC ids and encapsulation status. That behaviour belongs to the shared state
// machine and lives outside this agent; here the object holds what the tunnel agent hands it,
// in the order the state machine takes it, for as long as the agent's wrapper keeps it.
//
// Invariants: every attribute is fixed at construction; a reference is null where the agent
// has no such entity. Runs on the agent's scheduler thread; takes no locks.
class FabVplsPwSm : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::FabVplsPwSm";

  static Loom::Ptr<FabVplsPwSm> FabVplsPwSmIs(
      Loom::Ptr<Orb::TaskSchedulerRoot> const& taskScheduler,
      Loom::Ptr<Pseudowire::VplsForwardingStatus const> const& forwardingStatus,
      Loom::Ptr<Mpls::LfibStatus const> const& lfibStatus,
      Loom::Ptr<FecIdToHwFecIdRequest> const& fecIdRequest,
      Loom::Ptr<FecIdToHwFecIdResponse const> const& fecIdResponse,
      Loom::Ptr<VplsHwSingletonStatus const> const& vplsHwSingletonStatus,
      Loom::Ptr<VplsHwCollectionStatus const> const& vplsHwCollectionStatus,
      Loom::Ptr<FabL3AdjSyncStatusExternal const> const& fabL3AdjSyncStatusExt,
      Loom::Ptr<HwVplsPwConfig const> const& hwVplsPwConfig,
      Loom::Ptr<HwVplsPwStatus> const& hwVplsPwStatus,
      Loom::Ptr<HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
      Loom::Ptr<HwVplsPwDecapStatus> const& hwVplsPwDecapStatus,
      Loom::Ptr<EvpnVplsInteropStatus const> const& evpnVplsInteropStatus,
      Loom::Ptr<VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap,
      Loom::Ptr<HwVplsMactConfig const> const& mactConfig,
      Loom::Ptr<Orb::IoctlDrvFab> const& ioctlDrv,
      Loom::Ptr<Mpls::Hardware::Capability const> const& routingHwMplsCapability,
      Loom::Ptr<Mpls::Api::LabelManagerStatus const> const& labelManagerStatus,
      Loom::Ptr<Statedb::EntityManager> const& entityManager, bool cleanSlate);
  FabVplsPwSm(Loom::Ptr<Orb::TaskSchedulerRoot> taskScheduler,
              Loom::Ptr<Pseudowire::VplsForwardingStatus const> forwardingStatus,
              Loom::Ptr<Mpls::LfibStatus const> lfibStatus,
              Loom::Ptr<FecIdToHwFecIdRequest> fecIdRequest,
              Loom::Ptr<FecIdToHwFecIdResponse const> fecIdResponse,
              Loom::Ptr<VplsHwSingletonStatus const> vplsHwSingletonStatus,
              Loom::Ptr<VplsHwCollectionStatus const> vplsHwCollectionStatus,
              Loom::Ptr<FabL3AdjSyncStatusExternal const> fabL3AdjSyncStatusExt,
              Loom::Ptr<HwVplsPwConfig const> hwVplsPwConfig,
              Loom::Ptr<HwVplsPwStatus> hwVplsPwStatus,
              Loom::Ptr<HwVplsPwDecapConfig const> hwVplsPwDecapConfig,
              Loom::Ptr<HwVplsPwDecapStatus> hwVplsPwDecapStatus,
              Loom::Ptr<EvpnVplsInteropStatus const> evpnVplsInteropStatus,
              Loom::Ptr<VplsPwIntfAdditionalDataMap> vplsPwIntfAdditionalDataMap,
              Loom::Ptr<HwVplsMactConfig const> mactConfig, Loom::Ptr<Orb::IoctlDrvFab> ioctlDrv,
              Loom::Ptr<Mpls::Hardware::Capability const> routingHwMplsCapability,
              Loom::Ptr<Mpls::Api::LabelManagerStatus const> labelManagerStatus,
              Loom::Ptr<Statedb::EntityManager> entityManager, bool cleanSlate);

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  Loom::Ptr<Orb::TaskSchedulerRoot> const& taskScheduler() const noexcept { return taskScheduler_; }
  Loom::Ptr<Pseudowire::VplsForwardingStatus const> const& forwardingStatus() const noexcept {
    return forwardingStatus_;
  }
  Loom::Ptr<Mpls::LfibStatus const> const& lfibStatus() const noexcept { return lfibStatus_; }
  Loom::Ptr<FecIdToHwFecIdRequest> const& fecIdRequest() const noexcept { return fecIdRequest_; }
  Loom::Ptr<FecIdToHwFecIdResponse const> const& fecIdResponse() const noexcept {
    return fecIdResponse_;
  }
  Loom::Ptr<VplsHwSingletonStatus const> const& vplsHwSingletonStatus() const noexcept {
    return vplsHwSingletonStatus_;
  }
  Loom::Ptr<VplsHwCollectionStatus const> const& vplsHwCollectionStatus() const noexcept {
    return vplsHwCollectionStatus_;
  }
  Loom::Ptr<FabL3AdjSyncStatusExternal const> const& fabL3AdjSyncStatusExt() const noexcept {
    return fabL3AdjSyncStatusExt_;
  }
  Loom::Ptr<HwVplsPwConfig const> const& hwVplsPwConfig() const noexcept { return hwVplsPwConfig_; }
  Loom::Ptr<HwVplsPwStatus> const& hwVplsPwStatus() const noexcept { return hwVplsPwStatus_; }
  Loom::Ptr<HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig() const noexcept {
    return hwVplsPwDecapConfig_;
  }
  Loom::Ptr<HwVplsPwDecapStatus> const& hwVplsPwDecapStatus() const noexcept {
    return hwVplsPwDecapStatus_;
  }
  Loom::Ptr<EvpnVplsInteropStatus const> const& evpnVplsInteropStatus() const noexcept {
    return evpnVplsInteropStatus_;
  }
  Loom::Ptr<VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap() const noexcept {
    return vplsPwIntfAdditionalDataMap_;
  }
  Loom::Ptr<HwVplsMactConfig const> const& mactConfig() const noexcept { return mactConfig_; }
  Loom::Ptr<Orb::IoctlDrvFab> const& ioctlDrv() const noexcept { return ioctlDrv_; }
  Loom::Ptr<Mpls::Hardware::Capability const> const& routingHwMplsCapability() const noexcept {
    return routingHwMplsCapability_;
  }
  Loom::Ptr<Mpls::Api::LabelManagerStatus const> const& labelManagerStatus() const noexcept {
    return labelManagerStatus_;
  }
  Loom::Ptr<Statedb::EntityManager> const& entityManager() const noexcept { return entityManager_; }
  bool cleanSlate() const noexcept { return cleanSlate_; }

 private:
  Loom::Ptr<Orb::TaskSchedulerRoot> taskScheduler_;
  Loom::Ptr<Pseudowire::VplsForwardingStatus const> forwardingStatus_;
  Loom::Ptr<Mpls::LfibStatus const> lfibStatus_;
  Loom::Ptr<FecIdToHwFecIdRequest> fecIdRequest_;
  Loom::Ptr<FecIdToHwFecIdResponse const> fecIdResponse_;
  Loom::Ptr<VplsHwSingletonStatus const> vplsHwSingletonStatus_;
  Loom::Ptr<VplsHwCollectionStatus const> vplsHwCollectionStatus_;
  Loom::Ptr<FabL3AdjSyncStatusExternal const> fabL3AdjSyncStatusExt_;
  Loom::Ptr<HwVplsPwConfig const> hwVplsPwConfig_;
  Loom::Ptr<HwVplsPwStatus> hwVplsPwStatus_;
  Loom::Ptr<HwVplsPwDecapConfig const> hwVplsPwDecapConfig_;
  Loom::Ptr<HwVplsPwDecapStatus> hwVplsPwDecapStatus_;
  Loom::Ptr<EvpnVplsInteropStatus const> evpnVplsInteropStatus_;
  Loom::Ptr<VplsPwIntfAdditionalDataMap> vplsPwIntfAdditionalDataMap_;
  Loom::Ptr<HwVplsMactConfig const> mactConfig_;
  Loom::Ptr<Orb::IoctlDrvFab> ioctlDrv_;
  Loom::Ptr<Mpls::Hardware::Capability const> routingHwMplsCapability_;
  Loom::Ptr<Mpls::Api::LabelManagerStatus const> labelManagerStatus_;
  Loom::Ptr<Statedb::EntityManager> entityManager_;
  bool cleanSlate_;
};

}  // namespace Fab
