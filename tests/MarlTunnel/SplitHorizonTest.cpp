// Split-horizon groups: orientation requests and their answers, additional ids, the toggle, and
// the three VXLAN regimes.

#include <algorithm>

#include "Cog/Toggle.h"
#include "DecapSmFixture.h"
#include "MarlTunnel/MarlTrace.h"
#include "Trace/FlashlogReader.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace Hardware::MarlTunnel::test {
namespace {

using Marl::Jericho2LifProfiles;

std::string group(std::uint32_t n) {
  return "g" + std::to_string(n);
}
LifProfileOrientationKey meshKey(std::uint32_t n) {
  return lpoKey("vpls1", 0, group(n), n);
}

// Pseudowires 1 to n, each in its own group g<n> of the VLAN-aware instance vpls1, so that
// pseudowire n holds mesh slot n: orientation n + 3, profile 10 + n, additional id n + 5.
void meshGroups(DecapSmRig& r, std::uint32_t n) {
  for (std::uint32_t i = 1; i <= n; ++i) {
    r.fullPw(i, "vpls1", group(i), true);
  }
}

// Pseudowire n is programmed in mesh slot n, or has nothing programmed at all.
void expectProgrammed(DecapSmRig const& r, std::uint32_t n, bool programmed) {
  SCOPED_TRACE("pseudowire " + std::to_string(n));
  EXPECT_EQ(r.lpoConfig->lpoRequestHas(meshKey(n)), programmed);
  EXPECT_EQ(r.hasEntry(1000 + n, 100), programmed);
  EXPECT_EQ(r.decapStatus->decapStatusHas(pwVlan(n, 10)), programmed);
  EXPECT_EQ(r.additionalId(n), programmed ? n + 5u : 0u);
  if (programmed) {
    EXPECT_EQ(toValue(r.orientation(meshKey(n))), n + 3u);
    EXPECT_EQ(Marl::toValue(r.entry(1000 + n, 100).inLifProfile()), 10u + n);
  }
}

class SplitHorizonTest : public DecapSmFixture {};

TEST_F(SplitHorizonTest, AdditionalIdFollowsOrientation) {
  // Orientations 0 and 3 both give 5; the others give orientation + 2.
  start();
  config(1, "vpls1", "grpA");
  Fab::VplsIntfKey const key("vpls1", "grpA", pw(1), true);
  for (auto const& [orientation, id] :
       std::vector<std::pair<int, int>>{{0, 5}, {1, 3}, {3, 5}, {4, 6}, {5, 7}, {7, 9}}) {
    SCOPED_TRACE("orientation " + std::to_string(orientation));
    sm->populateAdditionalData(pw(1), static_cast<Orientation>(orientation));
    EXPECT_EQ(additionalData->additionalDataMap(key), id);
    EXPECT_EQ(additionalId(1), id);
    EXPECT_EQ(additionalData->additionalDataMap().size(), 1u);
  }
}

TEST_F(SplitHorizonTest, AllocationFailureKeepsTheRequestUntilARetrySucceeds) {
  start();
  meshGroups(*this, 5);
  for (std::uint32_t n = 1; n <= 4; ++n) {
    expectProgrammed(*this, n, true);
  }
  // Four mesh slots per domain: the fifth group fails, and nothing of it is programmed.
  EXPECT_TRUE(lpoConfig->lpoRequestHas(meshKey(5)));
  EXPECT_EQ(orientation(meshKey(5)), Orientation::orientationAllocFailed);
  EXPECT_EQ(additionalId(5), 0);
  EXPECT_FALSE(hasEntry(1005, 100));
  EXPECT_FALSE(decapStatus->decapStatusHas(pwVlan(5, 10)));
  EXPECT_FALSE(labelToPw->labelToPwIntfHas(Netcore::MplsLabel(1005)));
  EXPECT_EQ(countProgrammed(5), 0u);
  EXPECT_TRUE(sm->localPwInfo(pw(5))->placeholder());

  // Freeing slot 1 answers nothing by itself; the next configuration of the pseudowire retries.
  pwConfig->vplsPwIntfInfoDel(pw(1));
  EXPECT_EQ(orientation(meshKey(5)), Orientation::orientationAllocFailed);
  config(5, "vpls1", group(5), false, true);
  EXPECT_EQ(orientation(meshKey(5)), Orientation::orientation4);
  EXPECT_EQ(additionalId(5), 6);
  // The FEC id arrived while no instance was stored, so only its next notification counts.
  fec(5, 0x1005, 0x2005);
  ASSERT_TRUE(hasEntry(1005, 100));
  EXPECT_EQ(entry(1005, 100).inLifProfile(), Jericho2LifProfiles::vplsMeshInLifProfile1_);
}

TEST_F(SplitHorizonTest, VxlanPresentRefusesOrientationsAboveFive) {
  start();
  vtep->vxlanPresentIs(true);
  meshGroups(*this, 3);
  expectProgrammed(*this, 1, true);
  expectProgrammed(*this, 2, true);  // orientation 5 is the highest allowed
  // Orientation 6: logged, withdrawn (freeing the slot), nothing programmed.
  expectProgrammed(*this, 3, false);
  EXPECT_FALSE(lpoStatus->lpoResponseHas(meshKey(3)));
  EXPECT_EQ(allocator->slotOf(meshKey(3).vlanAndVplsKey()), 0u);
  EXPECT_EQ(logs, std::vector<std::string>{reducedLog("g3", "vpls1")});

  // A per-VLAN-domain group is logged with the key's instance name, which is empty.
  logs.clear();
  for (std::uint32_t n = 4; n <= 6; ++n) {
    config(n, "vpls1", group(n));
    tag(n, 20, 200);
  }
  EXPECT_TRUE(lpoConfig->lpoRequestHas(lpoKey("", 20, "g5", 5)));
  EXPECT_FALSE(lpoConfig->lpoRequestHas(lpoKey("", 20, "g6", 6)));
  EXPECT_EQ(logs, std::vector<std::string>{reducedLog("g6", "")});
}

TEST_F(SplitHorizonTest, WithdrawnRequestsTraceTheirKeys) {
  TraceTest::TempDir dir;
  Trace::Duallog::outputFileIs(dir / "trace");
  Trace::Duallog::levelIs("MarlTunnel", kTraceDetail);
  start();
  fullPw(1, "vpls1", "grpA", false, 20);
  fullPw(2, "vpls1", "grpB", true);
  removeTag(1, 20);
  removeConfig(2);
  Trace::Duallog::levelDel("MarlTunnel");
  Trace::Duallog::outputIsStderr();
  auto const text = TraceTest::readFile(dir / "trace");
  for (char const* line :
       {"void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVlanTagInfo(Netcore::IntfId, "
        "Bridging::VlanId)delete lpoRequest: for(, 20, grpA, 1, Pseudowire1)\n",
        "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVplsPwIntfLpoRequest(Netcore::"
        "IntfId)delete lpoRequest: for(vpls1, 0, grpB, 1, Pseudowire2)\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line;
  }
}

TEST_F(SplitHorizonTest, AFailedVlanDomainIsRecordedWithWholeSignaturesAtTheirLevels) {
  TraceTest::TempDir dir;
  ASSERT_TRUE(Trace::Flashlog::open(dir / "decap.flashlog"));
  start();
  for (std::uint32_t n = 1; n <= 5; ++n) {
    fullPw(n, "vpls1", group(n));  // the fifth group of VLAN domain 10 finds no slot
  }
  auto const reader = Trace::FlashlogReader::fromFile(dir / "decap.flashlog");
  std::vector<std::pair<int, std::string>> failures;
  for (auto const& r : reader.records()) {
    if (r.facility == "MarlTunnel" && r.text.find("failed") != std::string::npos) {
      failures.emplace_back(r.level, r.text);
    }
  }
  EXPECT_EQ(failures,
            (std::vector<std::pair<int, std::string>>{
                {1,
                 "bool Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addVplsPwIntfVlanDomain("
                 "Netcore::IntfId, U16) Orientation alloc failed"},
                {8,
                 "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addVlanTagInfo(const "
                 "Fab::VplsPwIntfVlanKey&)addVplsPwIntfVlanDomain failed. "},
                {1,
                 "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::populateMplsDecapConfigHelper("
                 "Netcore::IntfId, Bridging::VlanIdOrNone) Orientation alloc failed for (, 10, g5, "
                 "1, Pseudowire5)"}}));
}

TEST_F(SplitHorizonTest, VxlanDciLogForAVlanDomainNamesTheVlan) {
  start();
  fullPw(1, "vpls1", "grpA");
  vtep->vxlanDciConfiguredIs(true);
  logs.clear();
  tag(1, 20, 200);
  EXPECT_EQ(logs, std::vector<std::string>{reducedLog("grpA", "20")});
}

TEST_F(SplitHorizonTest, RetractFollowsTheVxlanRegime) {
  // Pseudowires 1 to 4 hold orientations 4 to 7; pseudowire 5 is standby and holds none.
  struct Case {
    char const* name;
    std::vector<std::pair<bool, bool>> vtep;  // (vxlanPresent, vxlanDciConfigured) in turn
    std::vector<std::uint32_t> programmed;
    std::vector<std::uint32_t> logged;  // groups named in the log, in order
  };
  std::vector<Case> const cases{
      {"DCI: no groups", {{true, true}}, {}, {1, 2, 3, 4}},
      {"VXLAN: orientations up to 5", {{true, false}}, {1, 2}, {3, 4}},
      {"VXLAN gone", {{true, false}, {false, false}}, {1, 2, 3, 4}, {3, 4}},
      {"DCI gone", {{true, true}, {false, false}}, {1, 2, 3, 4}, {1, 2, 3, 4}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    DecapSmRig r;
    r.start();
    meshGroups(r, 4);
    r.config(5, "vpls1", "g5", true);
    r.label(5, 1005);
    for (auto const& [present, dci] : c.vtep) {
      r.vtep->vxlanDciConfiguredIs(dci);
      r.vtep->vxlanPresentIs(present);
    }
    std::vector<std::string> expectedLogs;
    for (auto n : c.logged) {
      expectedLogs.push_back(reducedLog(group(n), "(vpls1, 0, " + group(n) + ", 1)"));
    }
    EXPECT_EQ(r.logs, expectedLogs);
    EXPECT_EQ(r.requests().size(), c.programmed.size());
    for (std::uint32_t n = 1; n <= 4; ++n) {
      expectProgrammed(r, n, std::count(c.programmed.begin(), c.programmed.end(), n) > 0);
    }
    EXPECT_TRUE(r.hasEntry(1005, 0)) << "standby pseudowire";
  }
}

TEST_F(SplitHorizonTest, VxlanGoneRequestsTheGroupOfEveryVlanAgain) {
  // Without a label nothing is programmed, so only the VLAN tag walk asks for VLAN 20's group:
  // the configuration asks for the group of the lowest VLAN alone.
  start();
  config(1, "vpls1", "grpA");
  tag(1, 10, 100);
  tag(1, 20, 200);
  std::vector<std::string> const both{"(, 10, grpA, 1, Pseudowire1)",
                                      "(, 20, grpA, 1, Pseudowire1)"};
  ASSERT_EQ(requests(), both);
  vtep->vxlanDciConfiguredIs(true);
  EXPECT_TRUE(requests().empty());
  vtep->vxlanDciConfiguredIs(false);
  EXPECT_EQ(requests(), both);
  EXPECT_EQ(additionalId(1), 6);
}

TEST_F(SplitHorizonTest, VxlanGoneReDrivesOnlyOnceInitialized) {
  // The start-up walk settles every pseudowire; VXLAN being absent at its end re-drives
  // nothing. After start-up the same news tears down and rebuilds every pseudowire.
  fullPw(1, "vpls1", "g1", true);
  fullPw(2, "vpls1", "g2");
  OutputRecorder recorder(*this);
  start();
  EXPECT_TRUE(sm->initialized());
  EXPECT_TRUE(recorder.withdrawnRequests.empty());
  auto const settled = requests();
  EXPECT_EQ(settled, (std::vector<std::string>{"(, 10, g2, 1, Pseudowire2)",
                                               "(vpls1, 0, g1, 1, Pseudowire1)"}));

  vtep->vxlanPresentIs(false);
  std::sort(recorder.withdrawnRequests.begin(), recorder.withdrawnRequests.end());
  recorder.withdrawnRequests.erase(
      std::unique(recorder.withdrawnRequests.begin(), recorder.withdrawnRequests.end()),
      recorder.withdrawnRequests.end());
  EXPECT_EQ(recorder.withdrawnRequests, settled);
  EXPECT_EQ(requests(), settled);
  EXPECT_TRUE(hasEntry(1001, 100));
  EXPECT_TRUE(hasEntry(1002, 100));
}

TEST_F(SplitHorizonTest, ToggleOffMakesEveryGroupInstanceWide) {
  TraceTest::TempDir dir;
  TraceTest::writeFile(dir / "MarlTunnel.json", R"({"MarlTunnelSplitHorizonGroup": false})");
  TraceTest::ScopedEnv env(Cog::kToggleDirEnv, dir.path().string());
  detail::resetSplitHorizonToggleCacheForTest();
  struct ResetAfter {
    ~ResetAfter() { detail::resetSplitHorizonToggleCacheForTest(); }
  } resetAfter;

  start();
  // A request of a per-VLAN group from an earlier run with the toggle on.
  auto const earlier = lpoKey("", 20, "grpA", 1);
  lpoConfig->lpoRequestIs(earlier);
  fullPw(1, "vpls1", "grpA");
  tag(1, 20, 200);
  auto const wide = lpoKey("vpls1", 0, "grpA", 1);
  EXPECT_EQ(sm->getLifProfileOrientationKey(10, pw(1), false), wide);
  EXPECT_EQ(requests(), (std::vector<std::string>{earlier.toStrep(), wide.toStrep()}));
  EXPECT_EQ(additionalId(1), 6);
  EXPECT_EQ(entry(1001, 200).inLifProfile(), Jericho2LifProfiles::vplsMeshInLifProfile1_);

  // Removing a VLAN withdraws no per-VLAN group; removing the pseudowire only its own group.
  decapConfig->vlanTagInfoDel(pwVlan(1, 20));
  EXPECT_EQ(requests(), (std::vector<std::string>{earlier.toStrep(), wide.toStrep()}));
  pwConfig->vplsPwIntfInfoDel(pw(1));
  EXPECT_EQ(requests(), std::vector<std::string>{earlier.toStrep()});
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
