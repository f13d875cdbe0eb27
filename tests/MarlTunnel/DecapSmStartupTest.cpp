// Construction over existing and empty inputs, the notification switch, the zombie flag, and the
// end of the agent's start-up synchronisation.

#include <string>
#include <tuple>
#include <vector>

#include "DecapSmFixture.h"

namespace Hardware::MarlTunnel::test {
namespace {

using Marl::Jericho2LifProfiles;

class DecapSmStartupTest : public DecapSmFixture {};

TEST_F(DecapSmStartupTest, ConstructionOverExistingInputsProgramsThem) {
  // A clean slate forgets the additional ids of the previous run before the walk publishes
  // the current ones; otherwise the ids of pseudowires that are gone stay.
  for (bool const cleanSlate : {true, false}) {
    SCOPED_TRACE(cleanSlate ? "clean slate" : "warm start");
    DecapSmRig r;
    r.pwStatus->encapAdditionalIdIs(pw(1), Fab::VplsEncapAdditionalId(99));
    r.pwStatus->encapAdditionalIdIs(pw(7), Fab::VplsEncapAdditionalId(42));
    r.fullPw(1, "vpls1", "grpA");
    r.fullPw(2, "vpls1", "grpB", true, 20);
    r.config(3, "vpls1", "grpA", true);
    r.label(3, 1003);
    r.start(cleanSlate);

    EXPECT_TRUE(r.sm->initialized());
    EXPECT_EQ(r.sm->startCleanSlate(), cleanSlate);
    EXPECT_EQ(r.additionalId(1), 6);
    EXPECT_EQ(r.additionalId(2), 6);
    EXPECT_FALSE(r.pwStatus->encapAdditionalIdHas(pw(3)));
    EXPECT_EQ(r.pwStatus->encapAdditionalIdHas(pw(7)), !cleanSlate);
    EXPECT_EQ(r.requests(), (std::vector<std::string>{"(, 10, grpA, 1, Pseudowire1)",
                                                      "(vpls1, 0, grpB, 1, Pseudowire2)"}));
    ASSERT_TRUE(r.hasEntry(1001, 100));
    EXPECT_EQ(r.entry(1001, 100).inLifProfile(), Jericho2LifProfiles::vplsMeshInLifProfile1_);
    EXPECT_TRUE(r.hasEntry(1002, 100));
    EXPECT_TRUE(r.hasEntry(1002, 20)) << "VTT2 entry of the VLAN-aware pseudowire";
    EXPECT_TRUE(r.hasEntry(1003, 0)) << "standby entry";
    EXPECT_EQ(r.decapEntries(), 4u);
    EXPECT_EQ(r.decapStatus->decapStatus().size(), 2u);
    EXPECT_EQ(r.sm->esemProgrammed().size(), 2u);
    EXPECT_TRUE(r.appEnabled());
    EXPECT_TRUE(r.evecRequested());
  }
}

TEST_F(DecapSmStartupTest, ConstructionOverEmptyInputsWithdrawsTagApplication) {
  // Left by a previous run: the tag application, its EVEC profile, and a group request that
  // VXLAN DCI forbids, which the closing retract reports.
  tagPopPush->appIs(Marl::VtAppId::vplsPwTagPopPush, true);
  evec->evecProfileRequestIs(EvecProfileRequest(14, 25));
  lpoConfig->lpoRequestIs(lpoKey("vpls1", 0, "grpA", 5));
  vtep->vxlanDciConfiguredIs(true);
  start();

  EXPECT_FALSE(appEnabled());
  EXPECT_FALSE(evecRequested());
  EXPECT_TRUE(sm->esemProgrammed().empty());
  EXPECT_TRUE(sm->localPwInfo().empty());
  EXPECT_EQ(logs, std::vector<std::string>{reducedLog("grpA", "(vpls1, 0, grpA, 1)")});
  EXPECT_TRUE(sm->initialized());
}

TEST_F(DecapSmStartupTest, NotificationsSwitchedOffAreMissedForGood) {
  start();
  vtep->vxlanDciConfiguredIs(true);
  auto const reactors = [&] {
    return std::tuple(pwConfig->publisher().reactorCount(), decapConfig->publisher().reactorCount(),
                      vtep->publisher().reactorCount());
  };
  sm->hasNotificationActiveIs(false);
  EXPECT_FALSE(sm->hasNotificationActive());
  EXPECT_EQ(reactors(), std::tuple(0u, 0u, 0u));
  config(1, "vpls1", "grpA");
  label(1, 1001);

  sm->hasNotificationActiveIs(true);
  sm->hasNotificationActiveIs(true);
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_EQ(reactors(), std::tuple(1u, 1u, 1u));  // subscribed once
  EXPECT_TRUE(sm->localPwInfo().empty()) << "nothing replayed";
  EXPECT_TRUE(logs.empty());

  // One notification, one handler run: one refusal logged.
  config(2, "vpls1", "grpB");
  EXPECT_EQ(logs, std::vector<std::string>{reducedLog("grpB", "vpls1")});
  EXPECT_TRUE(sm->localPwInfo().empty());
}

TEST_F(DecapSmStartupTest, ZombieFlagDropsNotificationsAndSurvivesTheSwitch) {
  for (bool const zombie : {false, true}) {
    SCOPED_TRACE(zombie ? "zombie" : "live");
    DecapSmRig r;
    r.start();
    EXPECT_FALSE(r.sm->cogDoZombieReactors(zombie));
    r.sm->hasNotificationActiveIs(false);
    EXPECT_EQ(r.sm->zombieReactors(), zombie);
    r.sm->hasNotificationActiveIs(true);
    EXPECT_EQ(r.sm->zombieReactors(), zombie);

    r.fullPw(1, "vpls1", "grpA", true);
    EXPECT_EQ(r.sm->localPwInfo().empty(), zombie);
    EXPECT_EQ(r.requests().empty(), zombie);
    EXPECT_EQ(r.decapEntries(), zombie ? 0u : 2u);
    r.vtep->vxlanDciConfiguredIs(true);
    EXPECT_EQ(r.logs.empty(), zombie) << "the DCI retract logs the group";
    r.decapConfig->startupSyncDoneIs(true);
    EXPECT_EQ(r.startupStage->vplsSmReady(), !zombie);

    // Dropped notifications are not replayed when the flag is cleared.
    EXPECT_EQ(r.sm->cogDoZombieReactors(false), zombie);
    EXPECT_EQ(r.sm->localPwInfo().empty(), zombie);
  }
}

TEST_F(DecapSmStartupTest, StartupSyncDoneCallsTheAllocatorBeforeReportingReady) {
  struct ReadyWatch : StartupStageStatus::Reactor {
    explicit ReadyWatch(DecapSmRig& rig) : r(rig) { r.startupStage->publisher().subscribe(*this); }
    ~ReadyWatch() override { r.startupStage->publisher().unsubscribe(*this); }
    ReadyWatch(ReadyWatch const&) = delete;
    ReadyWatch& operator=(ReadyWatch const&) = delete;
    void onVplsSmReady() override {
      allocatorCallsAtReady.push_back(r.allocator->startupSyncDoneCalls());
    }
    DecapSmRig& r;
    std::vector<std::uint32_t> allocatorCallsAtReady;
  };
  struct Case {
    char const* name;
    std::vector<bool> writes;
    std::uint32_t allocatorCalls;
    std::vector<std::uint32_t> allocatorCallsAtReady;
  };
  for (auto const& c : std::vector<Case>{
           {"done", {true}, 1, {1}},
           {"not done", {false}, 0, {}},
           {"done, then not done", {true, false}, 1, {1}},
           {"done twice", {true, true}, 2, {1, 2}},
       }) {
    SCOPED_TRACE(c.name);
    DecapSmRig r;
    r.start();
    ReadyWatch watch(r);
    for (bool const done : c.writes) {
      r.decapConfig->startupSyncDoneIs(done);
    }
    EXPECT_EQ(r.allocator->startupSyncDoneCalls(), c.allocatorCalls);
    EXPECT_EQ(r.startupStage->vplsSmReady(), c.allocatorCalls > 0);
    EXPECT_EQ(watch.allocatorCallsAtReady, c.allocatorCallsAtReady);
  }
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
