// Pseudowire configuration handling: the add / update / delete decision, standby pseudowires,
// and pseudowires refused while VXLAN DCI is configured.

#include "DecapSmFixture.h"

namespace Hardware::MarlTunnel::test {
namespace {

using Marl::Jericho2LifProfiles;

class PwIntfInfoTest : public DecapSmFixture {};

TEST_F(PwIntfInfoTest, ConfigurationAfterAnotherInputCompletesThePlaceholder) {
  // The label or a VLAN tag creates a placeholder record; the configuration then adds the
  // pseudowire without tearing anything down first.
  struct Case {
    char const* name;
    bool tagFirst;  // else the label
    bool vlanAware;
    char const* request;
  };
  for (auto const& c : {
           Case{"label, instance-wide group", false, true, "(vpls1, 0, grpA, 1, Pseudowire1)"},
           Case{"tag, per-VLAN group", true, false, "(, 10, grpA, 1, Pseudowire1)"},
       }) {
    SCOPED_TRACE(c.name);
    DecapSmRig r;
    r.start();
    c.tagFirst ? r.tag(1, 10, 100) : r.label(1, 1000);
    ASSERT_TRUE(r.sm->localPwInfo(pw(1)));
    EXPECT_TRUE(r.sm->localPwInfo(pw(1))->placeholder());

    OutputRecorder recorder(r);
    r.config(1, "vpls1", "grpA", false, c.vlanAware);
    EXPECT_TRUE(recorder.withdrawnRequests.empty());
    EXPECT_EQ(r.requests(), std::vector<std::string>{c.request});
    auto const record = r.sm->localPwInfo(pw(1));
    EXPECT_EQ(record->vlanAware(), c.vlanAware);
    EXPECT_EQ(r.additionalId(1), 6);  // mesh slot 1: orientation 4
    EXPECT_EQ(r.additionalData->additionalDataMap(Fab::VplsIntfKey("vpls1", "grpA", pw(1), true)),
              6);
  }
}

TEST_F(PwIntfInfoTest, StoredGroupKeyCountsOnlyWhileTheRestartIsInProgress) {
  // A previous run stored the group of VLAN 20 for the pseudowire. While the restart is in
  // progress the add path asks for that group (an add that went through delete first would
  // have dropped the stored key) and the delete path drops the key; once the restart is done
  // the add path asks for the group of the lowest VLAN and the delete path keeps the key for
  // the next time.
  for (bool const restartDone : {false, true}) {
    SCOPED_TRACE(restartDone ? "restart done" : "restarting");
    DecapSmRig r;
    r.decapConfig->restartDoneIs(restartDone);
    r.keyMap->lifProfileOrientationKeyIs(pw(1), lpoKey("", 20, "grpA", 1));
    r.tag(1, 10, 100);
    r.tag(1, 20, 200);
    r.start();
    ASSERT_TRUE(r.requests().empty());

    r.config(1, "vpls1", "grpA");
    auto const expected = restartDone ? lpoKey("", 10, "grpA", 1) : lpoKey("", 20, "grpA", 1);
    EXPECT_EQ(r.requests(), std::vector<std::string>{expected.toStrep()});
    EXPECT_EQ(r.keyMap->lifProfileOrientationKey(pw(1)), expected);
    EXPECT_EQ(r.additionalId(1), 6);

    r.removeConfig(1);
    EXPECT_TRUE(r.requests().empty());
    EXPECT_EQ(r.keyMap->lifProfileOrientationKeyHas(pw(1)), restartDone);
    // The VLAN tags are still there: the record stays as a placeholder.
    ASSERT_TRUE(r.sm->localPwInfo(pw(1)));
    EXPECT_TRUE(r.sm->localPwInfo(pw(1))->placeholder());
  }
}

TEST_F(PwIntfInfoTest, AnyChangeOfTheConfigurationDeletesAndReAdds) {
  struct Case {
    char const* name;
    char const* instance;
    char const* group;
    bool standby;
    bool vlanAware;
    bool splitHorizon;
    char const* request;         // the one orientation request afterwards; empty: none
    std::uint16_t additionalId;  // 0: none published
    Jericho2LifProfiles profile;
    std::size_t entries;  // with the VTT2 entry of a VLAN-aware pseudowire
  };
  auto const mesh1 = Jericho2LifProfiles::vplsMeshInLifProfile1_;
  std::vector<Case> const cases{
      {"nothing changed", "vpls1", "grpA", false, true, true, "(vpls1, 0, grpA, 1, Pseudowire1)", 6,
       mesh1, 2},
      {"instance", "vpls2", "grpA", false, true, true, "(vpls2, 0, grpA, 1, Pseudowire1)", 6, mesh1,
       2},
      {"group", "vpls1", "grpB", false, true, true, "(vpls1, 0, grpB, 1, Pseudowire1)", 6, mesh1,
       2},
      {"split horizon off", "vpls1", "grpA", false, true, false, "(vpls1, 0, grpA, 0, Pseudowire1)",
       5, Jericho2LifProfiles::vplsSpokeInLifProfile_, 2},
      {"VLAN-aware off", "vpls1", "grpA", false, false, true, "(, 10, grpA, 1, Pseudowire1)", 6,
       mesh1, 1},
      {"standby", "vpls1", "grpA", true, true, true, "", 0, Jericho2LifProfiles::noLifProfile_, 1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    DecapSmRig r;
    r.start();
    r.config(1, "vpls1", "grpA", false, true);
    r.label(1, 1000);
    r.tag(1, 10, 100);
    r.fec(1, 0x1234, 0x5678);
    ASSERT_EQ(r.decapEntries(), 2u);

    OutputRecorder recorder(r);
    r.config(1, c.instance, c.group, c.standby, c.vlanAware, c.splitHorizon);
    EXPECT_EQ(recorder.withdrawnRequests,
              std::vector<std::string>{"(vpls1, 0, grpA, 1, Pseudowire1)"});
    EXPECT_EQ(r.requests(),
              *c.request ? std::vector<std::string>{c.request} : std::vector<std::string>{});
    EXPECT_EQ(r.additionalId(1), c.additionalId);
    ASSERT_EQ(r.additionalData->additionalDataMap().size(), c.additionalId ? 1u : 0u);
    if (c.additionalId) {
      EXPECT_EQ(r.additionalData->additionalDataMap(
                    Fab::VplsIntfKey(c.instance, c.group, pw(1), c.splitHorizon)),
                c.additionalId);
    }
    EXPECT_EQ(r.decapEntries(), c.entries);
    std::uint32_t const innerTag = c.standby ? 0 : 100;  // a standby entry has no VLAN
    ASSERT_TRUE(r.hasEntry(1000, innerTag));
    EXPECT_EQ(r.entry(1000, innerTag).inLifProfile(), c.profile);
    EXPECT_EQ(r.decapStatus->decapStatus().size(), c.standby ? 0u : 1u);
    auto const record = r.sm->localPwInfo(pw(1));
    EXPECT_EQ(record->standby(), c.standby);
  }
}

TEST_F(PwIntfInfoTest, VxlanDciKeepsNonStandbyPseudowireOut) {
  start();
  vtep->vxlanDciConfiguredIs(true);
  config(1, "vpls1", "grpA", false, true);
  EXPECT_FALSE(sm->localPwInfo(pw(1)));
  EXPECT_EQ(logs, std::vector<std::string>{reducedLog("grpA", "vpls1")});

  // The other inputs make a placeholder, never an entry.
  label(1, 1000);
  tag(1, 10, 100);
  fec(1, 0x1234, 0x5678);
  ASSERT_TRUE(sm->localPwInfo(pw(1)));
  EXPECT_TRUE(sm->localPwInfo(pw(1))->placeholder());
  EXPECT_EQ(decapEntries(), 0u);
  EXPECT_TRUE(decapStatus->decapStatus().empty());
  EXPECT_TRUE(requests().empty());
  EXPECT_FALSE(pwStatus->encapAdditionalIdHas(pw(1)));
}

TEST_F(PwIntfInfoTest, DeleteOfUnknownPseudowireDoesNothing) {
  // What an earlier run left for pseudowire 9 is not touched by a delete that finds no record.
  pwStatus->encapAdditionalIdIs(pw(9), Fab::VplsEncapAdditionalId(7));
  keyMap->lifProfileOrientationKeyIs(pw(9), lpoKey("vpls1", 0, "grpZ", 9));
  start(false);
  fullPw(1, "vpls1", "grpA");
  auto const requestsBefore = requests();

  sm->handleVplsPwIntfInfo(pw(9));
  sm->deleteVplsPwIntfInfo(pw(9));
  EXPECT_EQ(pwStatus->encapAdditionalId(pw(9)).value(), 7);
  EXPECT_TRUE(keyMap->lifProfileOrientationKeyHas(pw(9)));
  EXPECT_FALSE(sm->localPwInfo(pw(9)));
  EXPECT_EQ(requests(), requestsBefore);
  EXPECT_EQ(sm->localPwInfo().size(), 1u);
  EXPECT_EQ(decapEntries(), 1u);
  EXPECT_EQ(additionalId(1), 6);
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
