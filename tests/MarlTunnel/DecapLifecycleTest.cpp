// Whole lifecycles of pseudowires, driven by notifications only.

#include <algorithm>
#include <numeric>

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

}  // namespace
}  // namespace Hardware::MarlTunnel::test
