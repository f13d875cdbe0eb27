// The decap entry record and the show command's answer text.

#include <gtest/gtest.h>

#include <string>

#include "Loom/Errors.h"
#include "Loom/Hash.h"
#include "MarlTunnel/VplsDecapOutput.h"

namespace Hardware::MarlTunnel::test {
namespace {

VplsDecapEntry entry(std::uint32_t lifIndex, std::uint32_t tag, std::uint8_t profile = 8,
                     bool active = true, std::uint32_t globalInLif = 20000) {
  return VplsDecapEntry("vpls1", "grpA", 4096, profile, globalInLif, lifIndex, 2,
                        Netcore::MplsLabel(900001), tag, true, false, active);
}

Bridging::VlanIdOrNone vlan(std::uint32_t v) {
  return Bridging::VlanIdOrNone(v);
}

constexpr char kHeader[] =
    "'instanceContext' : 'vpls1','groupName' : 'grpA','label' : '900001','controlWord' : "
    "'True','flowLabel' : 'False','termProfile' : '2',";

TEST(VplsDecapOutput, WorkedExampleByteForByte) {
  VplsDecapEntryMap const entries{
      {"Pw1", {{vlan(10), entry(33, 100)}, {vlan(20), entry(34, 200)}}}};
  EXPECT_EQ(
      printVplsDecapEntries(entries).str(),
      "{'pseudowires' : {'Pw1' : {'instanceContext' : 'vpls1','groupName' : 'grpA','label' : "
      "'900001','controlWord' : 'True','flowLabel' : 'False','termProfile' : '2','globalInLif' "
      ": '20000','active' : 'True','vlans' : {'10' : {'normalizedTag' : '100','lifIndex' : "
      "'33'},'20' : {'normalizedTag' : '200','lifIndex' : '34'},},'hwFec' : "
      "'4096','inLifProfile' : '8','orientation' : '1',},},}");
}

TEST(VplsDecapOutput, SummaryAndHeaderCases) {
  struct Case {
    char const* name;
    VplsDecapEntryMap entries;
    std::string expected;
  };
  std::string const h = kHeader;
  Case const cases[] = {
      {"empty map", {}, "{'pseudowires' : {},}"},
      {"pseudowire without elements",
       {{"Pw2", {}}},
       "{'pseudowires' : {'Pw2' : {},'hwFec' : '-','inLifProfile' : '-','orientation' : '-',},},}"},
      {"VLAN-less element only: header and block, no summary",
       {{"Pw1", {{vlan(0), entry(5, 0)}}}},
       "{'pseudowires' : {'Pw1' : {" + h +
           "'globalInLif' : '20000','active' : 'True','vlans' : {'0' : {'normalizedTag' : "
           "'0','lifIndex' : '5'},},'hwFec' : '-','inLifProfile' : '-','orientation' : '-',},},}"},
      {"all inactive",
       {{"Pw1", {{vlan(10), entry(1, 7, 8, false)}}}},
       "{'pseudowires' : {'Pw1' : {" + h +
           "'globalInLif' : '20000','active' : 'False','vlans' : {'10' : {'normalizedTag' : "
           "'7','lifIndex' : '1'},},'hwFec' : '-','inLifProfile' : '-','orientation' : '-',},},}"},
      {"spoke profile 10 has orientation 0",
       {{"Pw1", {{vlan(10), entry(1, 7, 10)}}}},
       "{'pseudowires' : {'Pw1' : {" + h +
           "'globalInLif' : '20000','active' : 'True','vlans' : {'10' : {'normalizedTag' : "
           "'7','lifIndex' : '1'},},'hwFec' : '4096','inLifProfile' : '10','orientation' : "
           "'0',},},}"},
      {"profile below 7 wraps in 8 bits",
       {{"Pw1", {{vlan(10), entry(1, 7, 5)}}}},
       "{'pseudowires' : {'Pw1' : {" + h +
           "'globalInLif' : '20000','active' : 'True','vlans' : {'10' : {'normalizedTag' : "
           "'7','lifIndex' : '1'},},'hwFec' : '4096','inLifProfile' : '5','orientation' : "
           "'254',},},}"},
      {"global in-LIF all ones",
       {{"Pw1", {{vlan(10), entry(1, 7, 11, true, 0xFFFFFFFF)}}}},
       "{'pseudowires' : {'Pw1' : {" + h +
           "'globalInLif' : '-','active' : 'True','vlans' : {'10' : {'normalizedTag' : "
           "'7','lifIndex' : '1'},},'hwFec' : '4096','inLifProfile' : '11','orientation' : "
           "'4',},},}"},
      {"global in-LIF 0",
       {{"Pw1", {{vlan(10), entry(1, 7, 11, true, 0)}}}},
       "{'pseudowires' : {'Pw1' : {" + h +
           "'globalInLif' : '0','active' : 'True','vlans' : {'10' : {'normalizedTag' : "
           "'7','lifIndex' : '1'},},'hwFec' : '4096','inLifProfile' : '11','orientation' : "
           "'4',},},}"},
      {"last active VLAN wins; header from the lowest element",
       {{"Pw1",
         {{vlan(0), entry(1, 0, 12, false, 1)},
          {vlan(10), entry(2, 7, 12)},
          {vlan(20), entry(3, 8, 13)},
          {vlan(30), entry(4, 9, 14, false)}}}},
       "{'pseudowires' : {'Pw1' : {" + h +
           "'globalInLif' : '1','active' : 'False','vlans' : {'0' : {'normalizedTag' : "
           "'0','lifIndex' : '1'},'10' : {'normalizedTag' : '7','lifIndex' : '2'},'20' : "
           "{'normalizedTag' : '8','lifIndex' : '3'},'30' : {'normalizedTag' : '9','lifIndex' : "
           "'4'},},'hwFec' : '4096','inLifProfile' : '13','orientation' : '6',},},}"},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(printVplsDecapEntries(c.entries).str(), c.expected) << c.name;
  }
}

TEST(VplsDecapEntry, OrdersFieldByFieldAndKnowsItsDefault) {
  // groupName decides although every later field differs the other way.
  VplsDecapEntry const a("i", "a", 9, 9, 9, 9, 7, Netcore::MplsLabel(9), 9, true, true, true);
  VplsDecapEntry const b("i", "b", 0, 0, 0, 0, 0, Netcore::MplsLabel(0), 0, false, false, false);
  EXPECT_LT(a, b);
  EXPECT_GT(b, a);
  EXPECT_EQ(a, a);
  EXPECT_TRUE(a.isEq(VplsDecapEntry(a)));
  EXPECT_NE(a, b);

  EXPECT_FALSE(VplsDecapEntry());
  EXPECT_FALSE(
      VplsDecapEntry("", "", 0, 0, 0, 0, 0, Netcore::MplsLabel(0x100000), 0, false, false, false));
  EXPECT_TRUE(
      VplsDecapEntry("", "", 0, 0, 0, 0, 0, Netcore::MplsLabel(16), 0, false, false, false));
  EXPECT_TRUE(VplsDecapEntry("", "", 0, 0, 0, 0, 0, Netcore::MplsLabel(), 0, false, false, true));
  EXPECT_THROW(Loom::hashValue(a), Loom::NotHashableError);
  EXPECT_FALSE(VplsDecapEntry::type().hashable());
}

TEST(VplsDecapEntry, TextFormRoundTripAndRefusals) {
  VplsDecapEntry const e("vpls \"1\"", "grp\\A", 4096, 13, 20000, 33, 2, Netcore::MplsLabel(900001),
                         100, true, false, true);
  auto const text = Loom::toText(e);
  EXPECT_EQ(Loom::fromText<VplsDecapEntry>(text), e);
  EXPECT_THROW(Loom::fromText<VplsDecapEntry>(text + " "), Loom::DeserializationError);

  auto badLabel = text;
  badLabel.replace(badLabel.find("label=900001"), 12, "label=1048577");
  try {
    Loom::fromText<VplsDecapEntry>(badLabel);
    FAIL() << "label out of range accepted";
  } catch (Loom::DeserializationError const& err) {
    EXPECT_EQ(err.attribute(), "label");
  }
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
