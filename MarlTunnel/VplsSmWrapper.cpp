#include "MarlTunnel/VplsSmWrapper.h"

#include "Fab/EvpnVplsInteropStatus.h"
#include "Fab/FecIdToHwFecIdRequest.h"
#include "Fab/FecIdToHwFecIdResponse.h"
#include "Fab/HwVplsMactConfig.h"
#include "Fab/VplsPwIntfAdditionalDataMap.h"
#include "MarlTunnel/MarlTrace.h"
#include "MarlTunnel/ShowVplsDecapCliCallback.h"
#include "Mpls/Api/LabelManagerStatus.h"
#include "Mpls/LfibStatus.h"
#include "Orb/IoctlDrvFab.h"
#include "Pseudowire/VplsForwardingStatus.h"
#include "Statedb/SharedTableManager.h"

namespace Hardware::MarlTunnel {
namespace {

// State-database paths and shared tables opened at start-up.
constexpr char kPwIntfVdMapPath[] = "hardware/marl/tunnel/vpls/pwIntfVdMap";
constexpr char kEvpnVplsInteropStatusPath[] = "hardware/fab/vpls/evpnVplsInteropStatus";
constexpr char kHwFecIdResponsePath[] = "fab/vpls/l2UcastHwFecIdResponse";
constexpr char kHwFecIdResponseType[] = "Fab::FecIdToHwFecIdResponse";
constexpr char kPseudowireLfibPath[] = "mpls/pseudowireLfib";
constexpr char kPseudowireLfibType[] = "Mpls::LfibStatus";
constexpr char kHwFecIdRequestPath[] = "fab/vpls/l2UcastHwFecIdRequest";
constexpr char kHwFecIdRequestType[] = "Fab::FecIdToHwFecIdRequest";
constexpr char kLabelManagerStatusPath[] = "mpls/labelManagerStatus";
constexpr char kMactConfigPath[] = "hardware/fab/vpls/mactConfig";
constexpr char kForwardingStatusPath[] = "vpls/pseudowire/forwardingStatus";

std::vector<std::string> const kHwFecIdRequestCollections{"adjSyncIdMap",   "syncRequestsReady",
                                                          "fecGen",         "extFecGen",
                                                          "hwFecIdRequest", "objTupleToFecId"};

}  // namespace

VplsSmWrapper::VplsSmWrapper(
    Loom::Ptr<Statedb::EntityManager> const& entityManager,
    Loom::Ptr<Orb::TaskSchedulerRoot> const& taskScheduler,
    Loom::Ptr<MplsDecapConfig> const& mplsDecapConfig,
    Loom::Ptr<MplsDecapStatus const> const& mplsDecapStatus,
    Loom::Ptr<EsemConfigVpls> const& esemConfigVpls,
    Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls,
    Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig,
    Loom::Ptr<Marl::SemShadow> const& semShadow, Loom::Ptr<Marl::AradIhpLifTable> const& lifShadow,
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
    Loom::Ptr<StartupStageStatus> const& startupStageStatus)
    : entityManager_(entityManager),
      taskScheduler_(taskScheduler),
      mplsDecapConfig_(mplsDecapConfig),
      mplsDecapStatus_(mplsDecapStatus),
      esemConfigVpls_(esemConfigVpls),
      esemStatusVpls_(esemStatusVpls),
      tagPopPushConfig_(tagPopPushConfig),
      semShadow_(semShadow),
      lifShadow_(lifShadow),
      routingHwMplsCapability_(routingHwMplsCapability),
      decapLabelToPwIntfColl_(decapLabelToPwIntfColl),
      hwVplsPwConfig_(hwVplsPwConfig),
      hwVplsPwStatus_(hwVplsPwStatus),
      intfIdDisplayContext_(intfIdDisplayContext),
      evecProfileRequestDir_(evecProfileRequestDir),
      vtepTypeStatus_(vtepTypeStatus),
      hwVplsPwDecapConfig_(hwVplsPwDecapConfig),
      lifProfileOrientationConfig_(lifProfileOrientationConfig),
      lifProfileOrientationStatus_(lifProfileOrientationStatus),
      lifProfileOrientationAllocSm_(lifProfileOrientationAllocSm),
      intfToLifProfileOrientationKeyMap_(intfToLifProfileOrientationKeyMap),
      vplsHwCollectionStatus_(vplsHwCollectionStatus),
      vplsHwSingletonStatus_(vplsHwSingletonStatus),
      fabL3AdjSyncStatusExt_(fabL3AdjSyncStatusExt),
      startupStageStatus_(startupStageStatus) {}

VplsSmWrapper::~VplsSmWrapper() {
  hwVplsPwDecapStatusDel();
  agentSocketSmDel();
  startupStageStatus_ = nullptr;
  fabVplsPwSm_ = nullptr;
  marlVplsPwIntfDecapSm_ = nullptr;  // runs the decap state machine's destructor
  // The constructor's entities go with the members, in reverse order: entityManager last.
}

Loom::TypeData const& VplsSmWrapper::type() {
  using Loom::AttributeKind;
  static Loom::TypeData const data(
      typeName,
      {
          {"entityManager", AttributeKind::reference, "Statedb::EntityManager"},
          {"taskScheduler", AttributeKind::reference, "Orb::TaskSchedulerRoot"},
          {"mplsDecapConfig", AttributeKind::reference, "Hardware::MarlTunnel::MplsDecapConfig"},
          {"mplsDecapStatus", AttributeKind::reference, "Hardware::MarlTunnel::MplsDecapStatus"},
          {"esemConfigVpls", AttributeKind::reference, "Hardware::MarlTunnel::EsemConfigVpls"},
          {"esemStatusVpls", AttributeKind::reference, "Hardware::MarlTunnel::EsemStatusVpls"},
          {"tagPopPushConfig", AttributeKind::reference, "Hardware::MarlTunnel::TagPopPushConfig"},
          {"semShadow", AttributeKind::reference, "Hardware::Marl::SemShadow"},
          {"lifShadow", AttributeKind::reference, "Hardware::Marl::AradIhpLifTable"},
          {"routingHwMplsCapability", AttributeKind::reference, "Mpls::Hardware::Capability"},
          {"decapLabelToPwIntfColl", AttributeKind::reference, "Fab::LabelToPwIntfId"},
          {"hwVplsPwConfig", AttributeKind::reference, "Fab::HwVplsPwConfig"},
          {"hwVplsPwStatus", AttributeKind::reference, "Fab::HwVplsPwStatus"},
          {"intfIdDisplayContext", AttributeKind::reference, "Netcore::IntfIdDisplayContext"},
          {"evecProfileRequestDir", AttributeKind::reference,
           "Hardware::MarlTunnel::EvecProfileRequestDir"},
          {"vtepTypeStatus", AttributeKind::reference, "Hardware::MarlTunnel::VtepTypeStatus"},
          {"hwVplsPwDecapConfig", AttributeKind::reference, "Fab::HwVplsPwDecapConfig"},
          {"lifProfileOrientationConfig", AttributeKind::reference,
           "Hardware::MarlTunnel::LifProfileOrientationConfig"},
          {"lifProfileOrientationStatus", AttributeKind::reference,
           "Hardware::MarlTunnel::LifProfileOrientationStatus"},
          {"lifProfileOrientationAllocSm", AttributeKind::reference,
           "Hardware::MarlTunnel::LifProfileOrientationAllocSm"},
          {"intfToLifProfileOrientationKeyMap", AttributeKind::reference,
           "Hardware::MarlTunnel::IntfToLifProfileOrientationKeyMap"},
          {"vplsHwCollectionStatus", AttributeKind::reference, "Fab::VplsHwCollectionStatus"},
          {"vplsHwSingletonStatus", AttributeKind::reference, "Fab::VplsHwSingletonStatus"},
          {"fabL3AdjSyncStatusExt", AttributeKind::reference, "Fab::FabL3AdjSyncStatusExternal"},
          {"startupStageStatus", AttributeKind::reference,
           "Hardware::MarlTunnel::StartupStageStatus"},
          {"hwVplsPwDecapStatus", AttributeKind::reference, "Fab::HwVplsPwDecapStatus"},
          {"marlVplsPwIntfDecapSm", AttributeKind::reference,
           "Hardware::MarlTunnel::MarlVplsPwIntfDecapSm"},
          {"fabVplsPwSm", AttributeKind::reference, "Fab::FabVplsPwSm"},
          {"agentSocketSm", AttributeKind::reference, "Orb::AgentSocketHandlerSm"},
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(VplsSmWrapper::type());
}

Loom::Ptr<Fab::HwVplsPwDecapStatus> VplsSmWrapper::hwVplsPwDecapStatusIs() {
  if (!hwVplsPwDecapStatus_) {
    hwVplsPwDecapStatus_ = Fab::HwVplsPwDecapStatus::HwVplsPwDecapStatusIs();
  }
  return hwVplsPwDecapStatus_;
}

void VplsSmWrapper::marlVplsPwIntfDecapSmIs(Loom::Ptr<MarlVplsPwIntfDecapSm> const& sm) {
  if (marlVplsPwIntfDecapSm_ != sm) {
    marlVplsPwIntfDecapSm_ = sm;
  }
}

void VplsSmWrapper::fabVplsPwSmIs(Loom::Ptr<Fab::FabVplsPwSm> const& sm) {
  if (fabVplsPwSm_ != sm) {
    fabVplsPwSm_ = sm;
  }
}

Loom::Ptr<Orb::AgentSocketHandlerSm> VplsSmWrapper::agentSocketSmIs(Loom::String const& name) {
  if (!agentSocketSm_) {
    auto handler = Orb::AgentSocketHandlerSm::AgentSocketHandlerSmIs(name);
    handler->hasNotificationActiveIs(true);
    agentSocketSm_ = std::move(handler);
  }
  return agentSocketSm_;
}

void VplsSmWrapper::agentSocketSmDel() {
  if (agentSocketSm_) {
    agentSocketSm_->hasNotificationActiveIs(false);
    agentSocketSm_ = nullptr;
  }
}

void VplsSmWrapper::initializeSms() {
  static constexpr char kSig[] = "void Hardware::MarlTunnel::VplsSmWrapper::initializeSms()";
  MARL_TRACE(kTraceStartup, kSig);
  // What this call creates is dropped again if a later step throws; the locals release the
  // rest as the exception leaves.
  struct Rollback {
    VplsSmWrapper& wrapper;
    bool const hadDecapStatus = static_cast<bool>(wrapper.hwVplsPwDecapStatus_);
    bool done = false;
    ~Rollback() {
      if (done) {
        return;
      }
      wrapper.agentSocketSmDel();
      wrapper.fabVplsPwSm_ = nullptr;
      wrapper.marlVplsPwIntfDecapSm_ = nullptr;
      if (!hadDecapStatus) {
        wrapper.hwVplsPwDecapStatusDel();
      }
    }
  } rollback{*this};

  // 1-3: the agent's shared tables, two state-database entities, the HW FEC id responses.
  auto const tables = Statedb::SharedTableManager::forAgent(entityManager_->name());
  auto const additionalDataMap =
      entityManager_->entity<Fab::VplsPwIntfAdditionalDataMap>(kPwIntfVdMapPath);
  auto const evpnInteropStatus =
      entityManager_->entity<Fab::EvpnVplsInteropStatus>(kEvpnVplsInteropStatusPath);
  tables->mount(kHwFecIdResponsePath, kHwFecIdResponseType, Statedb::MountMode::readOnly);

  // 4-5: the state machine only reacts to start-up flags that turn true after it exists.
  hwVplsPwDecapConfig_->startupSyncDoneIs(false);
  hwVplsPwDecapConfig_->restartDoneIs(false);
  hwVplsPwDecapStatusIs();

  // 6-7: a fresh start has no HW FEC ids yet; an agent restart finds them.
  auto const hwFecIdResponse =
      tables->mountedEntity<Fab::FecIdToHwFecIdResponse>(kHwFecIdResponsePath);
  bool const cleanSlate = !hwFecIdResponse || hwFecIdResponse->empty();
  marlVplsPwIntfDecapSmIs(MarlVplsPwIntfDecapSm::MarlVplsPwIntfDecapSmIs(
      hwVplsPwDecapConfig_, hwVplsPwDecapStatus_, hwVplsPwConfig_, hwVplsPwStatus_,
      mplsDecapConfig_, mplsDecapStatus_, additionalDataMap, lifProfileOrientationConfig_,
      lifProfileOrientationStatus_, esemConfigVpls_, esemStatusVpls_, tagPopPushConfig_,
      evecProfileRequestDir_, decapLabelToPwIntfColl_, vtepTypeStatus_,
      lifProfileOrientationAllocSm_, intfToLifProfileOrientationKeyMap_, cleanSlate,
      startupStageStatus_));

  // 8-14: what the shared pseudowire state machine works with.
  tables->mount(kPseudowireLfibPath, kPseudowireLfibType, Statedb::MountMode::readOnly);
  tables->mount(kHwFecIdRequestPath, kHwFecIdRequestType, Statedb::MountMode::write,
                kHwFecIdRequestCollections);
  auto const labelManagerStatus =
      entityManager_->entity<::Mpls::Api::LabelManagerStatus>(kLabelManagerStatusPath);
  auto const ioctlDrv = Orb::IoctlDrvFab::IoctlDrvFabIs();
  auto const mactConfig = entityManager_->entity<Fab::HwVplsMactConfig>(kMactConfigPath);
  auto const fecIdResponse =
      tables->mountedEntity<Fab::FecIdToHwFecIdResponse>(kHwFecIdResponsePath);
  auto const fecIdRequest = tables->mountedEntity<Fab::FecIdToHwFecIdRequest>(kHwFecIdRequestPath);
  auto const lfibStatus = tables->mountedEntity<::Mpls::LfibStatus>(kPseudowireLfibPath);
  auto const forwardingStatus =
      entityManager_->entity<::Pseudowire::VplsForwardingStatus>(kForwardingStatusPath);

  // 15: the shared pseudowire state machine, with the same clean-slate decision.
  fabVplsPwSmIs(Fab::FabVplsPwSm::FabVplsPwSmIs(
      taskScheduler_, forwardingStatus, lfibStatus, fecIdRequest, fecIdResponse,
      vplsHwSingletonStatus_, vplsHwCollectionStatus_, fabL3AdjSyncStatusExt_, hwVplsPwConfig_,
      hwVplsPwStatus_, hwVplsPwDecapConfig_, hwVplsPwDecapStatus_, evpnInteropStatus,
      additionalDataMap, mactConfig, ioctlDrv, routingHwMplsCapability_, labelManagerStatus,
      entityManager_, cleanSlate));

  // 16-17: the command socket, answering the show command.
  auto const handler = agentSocketSmIs(kAgentSocketName);
  handler->agentSocketCallbackIs(showVplsDecapCliCallbackFactory(
      handler->name(), kShowCommand, hwVplsPwDecapConfig_, hwVplsPwConfig_, semShadow_, lifShadow_,
      intfIdDisplayContext_));
  rollback.done = true;
}

}  // namespace Hardware::MarlTunnel
