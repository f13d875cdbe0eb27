// Agent start-up and stop through the wrapper, on the agent harness. What a restart leaves is
// checked over many configurations by tests/sim/RestartInvarianceTest.cpp, and what the socket
// answers by the socket handler's tests and the show command's end-to-end tests.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Loom/Slab.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "host/AgentHarness.h"

namespace Hardware::MarlTunnel::test {
namespace {

namespace fs = std::filesystem;

Netcore::IntfId pw(std::uint32_t n) {
  return Netcore::IntfId::pseudowire(n);
}

class VplsSmWrapperTest : public ::testing::Test {
 protected:
  VplsSmWrapperTest() {
    Statedb::SharedTableManager::resetAllForTest();
    socketDir_ = fs::temp_directory_path() / ("wrapper-test-" + std::to_string(::getpid()));
    fs::create_directories(socketDir_);
    Orb::AgentSocketHandlerSm::socketDirIs(socketDir_.string());
  }
  ~VplsSmWrapperTest() override {
    fs::remove_all(socketDir_);
    Statedb::SharedTableManager::resetAllForTest();
  }

  // One configured, fully programmed pseudowire.
  static void program(Host::AgentHarness& agent) {
    agent.hwVplsPwConfig->vplsPwIntfInfoIs(
        pw(1),
        Fab::VplsPwIntfInfo(pw(1)).vplsInstanceNameIs("vpls1").groupNameIs("g").splitHorizonIs(
            true));
    agent.hwVplsPwDecapConfig->decapLabelIs(pw(1), Netcore::MplsLabel(700));
    agent.hwVplsPwDecapConfig->vlanTagInfoIs(Fab::VplsPwIntfVlanKey(pw(1), Bridging::VlanId(10)),
                                             Bridging::VlanIdOrNone(10));
    agent.hwVplsPwDecapConfig->encapHwFecIdIs(pw(1), Fab::NexthopIndex(11, 22));
  }

  fs::path socketPath() const { return socketDir_ / "MarlTunnelVpls"; }

  fs::path socketDir_;
};

// Records the order of the start-up writes that the decap state machine's existence brackets.
struct StartupRecorder : Fab::HwVplsPwDecapConfig::Reactor, TagPopPushConfig::Reactor {
  void onStartupSyncDone() override { events.push_back("startupSyncDone"); }
  void onRestartDone() override { events.push_back("restartDone"); }
  void onApp(Marl::VtAppId const&) override { events.push_back("app"); }
  std::vector<std::string> events;
};

TEST_F(VplsSmWrapperTest, StartUpResetsStartupFlagsBeforeTheStateMachineExists) {
  Host::AgentHarness agent;
  agent.hwVplsPwDecapConfig->startupSyncDoneIs(true);
  agent.hwVplsPwDecapConfig->restartDoneIs(true);
  agent.tagPopPushConfig->appIs(Marl::VtAppId::vplsPwTagPopPush, true);  // left by a previous run
  StartupRecorder recorder;
  agent.hwVplsPwDecapConfig->publisher().subscribe(recorder);
  agent.tagPopPushConfig->publisher().subscribe(recorder);

  agent.start();

  // The flags go false first; then the state machine's start-up walk withdraws the stale
  // application because no VLAN is programmed.
  EXPECT_EQ(recorder.events, (std::vector<std::string>{"startupSyncDone", "restartDone", "app"}));
  EXPECT_FALSE(agent.startupStageStatus->vplsSmReady());
  auto& wrapper = agent.wrapper();
  ASSERT_TRUE(wrapper.marlVplsPwIntfDecapSm());
  EXPECT_TRUE(wrapper.marlVplsPwIntfDecapSm()->initialized());
  EXPECT_TRUE(wrapper.marlVplsPwIntfDecapSm()->hasNotificationActive());
  EXPECT_EQ(wrapper.marlVplsPwIntfDecapSm()->hwVplsPwDecapStatus(), wrapper.hwVplsPwDecapStatus());
  EXPECT_EQ(wrapper.marlVplsPwIntfDecapSm()->vplsPwIntfAdditionalDataMap(),
            agent.vplsPwIntfAdditionalDataMap);
  ASSERT_TRUE(wrapper.fabVplsPwSm());
  EXPECT_TRUE(agent.tables->mounted("fab/vpls/l2UcastHwFecIdResponse"));
  EXPECT_TRUE(agent.tables->mounted("fab/vpls/l2UcastHwFecIdRequest"));
  EXPECT_TRUE(agent.tables->mounted("mpls/pseudowireLfib"));

  // The state machine is live on its inputs, and start-up sync is reported through it.
  program(agent);
  EXPECT_EQ(agent.mplsDecapConfig->config().size(), 1u);
  agent.hwVplsPwDecapConfig->startupSyncDoneIs(true);
  EXPECT_TRUE(agent.startupStageStatus->vplsSmReady());
  EXPECT_EQ(agent.lifProfileOrientationAllocSm->startupSyncDoneCalls(), 1u);
  agent.hwVplsPwDecapConfig->publisher().unsubscribe(recorder);
  agent.tagPopPushConfig->publisher().unsubscribe(recorder);
}

TEST_F(VplsSmWrapperTest, CleanSlateFollowsTheHwFecIdResponseTable) {
  struct Case {
    std::uint32_t responses;
    bool cleanSlate;
  };
  for (auto const& c : {Case{0, true}, Case{3, false}}) {
    Statedb::SharedTableManager::resetAllForTest();
    Host::AgentSettings settings;
    settings.hwFecIdResponses = c.responses;
    Host::AgentHarness agent(settings);
    agent.start();
    SCOPED_TRACE(c.responses);
    EXPECT_EQ(agent.decapSm().startCleanSlate(), c.cleanSlate);
    // What the decap state machine does with it is DecapSmStartupTest's.
    EXPECT_EQ(agent.wrapper().fabVplsPwSm()->cleanSlate(), c.cleanSlate);
  }
}

TEST_F(VplsSmWrapperTest, StopClosesTheSocketDropsTheStateMachineAndWithdrawsNothing) {
  auto const& records = MarlVplsPwIntfInfo::allocationTracker();
  auto const liveBefore = records.live();
  Host::AgentHarness agent;
  agent.start();
  program(agent);
  EXPECT_EQ(records.live(), liveBefore + 1);
  ASSERT_TRUE(fs::exists(socketPath()));
  Loom::Ptr<Fab::HwVplsPwDecapStatus> const status = agent.wrapper().hwVplsPwDecapStatus();
  auto const handler = agent.wrapper().agentSocketSm();

  agent.stop();

  EXPECT_FALSE(fs::exists(socketPath()));
  EXPECT_FALSE(handler->hasNotificationActive());
  EXPECT_EQ(records.live(), liveBefore);  // the state machine and its records are gone
  // What it programmed stays in the outputs.
  EXPECT_EQ(agent.mplsDecapConfig->config().size(), 1u);
  EXPECT_EQ(agent.esemConfigVpls->esemConfig().size(), 5u);
  EXPECT_EQ(status->decapStatus().size(), 1u);
  // Inputs no longer reach anything.
  agent.hwVplsPwDecapConfig->decapLabelDel(pw(1));
  EXPECT_EQ(agent.mplsDecapConfig->config().size(), 1u);
}

TEST_F(VplsSmWrapperTest, FailedStartUpLeavesNothingCreated) {
  Host::AgentHarness agent;
  // Another user holds the LFIB table for writing, so the read-only mount of step 8 fails
  // after the decap state machine was created.
  agent.tables->mount("mpls/pseudowireLfib", "Mpls::LfibStatus", Statedb::MountMode::write);
  auto const& records = MarlVplsPwIntfInfo::allocationTracker();
  auto const liveBefore = records.live();
  agent.hwVplsPwDecapConfig->decapLabelIs(pw(1), Netcore::MplsLabel(5));
  EXPECT_THROW(agent.start(), Statedb::MountError);
  EXPECT_FALSE(agent.running());
  EXPECT_EQ(records.live(), liveBefore);
  EXPECT_FALSE(fs::exists(socketPath()));
  agent.hwVplsPwDecapConfig->decapLabelDel(pw(1));  // no state machine reacts any more
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
