// The smallest program on the installed library: it builds the VPLS wrapper on the platform the
// way a tunnel agent does, configures one pseudowire and prints the MPLS decap entry the library
// programmed for it. Built against an installed tree by scripts/check-install.

#include <stdlib.h>

#include <filesystem>
#include <iostream>
#include <string>

#include "Fab/EvpnVplsInteropStatus.h"
#include "Fab/HwVplsMactConfig.h"
#include "Fab/VplsPwIntfAdditionalDataMap.h"
#include "Loom/TextForm.h"
#include "MarlTunnel/VplsSmWrapper.h"
#include "Mpls/Api/LabelManagerStatus.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "Pseudowire/VplsForwardingStatus.h"
#include "Trace/Flashlog.h"

namespace {

using namespace Hardware::MarlTunnel;

// The entities the agent owns and hands to the wrapper, and those the wrapper looks up in the
// state database by path.
struct Agent {
  Agent()
      : entityManager(Statedb::EntityManager::EntityManagerIs("MarlTunnel")),
        scheduler(Orb::TaskSchedulerRoot::TaskSchedulerRootIs()) {
    Orb::TaskSchedulerRoot::rootIs(scheduler.get());
    entityManager->entityIs("hardware/marl/tunnel/vpls/pwIntfVdMap",
                            Fab::VplsPwIntfAdditionalDataMap::VplsPwIntfAdditionalDataMapIs());
    entityManager->entityIs("hardware/fab/vpls/evpnVplsInteropStatus",
                            Fab::EvpnVplsInteropStatus::EvpnVplsInteropStatusIs());
    entityManager->entityIs("mpls/labelManagerStatus",
                            Mpls::Api::LabelManagerStatus::LabelManagerStatusIs());
    entityManager->entityIs("hardware/fab/vpls/mactConfig",
                            Fab::HwVplsMactConfig::HwVplsMactConfigIs());
    entityManager->entityIs("vpls/pseudowire/forwardingStatus",
                            Pseudowire::VplsForwardingStatus::VplsForwardingStatusIs());
    auto const orientationConfig = LifProfileOrientationConfig::LifProfileOrientationConfigIs();
    auto const orientationStatus = LifProfileOrientationStatus::LifProfileOrientationStatusIs();
    wrapper = Loom::make<VplsSmWrapper>(
        entityManager, scheduler, mplsDecapConfig, MplsDecapStatus::MplsDecapStatusIs(),
        EsemConfigVpls::EsemConfigVplsIs(), EsemStatusVpls::EsemStatusVplsIs(),
        TagPopPushConfig::TagPopPushConfigIs(), Hardware::Marl::SemShadow::SemShadowIs(),
        Hardware::Marl::AradIhpLifTable::AradIhpLifTableIs(),
        Mpls::Hardware::Capability::CapabilityIs(), Fab::LabelToPwIntfId::LabelToPwIntfIdIs(),
        hwVplsPwConfig, Fab::HwVplsPwStatus::HwVplsPwStatusIs(),
        Netcore::IntfIdDisplayContext::IntfIdDisplayContextIs(),
        EvecProfileRequestDir::EvecProfileRequestDirIs(), VtepTypeStatus::VtepTypeStatusIs(),
        hwVplsPwDecapConfig, orientationConfig, orientationStatus,
        LifProfileOrientationAllocSm::LifProfileOrientationAllocSmIs(orientationConfig,
                                                                     orientationStatus, 4),
        IntfToLifProfileOrientationKeyMap::IntfToLifProfileOrientationKeyMapIs(),
        Fab::VplsHwCollectionStatus::VplsHwCollectionStatusIs(),
        Fab::VplsHwSingletonStatus::VplsHwSingletonStatusIs(),
        Fab::FabL3AdjSyncStatusExternal::FabL3AdjSyncStatusExternalIs(),
        StartupStageStatus::StartupStageStatusIs());
    wrapper->initializeSms();
  }
  ~Agent() {
    wrapper = nullptr;
    Orb::TaskSchedulerRoot::rootIs(nullptr);
  }

  Loom::Ptr<Statedb::EntityManager> const entityManager;
  Loom::Ptr<Orb::TaskSchedulerRoot> const scheduler;
  // Inputs and the output printed below.
  Loom::Ptr<Fab::HwVplsPwConfig> const hwVplsPwConfig = Fab::HwVplsPwConfig::HwVplsPwConfigIs();
  Loom::Ptr<Fab::HwVplsPwDecapConfig> const hwVplsPwDecapConfig =
      Fab::HwVplsPwDecapConfig::HwVplsPwDecapConfigIs();
  Loom::Ptr<MplsDecapConfig> const mplsDecapConfig = MplsDecapConfig::MplsDecapConfigIs();
  Loom::Ptr<VplsSmWrapper> wrapper;
};

}  // namespace

int main() {
  // The trace stays in memory, and the command socket the wrapper opens goes to a private
  // directory: this program leaves no file behind.
  Trace::Flashlog::openInMemory();
  std::string socketDir = (std::filesystem::temp_directory_path() / "vpls-consumer-XXXXXX");
  if (::mkdtemp(socketDir.data()) == nullptr) {
    std::cerr << "cannot create a directory for the command socket\n";
    return 1;
  }
  Orb::AgentSocketHandlerSm::socketDirIs(socketDir);
  {
    Agent agent;
    auto const pw = Netcore::IntfId::pseudowire(1);
    agent.hwVplsPwConfig->vplsPwIntfInfoIs(
        pw, Fab::VplsPwIntfInfo(pw).vplsInstanceNameIs("vpls1").groupNameIs("g1"));
    agent.hwVplsPwDecapConfig->decapLabelIs(pw, Netcore::MplsLabel(1001));
    agent.hwVplsPwDecapConfig->vlanTagInfoIs(Fab::VplsPwIntfVlanKey(pw, Bridging::VlanId(10)),
                                             Bridging::VlanIdOrNone(10));
    agent.hwVplsPwDecapConfig->encapHwFecIdIs(pw, Fab::NexthopIndex(4097, 8193));

    for (auto const& [key, entry] : agent.mplsDecapConfig->config()) {
      std::cout << Loom::toText(entry) << "\n";
    }
  }
  std::filesystem::remove_all(socketDir);
  return 0;
}
