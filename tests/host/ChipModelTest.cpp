// The chip model follows the library's decap requests into the chip shadows. What the show
// command reads back from them is checked end to end, row by row against the programmed state,
// by tests/frontend/test_show_vpls_decap.py.

#include <gtest/gtest.h>

#include "host/AgentHarness.h"

namespace Host::test {
namespace {

TEST(ChipModel, AttachingInstallsTheRequestsAndDetachingTakesThemOut) {
  Statedb::SharedTableManager::resetAllForTest();
  AgentSettings options;
  options.chipModel = false;
  AgentHarness agent(options);
  using Table = Hardware::Marl::SemShadow::Table;
  auto const& vplsDecap = agent.semShadow->entries(Table::vplsDecap);
  auto const key = Hardware::MarlTunnel::MplsDecapInfoKey(Netcore::MplsLabel(3001),
                                                          Bridging::VlanIdOrNone(110), 0);
  auto const info = Hardware::MarlTunnel::MplsDecapInfo(key)
                        .inLifProfileIs(Hardware::Marl::Jericho2LifProfiles::vplsSpokeInLifProfile_)
                        .globalInLifIs(0x801)
                        .hwFecIdIs(0x41)
                        .vlanIdIs(10);
  agent.mplsDecapConfig->configIs(key, info);
  EXPECT_FALSE(agent.chipModel());
  EXPECT_TRUE(vplsDecap.empty());

  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    agent.chipModelIs(true);
    ASSERT_EQ(vplsDecap.size(), 1u);
    EXPECT_EQ(agent.lifShadow->lifEntries().size(), 1u);
    // Attached, it follows the requests as they come and go.
    agent.mplsDecapConfig->configDel(key);
    EXPECT_TRUE(vplsDecap.empty());
    EXPECT_TRUE(agent.lifShadow->lifEntries().empty());
    agent.mplsDecapConfig->configIs(key, info);
    EXPECT_EQ(vplsDecap.size(), 1u);
    agent.chipModelIs(false);
    EXPECT_TRUE(vplsDecap.empty());
    EXPECT_TRUE(agent.lifShadow->lifEntries().empty());
  }
}

}  // namespace
}  // namespace Host::test
