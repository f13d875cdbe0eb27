#include "sim/AgentHarness.h"

#include "Fab/EvpnVplsInteropStatus.h"
#include "Fab/FecIdToHwFecIdResponse.h"
#include "Fab/HwVplsMactConfig.h"
#include "Mpls/Api/LabelManagerStatus.h"
#include "Pseudowire/VplsForwardingStatus.h"

namespace Sim {

using namespace Hardware::MarlTunnel;

AgentHarness::AgentHarness(AgentOptions options)
    : entityManager(Statedb::EntityManager::EntityManagerIs(options.agentName)),
      tables(Statedb::SharedTableManager::forAgent(options.agentName)),
      scheduler(options.scheduler ? options.scheduler
                                  : Orb::TaskSchedulerRoot::TaskSchedulerRootIs()),
      hwVplsPwConfig(Fab::HwVplsPwConfig::HwVplsPwConfigIs()),
      hwVplsPwDecapConfig(Fab::HwVplsPwDecapConfig::HwVplsPwDecapConfigIs()),
      vtepTypeStatus(VtepTypeStatus::VtepTypeStatusIs()),
      mplsDecapConfig(MplsDecapConfig::MplsDecapConfigIs()),
      mplsDecapStatus(MplsDecapStatus::MplsDecapStatusIs()),
      esemConfigVpls(EsemConfigVpls::EsemConfigVplsIs()),
      esemStatusVpls(EsemStatusVpls::EsemStatusVplsIs()),
      tagPopPushConfig(TagPopPushConfig::TagPopPushConfigIs()),
      semShadow(Hardware::Marl::SemShadow::SemShadowIs()),
      lifShadow(Hardware::Marl::AradIhpLifTable::AradIhpLifTableIs()),
      routingHwMplsCapability(Mpls::Hardware::Capability::CapabilityIs()),
      decapLabelToPwIntfColl(Fab::LabelToPwIntfId::LabelToPwIntfIdIs()),
      hwVplsPwStatus(Fab::HwVplsPwStatus::HwVplsPwStatusIs()),
      intfIdDisplayContext(Netcore::IntfIdDisplayContext::IntfIdDisplayContextIs()),
      evecProfileRequestDir(EvecProfileRequestDir::EvecProfileRequestDirIs()),
      lifProfileOrientationConfig(LifProfileOrientationConfig::LifProfileOrientationConfigIs()),
      lifProfileOrientationStatus(LifProfileOrientationStatus::LifProfileOrientationStatusIs()),
      lifProfileOrientationAllocSm(LifProfileOrientationAllocSm::LifProfileOrientationAllocSmIs(
          lifProfileOrientationConfig, lifProfileOrientationStatus, options.meshGroups)),
      intfToLifProfileOrientationKeyMap(
          IntfToLifProfileOrientationKeyMap::IntfToLifProfileOrientationKeyMapIs()),
      vplsHwCollectionStatus(Fab::VplsHwCollectionStatus::VplsHwCollectionStatusIs()),
      vplsHwSingletonStatus(Fab::VplsHwSingletonStatus::VplsHwSingletonStatusIs()),
      fabL3AdjSyncStatusExt(Fab::FabL3AdjSyncStatusExternal::FabL3AdjSyncStatusExternalIs()),
      startupStageStatus(StartupStageStatus::StartupStageStatusIs()),
      vplsPwIntfAdditionalDataMap(
          Fab::VplsPwIntfAdditionalDataMap::VplsPwIntfAdditionalDataMapIs()),
      options_(std::move(options)),
      previousRoot_(Orb::TaskSchedulerRoot::root()) {
  Orb::TaskSchedulerRoot::rootIs(scheduler.get());
  publishStateDb();
  chipModelIs(options_.chipModel);
}

AgentHarness::~AgentHarness() {
  stop();
  Orb::TaskSchedulerRoot::rootIs(previousRoot_);
}

void AgentHarness::publishStateDb() {
  entityManager->entityIs("hardware/marl/tunnel/vpls/pwIntfVdMap", vplsPwIntfAdditionalDataMap);
  entityManager->entityIs("hardware/fab/vpls/evpnVplsInteropStatus",
                          Fab::EvpnVplsInteropStatus::EvpnVplsInteropStatusIs());
  entityManager->entityIs("mpls/labelManagerStatus",
                          Mpls::Api::LabelManagerStatus::LabelManagerStatusIs());
  entityManager->entityIs("hardware/fab/vpls/mactConfig",
                          Fab::HwVplsMactConfig::HwVplsMactConfigIs());
  entityManager->entityIs("vpls/pseudowire/forwardingStatus",
                          Pseudowire::VplsForwardingStatus::VplsForwardingStatusIs());
  if (options_.hwFecIdResponses > 0 && !tables->table("fab/vpls/l2UcastHwFecIdResponse")) {
    auto const responses = Fab::FecIdToHwFecIdResponse::FecIdToHwFecIdResponseIs();
    for (std::uint32_t i = 0; i < options_.hwFecIdResponses; ++i) {
      responses->hwFecIdResponseIs(i + 1, Fab::NexthopIndex(0x1000 + i, 0x2000 + i));
    }
    tables->tableIs("fab/vpls/l2UcastHwFecIdResponse", responses);
  }
}

void AgentHarness::start() {
  if (wrapper_) {
    return;
  }
  auto wrapper = Loom::make<VplsSmWrapper>(
      entityManager, scheduler, mplsDecapConfig, mplsDecapStatus, esemConfigVpls, esemStatusVpls,
      tagPopPushConfig, semShadow, lifShadow, routingHwMplsCapability, decapLabelToPwIntfColl,
      hwVplsPwConfig, hwVplsPwStatus, intfIdDisplayContext, evecProfileRequestDir, vtepTypeStatus,
      hwVplsPwDecapConfig, lifProfileOrientationConfig, lifProfileOrientationStatus,
      lifProfileOrientationAllocSm, intfToLifProfileOrientationKeyMap, vplsHwCollectionStatus,
      vplsHwSingletonStatus, fabL3AdjSyncStatusExt, startupStageStatus);
  wrapper->initializeSms();
  wrapper_ = std::move(wrapper);
}

void AgentHarness::stop() {
  wrapper_ = nullptr;
}

void AgentHarness::restart() {
  stop();
  start();
}

MarlVplsPwIntfDecapSm& AgentHarness::decapSm() const {
  return *wrapper_->marlVplsPwIntfDecapSm();
}

void AgentHarness::chipModelIs(bool on) {
  if (!on && chipModel_) {
    chipModel_->removeAll();
    chipModel_.reset();
  } else if (on && !chipModel_) {
    chipModel_ = std::make_unique<ChipModel>(mplsDecapConfig, semShadow, lifShadow);
  }
}

Loom::Ptr<Fab::HwVplsPwDecapStatus> AgentHarness::hwVplsPwDecapStatus() const {
  return wrapper_ ? wrapper_->hwVplsPwDecapStatus() : nullptr;
}

}  // namespace Sim
