// Whole lifecycles of pseudowires, driven by notifications only. A non-standby pseudowire's
// inputs in every order are DecapRandomizedTest's.

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "DecapSmFixture.h"

namespace Hardware::MarlTunnel::test {
namespace {

TEST(DecapLifecycleTest, StandbyPseudowireHasOneVlanLessEntryInEveryOrder) {
  // A standby pseudowire's single entry needs only its configuration and its label: VLAN tags
  // and the FEC id change nothing in the decap table (a VLAN-aware one has no VTT2 entry), and
  // it never asks for an orientation, so VXLAN DCI neither keeps it out nor logs it. Removing
  // the configuration leaves the entry (the record keeps its standby flag); the entry goes with
  // the label.
  for (int const variant : {0, 1, 2, 3}) {
    bool const dci = variant & 1;
    bool const vlanAware = variant & 2;
    SCOPED_TRACE(std::string(dci ? "VXLAN DCI" : "no VXLAN") + (vlanAware ? ", VLAN-aware" : ""));
    std::vector<int> order{0, 1, 2, 3};
    do {
      DecapSmRig r;
      r.start();
      r.vtep->vxlanDciConfiguredIs(dci);
      bool present[4] = {};
      bool configSeen = false;
      auto const check = [&](std::string const& step) {
        SCOPED_TRACE(step);
        bool const programmed = configSeen && present[1];
        EXPECT_EQ(r.decapEntries(), programmed ? 1u : 0u);
        if (programmed) {  // the standby entry's fields are DecapRandomizedTest's
          ASSERT_TRUE(r.hasEntry(2000, 0));
          EXPECT_EQ(r.entry(2000, 0).inLifProfile(), Marl::Jericho2LifProfiles::noLifProfile_);
        }
        EXPECT_EQ(r.labelToPw->labelToPwIntfHas(Netcore::MplsLabel(2000)), programmed);
        EXPECT_EQ(r.esemEntries(), present[2] ? 5u : 0u);
        EXPECT_TRUE(r.decapStatus->decapStatus().empty());
        EXPECT_TRUE(r.lpoConfig->lpoRequest().empty());
        EXPECT_TRUE(r.additionalData->additionalDataMap().empty());
        EXPECT_TRUE(r.pwStatus->encapAdditionalId().empty());
        EXPECT_TRUE(r.logs.empty());
      };
      std::vector<std::function<void()>> const add{
          [&] { r.config(1, "vpls1", "grpA", /*standby=*/true, vlanAware); },
          [&] { r.label(1, 2000); }, [&] { r.tag(1, 10, 100); }, [&] { r.fec(1, 0x1234, 0x5678); }};
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
}

TEST(DecapLifecycleTest, VlanAwarePseudowireKeepsOneVtt2EntryUnderItsFirstVlan) {
  // Two VLANs of a VLAN-aware pseudowire: two entries and one VTT2 entry, added with the first
  // entry under its VLAN and removed with the last entry under that entry's VLAN. When the VLAN
  // it was added under goes first, the removal misses it and the VTT2 entry stays behind.
  for (auto const& [firstRemoved, lastRemoved] : {std::pair{20u, 10u}, std::pair{10u, 20u}}) {
    SCOPED_TRACE("remove VLAN " + std::to_string(firstRemoved) + " first");
    bool const vtt2LeftBehind = firstRemoved == 10;
    DecapSmRig r;
    r.start();
    r.config(1, "vpls1", "grpA", /*standby=*/false, /*vlanAware=*/true);
    r.label(1, 1000);
    r.fec(1, 0x1234, 0x5678);
    r.tag(1, 10, 110);
    r.tag(1, 20, 120);

    EXPECT_EQ(r.decapEntries(), 3u);
    EXPECT_EQ(r.countProgrammed(1), 2u);
    EXPECT_EQ(r.entry(1000, 110).vlanId(), 10);
    EXPECT_EQ(r.entry(1000, 120).vlanId(), 20);
    ASSERT_TRUE(r.hasEntry(1000, 10));
    auto const vtt2 = r.entry(1000, 10);
    EXPECT_EQ(vtt2.inLifProfile(), Marl::Jericho2LifProfiles::vplsVtt2InLifProfile_);
    EXPECT_EQ(vtt2.globalInLif(), 0x5678u);
    EXPECT_EQ(vtt2.hwFecId(), 0u);
    EXPECT_EQ(vtt2.vlanId(), 1);

    r.removeTag(1, firstRemoved);
    EXPECT_EQ(r.decapEntries(), 2u);
    EXPECT_TRUE(r.hasEntry(1000, 10));
    r.removeTag(1, lastRemoved);
    EXPECT_EQ(r.countProgrammed(1), 0u);
    EXPECT_EQ(r.decapEntries(), vtt2LeftBehind ? 1u : 0u);
    EXPECT_EQ(r.hasEntry(1000, 10), vtt2LeftBehind);
  }
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
