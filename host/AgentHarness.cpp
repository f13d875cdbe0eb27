#include "host/AgentHarness.h"

#include "Cog/Toggle.h"
#include "Fab/EvpnVplsInteropStatus.h"
#include "Fab/FecIdToHwFecIdResponse.h"
#include "Fab/HwVplsMactConfig.h"
#include "MarlTunnel/detail/SplitHorizonToggleForTest.h"
#include "Mpls/Api/LabelManagerStatus.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "Pseudowire/VplsForwardingStatus.h"

namespace Host {

using namespace Hardware::MarlTunnel;

AgentHarness::AgentHarness(AgentSettings settings)
    : entityManager(Statedb::EntityManager::EntityManagerIs(settings.agentName)),
      tables(Statedb::SharedTableManager::forAgent(settings.agentName)),
      scheduler(settings.scheduler ? settings.scheduler
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
          lifProfileOrientationConfig, lifProfileOrientationStatus, settings.meshGroups)),
      intfToLifProfileOrientationKeyMap(
          IntfToLifProfileOrientationKeyMap::IntfToLifProfileOrientationKeyMapIs()),
      vplsHwCollectionStatus(Fab::VplsHwCollectionStatus::VplsHwCollectionStatusIs()),
      vplsHwSingletonStatus(Fab::VplsHwSingletonStatus::VplsHwSingletonStatusIs()),
      fabL3AdjSyncStatusExt(Fab::FabL3AdjSyncStatusExternal::FabL3AdjSyncStatusExternalIs()),
      startupStageStatus(StartupStageStatus::StartupStageStatusIs()),
      vplsPwIntfAdditionalDataMap(
          Fab::VplsPwIntfAdditionalDataMap::VplsPwIntfAdditionalDataMapIs()),
      settings_(std::move(settings)),
      previousRoot_(Orb::TaskSchedulerRoot::root()) {
  applySettings();
  publishStateDb();
  chipIs(settings_.chip);
}

AgentHarness::~AgentHarness() {
  stop();
  chipIs(false);
  if (settings_.logSink) {
    Cog::logSinkIs(std::move(previousSink_));
  }
  if (settings_.socketDir) {
    Orb::AgentSocketHandlerSm::socketDirIs("");
  }
  if (settings_.toggleDir) {
    Cog::toggleDirIs({});
    Hardware::MarlTunnel::detail::resetSplitHorizonToggleCacheForTest();
  }
  Orb::TaskSchedulerRoot::rootIs(previousRoot_);
}

void AgentHarness::applySettings() {
  Orb::TaskSchedulerRoot::rootIs(scheduler.get());
  if (settings_.socketDir) {
    Orb::AgentSocketHandlerSm::socketDirIs(settings_.socketDir->string());
  }
  if (settings_.toggleDir) {
    Cog::toggleDirIs(*settings_.toggleDir);
    // A new agent process reads its toggles on first use.
    Hardware::MarlTunnel::detail::resetSplitHorizonToggleCacheForTest();
  }
  if (settings_.logSink) {
    previousSink_ = Cog::logSinkIs(settings_.logSink);
  }
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
  if (settings_.hwFecIdResponses > 0 && !tables->table("fab/vpls/l2UcastHwFecIdResponse")) {
    auto const responses = Fab::FecIdToHwFecIdResponse::FecIdToHwFecIdResponseIs();
    for (std::uint32_t i = 0; i < settings_.hwFecIdResponses; ++i) {
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

void AgentHarness::chipIs(bool on) {
  if (!on && chip_) {
    chip_->removeAll();
    chip_.reset();
  } else if (on && !chip_) {
    chip_ = std::make_unique<Chip::DecapProgrammer>(mplsDecapConfig, semShadow, lifShadow,
                                                    settings_.chipRows);
  }
}

void AgentHarness::batchDone() {
  if (!chip_) {
    return;
  }
  if (!chipFound_.empty()) {
    auto problems = chip_->restore(std::exchange(chipFound_, {}));
    chipProblems_.insert(chipProblems_.end(), std::make_move_iterator(problems.begin()),
                         std::make_move_iterator(problems.end()));
  }
  chip_->commit();
}

Loom::Ptr<Fab::HwVplsPwDecapStatus> AgentHarness::hwVplsPwDecapStatus() const {
  return wrapper_ ? wrapper_->hwVplsPwDecapStatus() : nullptr;
}

}  // namespace Host
