// Value types: ordering, equality and hashing of keys, and the bit layouts of packed values.

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Fab/NexthopIndex.h"
#include "Fab/VplsIntfKey.h"
#include "Fab/VplsPwIntfInfo.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Hardware/EsemConfigInfoVpls.h"
#include "Hardware/EsemConfigKeyVpls.h"
#include "Hardware/LifProfileOrientationKey.h"
#include "Hardware/MplsDecapInfoKey.h"
#include "Hardware/VlanAndVplsKey.h"
#include "Loom/Hash.h"
#include "Loom/String.h"

namespace {

namespace HW = Hardware::MarlTunnel;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Netcore::IntfId;
using Netcore::MplsLabel;
using Profile = Hardware::Marl::Jericho2LifProfiles;

IntfId pw(std::uint32_t n) {
  return IntfId::pseudowire(n);
}

// `ascending` lists distinct keys in strictly ascending order. Checks that order, equality and
// the seeded hash agree, that the hash sees every field these keys differ in, and that the seed
// takes part.
template <class K>
void checkKeyFamily(char const* family, std::vector<K> const& ascending) {
  SCOPED_TRACE(family);
  std::set<std::size_t> hashes;
  bool seedMatters = false;
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    K const copy = ascending[i];
    EXPECT_TRUE(copy == ascending[i]) << "key " << i;
    EXPECT_EQ(Loom::hashValue(copy, 17), Loom::hashValue(ascending[i], 17)) << "key " << i;
    hashes.insert(Loom::hashValue(ascending[i]));
    seedMatters = seedMatters || Loom::hashValue(copy, 1) != Loom::hashValue(copy, 2);
    for (std::size_t j = i + 1; j < ascending.size(); ++j) {
      EXPECT_TRUE(ascending[i] < ascending[j]) << "keys " << i << ", " << j;
      EXPECT_FALSE(ascending[i] == ascending[j]) << "keys " << i << ", " << j;
    }
  }
  EXPECT_EQ(hashes.size(), ascending.size());
  EXPECT_TRUE(seedMatters);
}

TEST(ValueTypes, KeysOrderCompareAndHashConsistently) {
  // Strings order byte by byte, bytes unsigned; the empty string and the first byte decide
  // most comparisons.
  checkKeyFamily<Loom::String>("Loom::String", {"", "\x01", "a", "aa", "ab", "abc", "b", "ba",
                                                "\x7f", "\x80", "\xff", "\xff\xff"});
  checkKeyFamily<IntfId>("IntfId", {IntfId(), pw(1), pw(2), pw(10), pw(65535)});
  checkKeyFamily<MplsLabel>("MplsLabel",
                            {MplsLabel(0), MplsLabel(16), MplsLabel(0xfffff), MplsLabel()});
  checkKeyFamily<VlanId>("VlanId", {VlanId(1), VlanId(2), VlanId(4094)});
  checkKeyFamily<VlanIdOrNone>("VlanIdOrNone",
                               {VlanIdOrNone(), VlanIdOrNone(1), VlanIdOrNone(4094)});
  checkKeyFamily<Fab::NexthopIndex>("NexthopIndex", {Fab::NexthopIndex(0), Fab::NexthopIndex(5, 0),
                                                     Fab::NexthopIndex(0, 1), Fab::NexthopIndex()});
  checkKeyFamily<Fab::VplsPwIntfVlanKey>(
      "VplsPwIntfVlanKey",
      {{pw(2), VlanId(1)}, {pw(2), VlanId(4094)}, {pw(10), VlanId(1)}, {pw(10), VlanId(5)}});
  checkKeyFamily<Fab::VplsIntfKey>("VplsIntfKey", {{"a", "g", pw(1), false},
                                                   {"a", "g", pw(1), true},
                                                   {"a", "g", pw(2), false},
                                                   {"a", "h", pw(1), false},
                                                   {"b", "", IntfId(), false}});
  checkKeyFamily<HW::EsemConfigKeyVpls>("EsemConfigKeyVpls",
                                        {{5, 10, 0}, {5, 10}, {5, 11}, {6, 1}, {9, 4094}});
  checkKeyFamily<HW::MplsDecapInfoKey>("MplsDecapInfoKey", {{MplsLabel(16), VlanIdOrNone(), 0},
                                                            {MplsLabel(16), VlanIdOrNone(), 1},
                                                            {MplsLabel(16), VlanIdOrNone(20), 0},
                                                            {MplsLabel(17), VlanIdOrNone(), 0}});
  std::vector<HW::VlanAndVplsKey> const groups{{"", 10, "g", true},
                                               {"a", 0, "g", false},
                                               {"a", 0, "g", true},
                                               {"a", 0, "h", false},
                                               {"a", 1, "", false}};
  checkKeyFamily("VlanAndVplsKey", groups);
  checkKeyFamily<HW::LifProfileOrientationKey>(
      "LifProfileOrientationKey",
      {{groups[0], pw(1)}, {groups[0], pw(7)}, {groups[1], IntfId()}, {groups[1], pw(1)}});
}

TEST(ValueTypes, NexthopIndexPacksFecIdLowAndInLifHigh) {
  Fab::NexthopIndex const absent;
  EXPECT_EQ(absent.value(), ~std::uint64_t{0});
  EXPECT_FALSE(absent.valid());

  Fab::NexthopIndex const index(0x11223344u, 0xaabbccddu);
  EXPECT_EQ(index.value(), 0xaabbccdd11223344ull);
  EXPECT_EQ(index.hwFecId(), 0x11223344u);
  EXPECT_EQ(index.globalInLif(), 0xaabbccddu);
  EXPECT_TRUE(index.valid());
  EXPECT_EQ(Fab::NexthopIndex(index.value()), index);
}

TEST(ValueTypes, EsemConfigInfoVplsBitLayout) {
  struct Case {
    std::uint16_t tag;
    std::uint8_t editProfile;
    Profile outLifProfile;
    std::uint32_t word;
  };
  Case const cases[] = {
      {0, 0, Profile::noLifProfile_, 0},
      {0xffff, 0, Profile::noLifProfile_, 0x0000ffff},
      {0, 0xff, Profile::noLifProfile_, 0x00ff0000},
      {0, 0, Profile::vplsEsemOutLifProfile5_, 0x19000000},
      {0xabcd, 14, Profile::vplsEsemOutLifProfile3_, 0x170eabcd},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.word);
    HW::EsemConfigInfoVpls const info(c.tag, c.editProfile, c.outLifProfile);
    EXPECT_EQ(info.value(), c.word);
    EXPECT_EQ(info.tag(), c.tag);
    EXPECT_EQ(info.editProfile(), c.editProfile);
    EXPECT_EQ(info.outLifProfile(), c.outLifProfile);
  }
  EXPECT_EQ(HW::EsemConfigInfoVpls().value(), 0u);
}

TEST(ValueTypes, OrientationKeysPrintForTraces) {
  HW::VlanAndVplsKey const instanceWide("blue", 0, "mesh1", true);
  EXPECT_EQ(instanceWide.toStrep(), "(blue, 0, mesh1, 1)");
  EXPECT_EQ(HW::LifProfileOrientationKey(instanceWide, pw(7)).toStrep(),
            "(blue, 0, mesh1, 1, Pseudowire7)");
  EXPECT_EQ(HW::LifProfileOrientationKey({"", 300, "spoke", false}, pw(65535)).toStrep(),
            "(, 300, spoke, 0, Pseudowire65535)");
}

// The flow label is one bit of the flags word, which the other bits share.
TEST(ValueTypes, VplsPwIntfInfoFlowLabelBit) {
  Fab::VplsPwIntfInfo info;
  info.flowLabelIs(true);
  EXPECT_EQ(info.flags(), 0x4000);
  info.flagsIs(0x0001).flowLabelIs(true);
  EXPECT_EQ(info.flags(), 0x4001);
  info.flowLabelIs(false);
  EXPECT_EQ(info.flags(), 0x0001);
  EXPECT_FALSE(info.flowLabel());
  EXPECT_TRUE(Fab::VplsPwIntfInfo().flagsIs(0x4000).flowLabel());
  EXPECT_FALSE(Fab::VplsPwIntfInfo().flagsIs(0xbfff).flowLabel());
}

}  // namespace
