#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Fab/HwVplsPwConfig.h"
#include "Fab/HwVplsPwDecapConfig.h"
#include "Fab/HwVplsPwStatus.h"
#include "Fab/LabelToPwIntfId.h"
#include "Fab/VplsPwIntfAdditionalDataMap.h"
#include "Hardware/AradIhpLifTable.h"
#include "Hardware/LifProfileOrientationAllocSm.h"
#include "Hardware/SemShadow.h"
#include "Loom/Ptr.h"
#include "MarlTunnel/VplsSmWrapper.h"
#include "Orb/TaskSchedulerRoot.h"
#include "Statedb/EntityManager.h"
#include "Statedb/SharedTableManager.h"
#include "sim/ChipModel.h"

namespace Sim {

struct AgentOptions {
  std::string agentName = "MarlTunnel";
  // Mesh split-horizon slots per VLAN domain in the orientation allocator (1 to 4).
  std::uint32_t meshGroups = 4;
  // Entries in the shared HW FEC id response table at start: non-zero makes the agent start
  // with clean slate false, as after an agent restart.
  std::uint32_t hwFecIdResponses = 0;
  // Whether the chip model turns decap requests into the table shadows from the start. Without
  // it the requests stay requests, as in an agent whose chip programming runs elsewhere; its
  // in-LIF table holds 131071 rows, fewer than the decap entries of the largest configurations.
  bool chipModel = true;
  // The scheduler the agent runs on, when its host made it before the agent (a daemon whose
  // loop also carries its database connections); none: the harness makes its own.
  Loom::Ptr<Orb::TaskSchedulerRoot> scheduler;
};

// Builds and runs the tunnel agent's VPLS side the way the agent does: it owns the state store
// (the state-database entities at their paths and the agent's shared tables), the entities the
// agent itself owns and hands to the wrapper, and the orientation allocator; `start()` builds a
// `VplsSmWrapper` and calls `initializeSms()`, `stop()` drops it, `restart()` does both. All of
// the state store survives a restart, as shared state survives an agent restart.
//
// Tests, the scenario runner and the benchmarks use it, so that nothing hand-assembles the
// wrapper's entities. Runs on one thread; the scheduler it owns becomes the process's root
// scheduler while the harness lives.
class AgentHarness {
 public:
  explicit AgentHarness(AgentOptions options = {});
  ~AgentHarness();
  AgentHarness(AgentHarness const&) = delete;
  AgentHarness& operator=(AgentHarness const&) = delete;

  void start();
  void stop();
  void restart();
  bool running() const noexcept { return static_cast<bool>(wrapper_); }

  AgentOptions const& options() const noexcept { return options_; }
  Hardware::MarlTunnel::VplsSmWrapper& wrapper() const { return *wrapper_; }
  Hardware::MarlTunnel::MarlVplsPwIntfDecapSm& decapSm() const;

  // Attaches the chip model, which installs every request present, or detaches it, which takes
  // what it installed out of the shadows again.
  void chipModelIs(bool on);
  bool chipModel() const noexcept { return static_cast<bool>(chipModel_); }

  // The state store.
  Loom::Ptr<Statedb::EntityManager> const entityManager;
  Loom::Ptr<Statedb::SharedTableManager> const tables;
  Loom::Ptr<Orb::TaskSchedulerRoot> const scheduler;

  // Inputs.
  Loom::Ptr<Fab::HwVplsPwConfig> const hwVplsPwConfig;
  Loom::Ptr<Fab::HwVplsPwDecapConfig> const hwVplsPwDecapConfig;
  Loom::Ptr<Hardware::MarlTunnel::VtepTypeStatus> const vtepTypeStatus;

  // Outputs and the rest of what the agent owns.
  Loom::Ptr<Hardware::MarlTunnel::MplsDecapConfig> const mplsDecapConfig;
  Loom::Ptr<Hardware::MarlTunnel::MplsDecapStatus> const mplsDecapStatus;
  Loom::Ptr<Hardware::MarlTunnel::EsemConfigVpls> const esemConfigVpls;
  Loom::Ptr<Hardware::MarlTunnel::EsemStatusVpls> const esemStatusVpls;
  Loom::Ptr<Hardware::MarlTunnel::TagPopPushConfig> const tagPopPushConfig;
  Loom::Ptr<Hardware::Marl::SemShadow> const semShadow;
  Loom::Ptr<Hardware::Marl::AradIhpLifTable> const lifShadow;
  Loom::Ptr<Mpls::Hardware::Capability> const routingHwMplsCapability;
  Loom::Ptr<Fab::LabelToPwIntfId> const decapLabelToPwIntfColl;
  Loom::Ptr<Fab::HwVplsPwStatus> const hwVplsPwStatus;
  Loom::Ptr<Netcore::IntfIdDisplayContext> const intfIdDisplayContext;
  Loom::Ptr<Hardware::MarlTunnel::EvecProfileRequestDir> const evecProfileRequestDir;
  Loom::Ptr<Hardware::MarlTunnel::LifProfileOrientationConfig> const lifProfileOrientationConfig;
  Loom::Ptr<Hardware::MarlTunnel::LifProfileOrientationStatus> const lifProfileOrientationStatus;
  Loom::Ptr<Hardware::MarlTunnel::LifProfileOrientationAllocSm> const lifProfileOrientationAllocSm;
  Loom::Ptr<Hardware::MarlTunnel::IntfToLifProfileOrientationKeyMap> const
      intfToLifProfileOrientationKeyMap;
  Loom::Ptr<Fab::VplsHwCollectionStatus> const vplsHwCollectionStatus;
  Loom::Ptr<Fab::VplsHwSingletonStatus> const vplsHwSingletonStatus;
  Loom::Ptr<Fab::FabL3AdjSyncStatusExternal> const fabL3AdjSyncStatusExt;
  Loom::Ptr<Hardware::MarlTunnel::StartupStageStatus> const startupStageStatus;
  // Published at its state-database path; the wrapper looks it up.
  Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const vplsPwIntfAdditionalDataMap;

  // The decap status the running wrapper created (null while stopped). Each wrapper creates its
  // own; the decap state machine's start-up walk fills it again after a restart.
  Loom::Ptr<Fab::HwVplsPwDecapStatus> hwVplsPwDecapStatus() const;

 private:
  void publishStateDb();

  AgentOptions options_;
  Orb::TaskSchedulerRoot* previousRoot_;
  Loom::Ptr<Hardware::MarlTunnel::VplsSmWrapper> wrapper_;
  // Turns the decap requests into the chip shadows that the show command reads; null while
  // detached.
  std::unique_ptr<ChipModel> chipModel_;
};

}  // namespace Sim
