// Agent start-up and stop through the wrapper, on the agent harness.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "Loom/Slab.h"
#include "Orb/AgentSocketCallback.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "sim/AgentHarness.h"

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
  static void program(Sim::AgentHarness& agent) {
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
  Sim::AgentHarness agent;
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
    Sim::AgentOptions options;
    options.hwFecIdResponses = c.responses;
    Sim::AgentHarness agent(options);
    agent.hwVplsPwStatus->encapAdditionalIdIs(pw(9), Fab::VplsEncapAdditionalId(5));
    agent.start();
    SCOPED_TRACE(c.responses);
    EXPECT_EQ(agent.decapSm().startCleanSlate(), c.cleanSlate);
    EXPECT_EQ(agent.wrapper().fabVplsPwSm()->cleanSlate(), c.cleanSlate);
    // Clean slate empties the published additional ids before any handler runs.
    EXPECT_EQ(agent.hwVplsPwStatus->encapAdditionalIdHas(pw(9)), !c.cleanSlate);
  }
}

TEST_F(VplsSmWrapperTest, CreatorsReturnTheStoredEntityOnRepeatedCalls) {
  Sim::AgentHarness agent;
  agent.start();
  auto& wrapper = agent.wrapper();
  auto const status = wrapper.hwVplsPwDecapStatus();
  EXPECT_EQ(wrapper.hwVplsPwDecapStatusIs(), status);
  EXPECT_EQ(wrapper.hwVplsPwDecapStatusIs(), status);
  auto const handler = wrapper.agentSocketSm();
  ASSERT_TRUE(handler);
  EXPECT_EQ(wrapper.agentSocketSmIs("MarlTunnelVpls"), handler);
  EXPECT_EQ(wrapper.agentSocketSmIs("SomethingElse"), handler);
  EXPECT_TRUE(handler->hasNotificationActive());
}

TEST_F(VplsSmWrapperTest, StopClosesTheSocketDropsTheStateMachineAndWithdrawsNothing) {
  auto const& records = MarlVplsPwIntfInfo::allocationTracker();
  auto const liveBefore = records.live();
  Sim::AgentHarness agent;
  agent.start();
  program(agent);
  EXPECT_EQ(records.live(), liveBefore + 1);
  ASSERT_TRUE(fs::exists(socketPath()));
  struct stat st {};
  ASSERT_EQ(::stat(socketPath().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600);
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

TEST_F(VplsSmWrapperTest, RestartRebuildsOverTheSameState) {
  Sim::AgentHarness agent;
  agent.start();
  program(agent);
  auto const entries = agent.mplsDecapConfig->config().size();
  auto const additionalId = agent.hwVplsPwStatus->encapAdditionalId(pw(1));

  agent.restart();

  EXPECT_TRUE(agent.decapSm().initialized());
  EXPECT_EQ(agent.mplsDecapConfig->config().size(), entries);
  EXPECT_EQ(agent.hwVplsPwStatus->encapAdditionalId(pw(1)), additionalId);
  EXPECT_EQ(agent.hwVplsPwDecapStatus()->decapStatus().size(), 1u);
  ASSERT_TRUE(agent.decapSm().localPwInfo(pw(1)));
  EXPECT_EQ(agent.decapSm().localPwInfo(pw(1))->countProgrammed(), 1u);
  // The new state machine is the live one.
  agent.hwVplsPwDecapConfig->decapLabelDel(pw(1));
  EXPECT_EQ(agent.mplsDecapConfig->config().size(), 0u);
}

TEST_F(VplsSmWrapperTest, FailedStartUpLeavesNothingCreated) {
  Sim::AgentHarness agent;
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

// A command that answers with its argument text.
class EchoCallback : public Orb::AgentSocketCallback {
 public:
  EchoCallback() : AgentSocketCallback("MarlTunnelVpls", "echo") {}
  Loom::TypeData const& typeData() const override { return type(); }
  static Loom::TypeData const& type() {
    static Loom::TypeData const data("test::EchoCallback", {});
    return data;
  }
  void handleCommand(std::uint32_t fd, Loom::String const& args) override {
    dprintf(static_cast<int>(fd), "echo:%s", args.c_str());
  }
};

std::string ask(Orb::TaskSchedulerRoot& scheduler, std::string const& path,
                std::string const& request) {
  int const fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    return "connect failed";
  }
  EXPECT_EQ(::send(fd, request.data(), request.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(request.size()));
  ::shutdown(fd, SHUT_WR);
  std::string answer;
  char buf[4096];
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    scheduler.runOnce(std::chrono::milliseconds(10));
    auto const n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
    if (n > 0) {
      answer.append(buf, static_cast<std::size_t>(n));
    } else if (n == 0) {
      break;
    }
  }
  ::close(fd);
  return answer;
}

TEST_F(VplsSmWrapperTest, AgentSocketAnswersARegisteredCommand) {
  Sim::AgentHarness agent;
  agent.start();
  agent.wrapper().agentSocketSm()->agentSocketCallbackIs(Loom::make<EchoCallback>());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(ask(*agent.scheduler, socketPath(), "echo a b c\n"), "echo:a b c");
  }
  EXPECT_NE(ask(*agent.scheduler, socketPath(), "nosuch x\n").find("unknown command"),
            std::string::npos);
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
