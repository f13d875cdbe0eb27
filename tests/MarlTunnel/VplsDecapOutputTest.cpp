// The decap entry record and the show command's answer text.

#include <gtest/gtest.h>

#include <string>

#include "Loom/Errors.h"
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

// The answer for one pseudowire Pw1 of instance vpls1, group grpA and label 900001: its global
// in-LIF and active flag (from its lowest element), its VLAN blocks, and its summary.
std::string pw1Answer(std::string const& globalInLif, std::string const& active,
                      std::string const& vlans, std::string const& summary) {
  return "{'pseudowires' : {'Pw1' : {'instanceContext' : 'vpls1','groupName' : 'grpA','label' : "
         "'900001','controlWord' : 'True','flowLabel' : 'False','termProfile' : '2',"
         "'globalInLif' : '" +
         globalInLif + "','active' : '" + active + "','vlans' : {" + vlans + "}," + summary +
         ",},},}";
}

std::string vlanBlock(int vlanId, int tag, int lifIndex) {
  return "'" + std::to_string(vlanId) + "' : {'normalizedTag' : '" + std::to_string(tag) +
         "','lifIndex' : '" + std::to_string(lifIndex) + "'},";
}

std::string summary(std::string const& hwFec, std::string const& profile,
                    std::string const& orientation) {
  return "'hwFec' : '" + hwFec + "','inLifProfile' : '" + profile + "','orientation' : '" +
         orientation + "'";
}

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
  auto const none = summary("-", "-", "-");
  Case const cases[] = {
      {"empty map", {}, "{'pseudowires' : {},}"},
      {"pseudowire without elements",
       {{"Pw2", {}}},
       "{'pseudowires' : {'Pw2' : {},'hwFec' : '-','inLifProfile' : '-','orientation' : '-',},},}"},
      {"VLAN-less element only: header and block, no summary",
       {{"Pw1", {{vlan(0), entry(5, 0)}}}},
       pw1Answer("20000", "True", vlanBlock(0, 0, 5), none)},
      {"all inactive",
       {{"Pw1", {{vlan(10), entry(1, 7, 8, false)}}}},
       pw1Answer("20000", "False", vlanBlock(10, 7, 1), none)},
      {"spoke profile 10 has orientation 0",
       {{"Pw1", {{vlan(10), entry(1, 7, 10)}}}},
       pw1Answer("20000", "True", vlanBlock(10, 7, 1), summary("4096", "10", "0"))},
      {"profile below 7 wraps in 8 bits",
       {{"Pw1", {{vlan(10), entry(1, 7, 5)}}}},
       pw1Answer("20000", "True", vlanBlock(10, 7, 1), summary("4096", "5", "254"))},
      {"global in-LIF all ones",
       {{"Pw1", {{vlan(10), entry(1, 7, 11, true, 0xFFFFFFFF)}}}},
       pw1Answer("-", "True", vlanBlock(10, 7, 1), summary("4096", "11", "4"))},
      {"global in-LIF 0",
       {{"Pw1", {{vlan(10), entry(1, 7, 11, true, 0)}}}},
       pw1Answer("0", "True", vlanBlock(10, 7, 1), summary("4096", "11", "4"))},
      {"last active VLAN wins; header from the lowest element",
       {{"Pw1",
         {{vlan(0), entry(1, 0, 12, false, 1)},
          {vlan(10), entry(2, 7, 12)},
          {vlan(20), entry(3, 8, 13)},
          {vlan(30), entry(4, 9, 14, false)}}}},
       pw1Answer(
           "1", "False",
           vlanBlock(0, 0, 1) + vlanBlock(10, 7, 2) + vlanBlock(20, 8, 3) + vlanBlock(30, 9, 4),
           summary("4096", "13", "6"))},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(printVplsDecapEntries(c.entries).str(), c.expected) << c.name;
  }
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
