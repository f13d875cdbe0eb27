// What the library programs, read back by the show command through the chip model.

#include <gtest/gtest.h>

#include <filesystem>

#include "MarlTunnel/ShowVplsDecapCliCallback.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "sim/AgentHarness.h"

namespace Sim::test {
namespace {

using Hardware::MarlTunnel::ShowVplsDecapCliCallback;

Netcore::IntfId pw(std::uint32_t n) {
  return Netcore::IntfId::pseudowire(n);
}

TEST(ChipModel, ShowReflectsWhatWasProgrammedAsEntriesComeAndGo) {
  auto const dir =
      std::filesystem::temp_directory_path() / ("chip-model-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  Orb::AgentSocketHandlerSm::socketDirIs(dir.string());
  Statedb::SharedTableManager::resetAllForTest();
  AgentHarness agent;
  agent.start();
  auto const add = [&](std::uint32_t n, bool standby, std::uint32_t label, std::uint32_t vlan,
                       std::uint32_t tag) {
    agent.hwVplsPwConfig->vplsPwIntfInfoIs(pw(n), Fab::VplsPwIntfInfo(pw(n))
                                                      .vplsInstanceNameIs("vpls1")
                                                      .groupNameIs("g")
                                                      .splitHorizonIs(true)
                                                      .standbyIs(standby));
    agent.hwVplsPwDecapConfig->decapLabelIs(pw(n), Netcore::MplsLabel(label));
    agent.hwVplsPwDecapConfig->vlanTagInfoIs(Fab::VplsPwIntfVlanKey(pw(n), Bridging::VlanId(vlan)),
                                             Bridging::VlanIdOrNone(tag));
    agent.hwVplsPwDecapConfig->encapHwFecIdIs(pw(n), Fab::NexthopIndex(0x40 + n, 0x800 + n));
  };
  add(1, false, 3001, 10, 110);
  add(2, true, 3002, 20, 120);

  auto const callback = Loom::dynamicPtrCast<ShowVplsDecapCliCallback>(
      agent.wrapper().agentSocketSm()->agentSocketCallback("vplsDecap"));
  ASSERT_TRUE(callback);
  auto entries = callback->decapEntries("None", "None", "None");
  ASSERT_EQ(entries.size(), 2u);
  auto const& normal = entries.at("Pseudowire1").at(Bridging::VlanIdOrNone(10));
  EXPECT_EQ(normal.label(), Netcore::MplsLabel(3001));
  EXPECT_EQ(normal.innerDot1QTag(), 110u);
  EXPECT_EQ(normal.destination(), 0x41u);
  EXPECT_EQ(normal.globalInLif(), 0x801u);
  EXPECT_EQ(normal.inLifProfile(), 11);  // mesh slot 1: orientation 4 = profile - 7
  EXPECT_TRUE(normal.active());
  auto const& standby = entries.at("Pseudowire2").at(Bridging::VlanIdOrNone());
  EXPECT_EQ(standby.label(), Netcore::MplsLabel(3002));
  EXPECT_FALSE(standby.active());
  EXPECT_NE(Hardware::MarlTunnel::printVplsDecapEntries(entries).str().find(
                "'hwFec' : '65','inLifProfile' : '11','orientation' : '4'"),
            std::string::npos);

  agent.hwVplsPwDecapConfig->decapLabelDel(pw(1));
  agent.hwVplsPwDecapConfig->decapLabelDel(pw(2));
  entries = callback->decapEntries("None", "None", "None");
  EXPECT_TRUE(entries.empty());
  EXPECT_TRUE(agent.lifShadow->lifEntries().empty());
  agent.stop();
  std::filesystem::remove_all(dir);
}

TEST(ChipModel, AttachingInstallsTheRequestsAndDetachingTakesThemOut) {
  Statedb::SharedTableManager::resetAllForTest();
  AgentOptions options;
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
    agent.mplsDecapConfig->configIs(key, info);
    EXPECT_EQ(vplsDecap.size(), 1u);
    agent.chipModelIs(false);
    EXPECT_TRUE(vplsDecap.empty());
    EXPECT_TRUE(agent.lifShadow->lifEntries().empty());
  }
}

}  // namespace
}  // namespace Sim::test
