// Whole lifecycles of pseudowires, driven by notifications only.

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "DecapSmFixture.h"

namespace Hardware::MarlTunnel::test {
namespace {

TEST(DecapLifecycleTest, NonStandbyPseudowireProgrammedAndRemovedInEveryOrder) {
  // The four inputs of one non-standby pseudowire, applied in every order, then removed in
  // every order: programmed exactly once all are there, and nothing is left at the end.
  std::vector<int> order{0, 1, 2, 3};
  do {
    DecapSmRig r;
    r.start();
    std::vector<std::function<void()>> const add{
        [&] { r.config(1, "vpls1", "grpA"); }, [&] { r.label(1, 1000); },
        [&] { r.tag(1, 10, 100); }, [&] { r.fec(1, 0x1234, 0x5678); }};
    for (std::size_t i = 0; i < order.size(); ++i) {
      EXPECT_EQ(r.decapEntries(), 0u) << "after " << i << " inputs";
      add[order[i]]();
    }
    // A FEC id that arrives before the instance is not recorded; only its next notification
    // programs the entry.
    auto const position = [&](int input) { return std::find(order.begin(), order.end(), input); };
    if (position(3) < position(0)) {
      EXPECT_EQ(r.decapEntries(), 0u);
      r.fec(1, 0x1234, 0x5678);
    }
    ASSERT_TRUE(r.hasEntry(1000, 100));
    auto const e = r.entry(1000, 100);
    EXPECT_EQ(e.hwFecId(), 0x1234u);
    EXPECT_EQ(e.globalInLif(), 0x5678u);
    EXPECT_EQ(e.inLifProfile(), Marl::Jericho2LifProfiles::vplsMeshInLifProfile1_);
    EXPECT_EQ(e.vlanId(), 10);
    EXPECT_EQ(r.labelToPw->labelToPwIntf(Netcore::MplsLabel(1000)), pw(1));
    EXPECT_EQ(r.decapStatus->decapStatus(pwVlan(1, 10)), Fab::NexthopIndex(0x1234, 0x5678));
    EXPECT_EQ(r.pwStatus->encapAdditionalId(pw(1)).value(), 6);  // orientation 4
    EXPECT_EQ(r.countProgrammed(1), 1u);
    EXPECT_TRUE(r.appEnabled());
    EXPECT_EQ(r.esemConfig->esemConfig().size(), 5u);

    std::vector<std::function<void()>> const del{
        [&] { r.pwConfig->vplsPwIntfInfoDel(pw(1)); }, [&] { r.decapConfig->decapLabelDel(pw(1)); },
        [&] { r.decapConfig->vlanTagInfoDel(pwVlan(1, 10)); },
        [&] { r.decapConfig->encapHwFecIdDel(pw(1)); }};
    for (int d : order) {
      del[d]();
      EXPECT_EQ(r.decapEntries(), 0u);
    }
    EXPECT_TRUE(r.sm->localPwInfo().empty());
    EXPECT_TRUE(r.lpoConfig->lpoRequest().empty());
    EXPECT_TRUE(r.lpoStatus->lpoResponse().empty());
    EXPECT_TRUE(r.decapStatus->decapStatus().empty());
    EXPECT_TRUE(r.esemConfig->esemConfig().empty());
    EXPECT_TRUE(r.labelToPw->labelToPwIntf().empty());
    EXPECT_FALSE(r.appEnabled());
    EXPECT_FALSE(r.evecRequested());
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(DecapLifecycleTest, StandbyPseudowireHasOneVlanLessEntryInEveryOrder) {
  // A standby pseudowire's single entry needs only its configuration and its label: VLAN tags
  // and the FEC id change nothing in the decap table, and it never asks for an orientation.
  // Removing the configuration leaves the entry (the record keeps its standby flag); the entry
  // goes with the label.
  std::vector<int> order{0, 1, 2, 3};
  do {
    DecapSmRig r;
    r.start();
    bool present[4] = {};
    bool configSeen = false;
    auto const check = [&](std::string const& step) {
      SCOPED_TRACE(step);
      bool const programmed = configSeen && present[1];
      EXPECT_EQ(r.decapEntries(), programmed ? 1u : 0u);
      if (programmed) {
        ASSERT_TRUE(r.hasEntry(2000, 0));
        auto const e = r.entry(2000, 0);
        EXPECT_EQ(e.hwFecId(), 0u);
        EXPECT_EQ(e.globalInLif(), 0u);
        EXPECT_EQ(e.inLifProfile(), Marl::Jericho2LifProfiles::noLifProfile_);
        EXPECT_EQ(e.vlanId(), 1);
        EXPECT_EQ(e.key(), MplsDecapInfoKey(Netcore::MplsLabel(2000), Bridging::VlanIdOrNone(), 0));
        EXPECT_EQ(e.field8(), 0);
        EXPECT_EQ(e.field9(), 2);
      }
      EXPECT_EQ(r.labelToPw->labelToPwIntfHas(Netcore::MplsLabel(2000)), programmed);
      EXPECT_EQ(r.esemEntries(), present[2] ? 5u : 0u);
      EXPECT_TRUE(r.decapStatus->decapStatus().empty());
      EXPECT_TRUE(r.lpoConfig->lpoRequest().empty());
      EXPECT_TRUE(r.additionalData->additionalDataMap().empty());
      EXPECT_TRUE(r.pwStatus->encapAdditionalId().empty());
    };
    std::vector<std::function<void()>> const add{
        [&] { r.config(1, "vpls1", "grpA", /*standby=*/true); }, [&] { r.label(1, 2000); },
        [&] { r.tag(1, 10, 100); }, [&] { r.fec(1, 0x1234, 0x5678); }};
    std::vector<std::function<void()>> const del{
        [&] { r.removeConfig(1); }, [&] { r.removeLabel(1); }, [&] { r.removeTag(1, 10); },
        [&] { r.removeFec(1); }};
    for (int a : order) {
      add[a]();
      present[a] = true;
      configSeen = configSeen || a == 0;
      check("added input " + std::to_string(a));
    }
    for (int d : order) {
      del[d]();
      present[d] = false;
      check("removed input " + std::to_string(d));
    }
    EXPECT_FALSE(r.appEnabled());
    EXPECT_FALSE(r.evecRequested());
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(DecapLifecycleTest, VlanAwarePseudowireKeepsOneVtt2EntryUnderItsFirstVlan) {
  // Two VLANs of a VLAN-aware pseudowire: two entries and one VTT2 entry, added with the first
  // entry under its VLAN and removed with the last entry under that entry's VLAN. When the VLAN
  // it was added under goes first, the removal misses it and the VTT2 entry stays behind.
  struct Case {
    std::uint32_t firstRemoved;
    std::uint32_t lastRemoved;
    bool vtt2LeftBehind;
  };
  for (auto const& c : {Case{20, 10, false}, Case{10, 20, true}}) {
    SCOPED_TRACE("remove VLAN " + std::to_string(c.firstRemoved) + " then " +
                 std::to_string(c.lastRemoved));
    DecapSmRig r;
    r.start();
    r.config(1, "vpls1", "grpA", /*standby=*/false, /*vlanAware=*/true);
    r.label(1, 1000);
    r.fec(1, 0x1234, 0x5678);
    r.tag(1, 10, 110);
    r.tag(1, 20, 120);

    EXPECT_EQ(r.decapEntries(), 3u);
    EXPECT_EQ(r.countProgrammed(1), 2u);
    for (auto const& [v, t] : {std::pair{10, 110}, std::pair{20, 120}}) {
      auto const e = r.entry(1000, t);
      EXPECT_EQ(e.vlanId(), v);
      EXPECT_EQ(e.hwFecId(), 0x1234u);
      EXPECT_EQ(e.inLifProfile(), Marl::Jericho2LifProfiles::vplsMeshInLifProfile1_);
    }
    ASSERT_TRUE(r.hasEntry(1000, 10));
    auto const vtt2 = r.entry(1000, 10);
    EXPECT_EQ(vtt2.inLifProfile(), Marl::Jericho2LifProfiles::vplsVtt2InLifProfile_);
    EXPECT_EQ(vtt2.globalInLif(), 0x5678u);
    EXPECT_EQ(vtt2.hwFecId(), 0u);
    EXPECT_EQ(vtt2.vlanId(), 1);
    EXPECT_FALSE(r.hasEntry(1000, 20));

    r.removeTag(1, c.firstRemoved);
    EXPECT_EQ(r.countProgrammed(1), 1u);
    EXPECT_EQ(r.decapEntries(), 2u);
    EXPECT_TRUE(r.hasEntry(1000, 10));

    r.removeTag(1, c.lastRemoved);
    EXPECT_EQ(r.countProgrammed(1), 0u);
    EXPECT_EQ(r.decapEntries(), c.vtt2LeftBehind ? 1u : 0u);
    EXPECT_EQ(r.hasEntry(1000, 10), c.vtt2LeftBehind);
    EXPECT_TRUE(r.decapStatus->decapStatus().empty());
  }
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
