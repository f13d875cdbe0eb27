#pragma once

#include <string_view>

#include "Fab/FabL3AdjSyncStatusExternal.h"
#include "Fab/FabVplsPwSm.h"
#include "Fab/HwVplsPwConfig.h"
#include "Fab/HwVplsPwDecapConfig.h"
#include "Fab/HwVplsPwDecapStatus.h"
#include "Fab/HwVplsPwStatus.h"
#include "Fab/LabelToPwIntfId.h"
#include "Fab/VplsHwCollectionStatus.h"
#include "Fab/VplsHwSingletonStatus.h"
#include "Hardware/AradIhpLifTable.h"
#include "Hardware/EsemConfigVpls.h"
#include "Hardware/EsemStatusVpls.h"
#include "Hardware/EvecProfileRequestDir.h"
#include "Hardware/IntfToLifProfileOrientationKeyMap.h"
#include "Hardware/LifProfileOrientationAllocSm.h"
#include "Hardware/LifProfileOrientationConfig.h"
#include "Hardware/LifProfileOrientationStatus.h"
#include "Hardware/MplsDecapConfig.h"
#include "Hardware/MplsDecapStatus.h"
#include "Hardware/SemShadow.h"
#include "Hardware/StartupStageStatus.h"
#include "Hardware/TagPopPushConfig.h"
#include "Hardware/VtepTypeStatus.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/String.h"
#include "Loom/TypeData.h"
#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "Mpls/Hardware/Capability.h"
#include "Netcore/IntfIdDisplayContext.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "Orb/TaskSchedulerRoot.h"
#include "Statedb/EntityManager.h"

namespace Hardware::MarlTunnel {

// Brings up VPLS pseudowire handling inside the tunnel agent. The agent constructs the wrapper
// with the entities it owns and calls `initializeSms()`, which looks up and mounts the rest,
// creates the decap state machine and the shared pseudowire state machine (both with the same
// clean-slate decision: clean exactly when the HW FEC id response table is empty), and opens the
// agent command socket "MarlTunnelVpls".
//
// Attributes 1 to 25 come from the constructor; 26 to 29 are created by the wrapper and null
// until then. Destruction clears the decap status, closes the socket, then releases start-up
// status, the state machines and the constructor's entities, the entity manager last. Runs on
// the agent's scheduler thread; takes no locks.
class VplsSmWrapper : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::VplsSmWrapper";
  static constexpr char kAgentSocketName[] = "MarlTunnelVpls";
  static constexpr char kShowCommand[] = "vplsDecap";

  VplsSmWrapper(
      Loom::Ptr<Statedb::EntityManager> const& entityManager,
      Loom::Ptr<Orb::TaskSchedulerRoot> const& taskScheduler,
      Loom::Ptr<MplsDecapConfig> const& mplsDecapConfig,
      Loom::Ptr<MplsDecapStatus const> const& mplsDecapStatus,
      Loom::Ptr<EsemConfigVpls> const& esemConfigVpls,
      Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls,
      Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig,
      Loom::Ptr<Marl::SemShadow> const& semShadow,
      Loom::Ptr<Marl::AradIhpLifTable> const& lifShadow,
      Loom::Ptr<::Mpls::Hardware::Capability const> const& routingHwMplsCapability,
      Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl,
      Loom::Ptr<Fab::HwVplsPwConfig> const& hwVplsPwConfig,
      Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus,
      Loom::Ptr<Netcore::IntfIdDisplayContext> const& intfIdDisplayContext,
      Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir,
      Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus,
      Loom::Ptr<Fab::HwVplsPwDecapConfig> const& hwVplsPwDecapConfig,
      Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig,
      Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus,
      Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm,
      Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap,
      Loom::Ptr<Fab::VplsHwCollectionStatus const> const& vplsHwCollectionStatus,
      Loom::Ptr<Fab::VplsHwSingletonStatus const> const& vplsHwSingletonStatus,
      Loom::Ptr<Fab::FabL3AdjSyncStatusExternal const> const& fabL3AdjSyncStatusExt,
      Loom::Ptr<StartupStageStatus> const& startupStageStatus);
  ~VplsSmWrapper() override;

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // Looks up and mounts the remaining entities and creates the state machines; see the steps
  // in the source. An exception leaves the wrapper as it was before the call.
  void initializeSms();

  // The decap status, created empty on first call; the same entity on later calls.
  Loom::Ptr<Fab::HwVplsPwDecapStatus> hwVplsPwDecapStatusIs();
  void hwVplsPwDecapStatusDel() { hwVplsPwDecapStatus_ = nullptr; }

  void marlVplsPwIntfDecapSmIs(Loom::Ptr<MarlVplsPwIntfDecapSm> const& sm);
  void fabVplsPwSmIs(Loom::Ptr<Fab::FabVplsPwSm> const& sm);

  // The command socket handler: created, stored and switched on at the first call; the stored
  // one afterwards.
  Loom::Ptr<Orb::AgentSocketHandlerSm> agentSocketSmIs(Loom::String const& name);
  void agentSocketSmDel();

  Loom::Ptr<Statedb::EntityManager> const& entityManager() const { return entityManager_; }
  Loom::Ptr<Orb::TaskSchedulerRoot> const& taskScheduler() const { return taskScheduler_; }
  Loom::Ptr<MplsDecapConfig> const& mplsDecapConfig() const { return mplsDecapConfig_; }
  Loom::Ptr<MplsDecapStatus const> const& mplsDecapStatus() const { return mplsDecapStatus_; }
  Loom::Ptr<EsemConfigVpls> const& esemConfigVpls() const { return esemConfigVpls_; }
  Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls() const { return esemStatusVpls_; }
  Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig() const { return tagPopPushConfig_; }
  Loom::Ptr<Marl::SemShadow> const& semShadow() const { return semShadow_; }
  Loom::Ptr<Marl::AradIhpLifTable> const& lifShadow() const { return lifShadow_; }
  Loom::Ptr<::Mpls::Hardware::Capability const> const& routingHwMplsCapability() const {
    return routingHwMplsCapability_;
  }
  Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl() const {
    return decapLabelToPwIntfColl_;
  }
  Loom::Ptr<Fab::HwVplsPwConfig> const& hwVplsPwConfig() const { return hwVplsPwConfig_; }
  Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus() const { return hwVplsPwStatus_; }
  Loom::Ptr<Netcore::IntfIdDisplayContext> const& intfIdDisplayContext() const {
    return intfIdDisplayContext_;
  }
  Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir() const {
    return evecProfileRequestDir_;
  }
  Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus() const { return vtepTypeStatus_; }
  Loom::Ptr<Fab::HwVplsPwDecapConfig> const& hwVplsPwDecapConfig() const {
    return hwVplsPwDecapConfig_;
  }
  Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig() const {
    return lifProfileOrientationConfig_;
  }
  Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus() const {
    return lifProfileOrientationStatus_;
  }
  Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm() const {
    return lifProfileOrientationAllocSm_;
  }
  Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap() const {
    return intfToLifProfileOrientationKeyMap_;
  }
  Loom::Ptr<Fab::VplsHwCollectionStatus const> const& vplsHwCollectionStatus() const {
    return vplsHwCollectionStatus_;
  }
  Loom::Ptr<Fab::VplsHwSingletonStatus const> const& vplsHwSingletonStatus() const {
    return vplsHwSingletonStatus_;
  }
  Loom::Ptr<Fab::FabL3AdjSyncStatusExternal const> const& fabL3AdjSyncStatusExt() const {
    return fabL3AdjSyncStatusExt_;
  }
  Loom::Ptr<StartupStageStatus> const& startupStageStatus() const { return startupStageStatus_; }
  Loom::Ptr<Fab::HwVplsPwDecapStatus> const& hwVplsPwDecapStatus() const {
    return hwVplsPwDecapStatus_;
  }
  Loom::Ptr<MarlVplsPwIntfDecapSm> const& marlVplsPwIntfDecapSm() { return marlVplsPwIntfDecapSm_; }
  Loom::Ptr<MarlVplsPwIntfDecapSm const> marlVplsPwIntfDecapSm() const {
    return marlVplsPwIntfDecapSm_;
  }
  Loom::Ptr<Fab::FabVplsPwSm> const& fabVplsPwSm() { return fabVplsPwSm_; }
  Loom::Ptr<Fab::FabVplsPwSm const> fabVplsPwSm() const { return fabVplsPwSm_; }
  Loom::Ptr<Orb::AgentSocketHandlerSm> const& agentSocketSm() const { return agentSocketSm_; }

 private:
  // Attributes in the order of the constructor's arguments, then the created ones.
  Loom::Ptr<Statedb::EntityManager> entityManager_;
  Loom::Ptr<Orb::TaskSchedulerRoot> taskScheduler_;
  Loom::Ptr<MplsDecapConfig> mplsDecapConfig_;
  Loom::Ptr<MplsDecapStatus const> mplsDecapStatus_;
  Loom::Ptr<EsemConfigVpls> esemConfigVpls_;
  Loom::Ptr<EsemStatusVpls const> esemStatusVpls_;
  Loom::Ptr<TagPopPushConfig> tagPopPushConfig_;
  Loom::Ptr<Marl::SemShadow> semShadow_;
  Loom::Ptr<Marl::AradIhpLifTable> lifShadow_;
  Loom::Ptr<::Mpls::Hardware::Capability const> routingHwMplsCapability_;
  Loom::Ptr<Fab::LabelToPwIntfId> decapLabelToPwIntfColl_;
  Loom::Ptr<Fab::HwVplsPwConfig> hwVplsPwConfig_;
  Loom::Ptr<Fab::HwVplsPwStatus> hwVplsPwStatus_;
  Loom::Ptr<Netcore::IntfIdDisplayContext> intfIdDisplayContext_;
  Loom::Ptr<EvecProfileRequestDir> evecProfileRequestDir_;
  Loom::Ptr<VtepTypeStatus const> vtepTypeStatus_;
  Loom::Ptr<Fab::HwVplsPwDecapConfig> hwVplsPwDecapConfig_;
  Loom::Ptr<LifProfileOrientationConfig> lifProfileOrientationConfig_;
  Loom::Ptr<LifProfileOrientationStatus const> lifProfileOrientationStatus_;
  Loom::Ptr<LifProfileOrientationAllocSm> lifProfileOrientationAllocSm_;
  Loom::Ptr<IntfToLifProfileOrientationKeyMap> intfToLifProfileOrientationKeyMap_;
  Loom::Ptr<Fab::VplsHwCollectionStatus const> vplsHwCollectionStatus_;
  Loom::Ptr<Fab::VplsHwSingletonStatus const> vplsHwSingletonStatus_;
  Loom::Ptr<Fab::FabL3AdjSyncStatusExternal const> fabL3AdjSyncStatusExt_;
  Loom::Ptr<StartupStageStatus> startupStageStatus_;
  Loom::Ptr<Fab::HwVplsPwDecapStatus> hwVplsPwDecapStatus_;
  Loom::Ptr<MarlVplsPwIntfDecapSm> marlVplsPwIntfDecapSm_;
  Loom::Ptr<Fab::FabVplsPwSm> fabVplsPwSm_;
  Loom::Ptr<Orb::AgentSocketHandlerSm> agentSocketSm_;
};

}  // namespace Hardware::MarlTunnel
