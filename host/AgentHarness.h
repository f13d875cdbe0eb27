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
#include "chip/DecapProgrammer.h"
#include "host/AgentSettings.h"

namespace Host {

// Builds and runs the tunnel agent's VPLS side the way the agent does: it owns the state store
// (the state-database entities at their paths and the agent's shared tables), the entities the
// agent itself owns and hands to the wrapper, and the orientation allocator; `start()` builds a
// `VplsSmWrapper` and calls `initializeSms()`, `stop()` drops it, `restart()` does both. All of
// the state store survives a restart, as shared state survives an agent restart.
//
// Every host of the library (the scenario runner, the daemon, tests, benchmarks and fuzzers)
// uses it, so that nothing hand-assembles the wrapper's entities. It puts the agent's settings
// into effect while it lives and takes them back when it goes: its scheduler becomes the
// process's root scheduler, and the socket directory, the toggle directory and the log sink are
// the agent's. So one harness at a time per process. Runs on one thread.
class AgentHarness {
 public:
  explicit AgentHarness(AgentSettings settings = {});
  ~AgentHarness();
  AgentHarness(AgentHarness const&) = delete;
  AgentHarness& operator=(AgentHarness const&) = delete;

  void start();
  void stop();
  void restart();
  bool running() const noexcept { return static_cast<bool>(wrapper_); }

  AgentSettings const& settings() const noexcept { return settings_; }
  Hardware::MarlTunnel::VplsSmWrapper& wrapper() const { return *wrapper_; }
  Hardware::MarlTunnel::MarlVplsPwIntfDecapSm& decapSm() const;

  // The emulated chip that turns the decap requests into the table shadows the show command
  // reads (null while detached). Attached, it installs every request present when the next
  // batch ends; detaching it takes what it installed out of the shadows.
  void chipIs(bool on);
  Chip::DecapProgrammer* chip() const noexcept { return chip_.get(); }
  // Ends a batch of input changes (a scenario event, a database transaction): the chip applies
  // the net change of the requests, as a chip's programming layer does per batch.
  void batchDone();
  // An installed chip entry that a host kept across an agent restart, given back before the
  // first batch ends (the chip restores them then).
  void chipEntryFound(Chip::DecapProgrammer::Saved entry) {
    chipFound_.push_back(std::move(entry));
  }
  // What the chip left out of the entries found, one line each, since the last call.
  std::vector<std::string> takeChipProblems() { return std::exchange(chipProblems_, {}); }

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
  void applySettings();

  AgentSettings settings_;
  Orb::TaskSchedulerRoot* previousRoot_;
  Cog::LogSink previousSink_;
  Loom::Ptr<Hardware::MarlTunnel::VplsSmWrapper> wrapper_;
  // Turns the decap requests into the chip shadows that the show command reads; null while
  // detached. Owned: the chip lives as long as the harness, across agent restarts.
  std::unique_ptr<Chip::DecapProgrammer> chip_;
  std::vector<Chip::DecapProgrammer::Saved> chipFound_;
  std::vector<std::string> chipProblems_;
};

}  // namespace Host
