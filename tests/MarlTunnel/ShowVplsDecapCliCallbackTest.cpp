// The show command reading hand-filled chip shadows and the configuration.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Loom/RangeError.h"
#include "MarlTunnel/ShowVplsDecapCliCallback.h"

namespace Hardware::MarlTunnel::test {
namespace {

using Marl::SemShadow;

Netcore::IntfId pw(std::uint32_t n) {
  return Netcore::IntfId::pseudowire(n);
}

constexpr std::uint64_t kType13 = std::uint64_t{13} << SemShadow::kTypeShift;

class ShowVplsDecapCliCallbackTest : public ::testing::Test {
 protected:
  ShowVplsDecapCliCallbackTest() {
    ShowVplsDecapCliCallback::globalInLifToIntfMap().clear();
    ShowVplsDecapCliCallback::labelToIntfMap().clear();
    configure(1, "vpls1", "grpA", 1001, 501);
    configure(2, "vpls2", "grpB", 1002, 502);
  }

  void configure(std::uint32_t n, char const* instance, char const* group, std::uint32_t label,
                 std::uint32_t globalInLif) {
    pwConfig->vplsPwIntfInfoIs(pw(n), Fab::VplsPwIntfInfo(pw(n))
                                          .vplsInstanceNameIs(instance)
                                          .groupNameIs(group)
                                          .controlWordIs(true)
                                          .flowLabelIs(n == 2));
    decapConfig->decapLabelIs(pw(n), Netcore::MplsLabel(label));
    decapConfig->encapHwFecIdIs(pw(n), Fab::NexthopIndex(0x100 + n, globalInLif));
  }

  // A VPLS decap entry (tag, global in-LIF) -> LIF row carrying (destination, VLAN, profile).
  void vplsEntry(std::uint32_t tag, std::uint32_t globalInLif, std::uint32_t lifIndex,
                 std::uint32_t vlan, std::uint8_t profile) {
    sem->entryIs(SemShadow::Table::vplsDecap, kType13 | std::uint64_t{tag} << 22 | globalInLif,
                 0b100, std::uint64_t{lifIndex} << 4);
    lif->lifEntryIs(lifIndex, Marl::AradLifPweToP2p()
                                  .destinationIs(0x1000 + lifIndex)
                                  .vlanIs(vlan)
                                  .inLifProfileIs(profile)
                                  .globalInLifIs(globalInLif)
                                  .terminationProfileIs(2)
                                  .entry());
  }
  void mplsEntry(std::uint32_t label, std::uint32_t lifIndex) {
    sem->entryIs(SemShadow::Table::mplsDecap, kType13 | std::uint64_t{label} << 1, 0b1,
                 std::uint64_t{lifIndex} << 4);
    lif->lifEntryIs(lifIndex, Marl::AradLifPweToP2p().destinationIs(7).entry());
  }

  std::string ask(std::string const& args) {
    int const fd = ::memfd_create("answer", 0);
    callback->handleCommand(static_cast<std::uint32_t>(fd), Loom::String(args));
    std::string text(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
    ::pread(fd, text.data(), text.size(), 0);
    ::close(fd);
    return text;
  }

  Loom::Ptr<Fab::HwVplsPwDecapConfig> decapConfig =
      Fab::HwVplsPwDecapConfig::HwVplsPwDecapConfigIs();
  Loom::Ptr<Fab::HwVplsPwConfig> pwConfig = Fab::HwVplsPwConfig::HwVplsPwConfigIs();
  Loom::Ptr<SemShadow> sem = SemShadow::SemShadowIs();
  Loom::Ptr<Marl::AradIhpLifTable> lif = Marl::AradIhpLifTable::AradIhpLifTableIs();
  Loom::Ptr<ShowVplsDecapCliCallback> callback =
      showVplsDecapCliCallbackFactory("MarlTunnelVpls", "vplsDecap", decapConfig, pwConfig, sem,
                                      lif, Netcore::IntfIdDisplayContext::IntfIdDisplayContextIs());
};

TEST_F(ShowVplsDecapCliCallbackTest, JoinsShadowsWithTheConfiguration) {
  vplsEntry(100, 501, 33, 10, 11);
  vplsEntry(200, 502, 34, 20, 12);
  mplsEntry(1002, 40);
  auto const entries = callback->decapEntries("None", "None", "None");
  ASSERT_EQ(entries.size(), 2u);
  auto const& e1 = entries.at("Pseudowire1").at(Bridging::VlanIdOrNone(10));
  EXPECT_EQ(e1, VplsDecapEntry("vpls1", "grpA", 0x1000 + 33, 11, 501, 33, 2,
                               Netcore::MplsLabel(1001), 100, true, false, true));
  auto const& pw2 = entries.at("Pseudowire2");
  EXPECT_EQ(pw2.size(), 2u);
  EXPECT_EQ(pw2.at(Bridging::VlanIdOrNone()).lifIndex(), 40u);
  EXPECT_TRUE(pw2.at(Bridging::VlanIdOrNone(20)).flowLabel());
}

TEST_F(ShowVplsDecapCliCallbackTest, FiltersByInstanceGroupAndShortName) {
  vplsEntry(100, 501, 33, 10, 11);
  vplsEntry(200, 502, 34, 20, 12);
  struct Case {
    char const* instance;
    char const* group;
    char const* interface;
    std::size_t pseudowires;
  };
  for (auto const& c : {Case{"None", "None", "None", 2}, Case{"vpls1", "None", "None", 1},
                        Case{"None", "grpB", "None", 1}, Case{"None", "None", "Pw2", 1},
                        Case{"None", "None", "Pseudowire2", 0}, Case{"vpls1", "grpB", "None", 0}}) {
    EXPECT_EQ(callback->decapEntries(c.instance, c.group, c.interface).size(), c.pseudowires)
        << c.instance << " " << c.group << " " << c.interface;
  }
}

TEST_F(ShowVplsDecapCliCallbackTest, SkipsWhatCannotBeJoinedAndKeepsRemovedNames) {
  mplsEntry(4242, 41);  // label not configured
  sem->entryIs(SemShadow::Table::vplsDecap, (std::uint64_t{12} << SemShadow::kTypeShift) | 501, 1,
               33 << 4);            // another key type
  vplsEntry(300, 999, 35, 30, 11);  // unknown global in-LIF
  EXPECT_TRUE(callback->decapEntries("None", "None", "None").empty());

  // A pseudowire removed from the configuration keeps its name in the maps.
  vplsEntry(100, 501, 33, 10, 11);
  callback->decapEntries("None", "None", "None");
  decapConfig->encapHwFecIdDel(pw(1));
  decapConfig->decapLabelDel(pw(1));
  pwConfig->vplsPwIntfInfoDel(pw(1));
  auto const entries = callback->decapEntries("None", "None", "None");
  ASSERT_EQ(entries.count("Pseudowire1"), 1u);
  EXPECT_EQ(entries.at("Pseudowire1").at(Bridging::VlanIdOrNone(10)).label(), Netcore::MplsLabel());
}

TEST_F(ShowVplsDecapCliCallbackTest, OrdersByNameAndVlanAndKeepsTheEntryMetLast) {
  configure(10, "vpls1", "grpA", 1010, 510);
  // Walk order is key order: tag 100 before tag 200, the VPLS table before the MPLS table.
  vplsEntry(200, 510, 36, 10, 11);
  vplsEntry(100, 510, 35, 10, 11);  // same pseudowire and VLAN, met first
  vplsEntry(100, 502, 34, 0, 12);   // a VPLS entry without VLAN ...
  mplsEntry(1002, 40);              // ... and the MPLS entry that replaces it
  vplsEntry(300, 502, 37, 20, 12);
  vplsEntry(100, 501, 33, 10, 11);

  auto const list = callback->decapEntryList("None", "None", "None");
  std::vector<std::string> names;
  for (auto const& pw : list) {
    names.push_back(pw.name->str());
  }
  // Names order as text: Pseudowire10 before Pseudowire2.
  EXPECT_EQ(names, (std::vector<std::string>{"Pseudowire1", "Pseudowire10", "Pseudowire2"}));
  ASSERT_EQ(list[1].vlans.size(), 1u);
  EXPECT_EQ(list[1].vlans[0].second.lifIndex(), 36u);
  ASSERT_EQ(list[2].vlans.size(), 2u);
  EXPECT_TRUE(list[2].vlans[0].first.isNone());
  EXPECT_EQ(list[2].vlans[0].second.lifIndex(), 40u);
  EXPECT_EQ(list[2].vlans[1].first, Bridging::VlanIdOrNone(20));

  auto const map = callback->decapEntries("None", "None", "None");
  EXPECT_EQ(toMap(list), map);
  EXPECT_EQ(printVplsDecapEntries(list).str(), printVplsDecapEntries(map).str());
  EXPECT_EQ(ask("None None None"), printVplsDecapEntries(map).str());
}

TEST_F(ShowVplsDecapCliCallbackTest, VlanFieldAllOnesEndsTheCommandWithoutAnswer) {
  vplsEntry(0xfff, 501, 33, 10, 11);
  EXPECT_THROW(ask("None None None"), Loom::RangeError);
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
