// VLAN tag info: per-VLAN ESEM entries shared by the pseudowires that carry the VLAN, and the
// tag pop/push application and EVEC profile request that exist while any VLAN has them.

#include <regex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "DecapSmFixture.h"

namespace Hardware::MarlTunnel::test {
namespace {

using Marl::Jericho2LifProfiles;

std::vector<std::string> const kEsemAdded{"ESEM 6 +", "ESEM 7 +", "ESEM 8 +", "ESEM 9 +",
                                          "ESEM 5 +"};
std::vector<std::string> const kEsemDeleted{"ESEM 6 -", "ESEM 7 -", "ESEM 8 -", "ESEM 9 -",
                                            "ESEM 5 -"};

template <class... Lists>
std::vector<std::string> concat(Lists const&... lists) {
  std::vector<std::string> out;
  (out.insert(out.end(), lists.begin(), lists.end()), ...);
  return out;
}

// The five ESEM entries of a VLAN, each with the given tag and edit profile.
void expectEsemEntries(DecapSmRig const& r, std::uint16_t vlanId, std::uint16_t tag,
                       std::uint8_t editProfile) {
  for (auto const& [domain, outLifProfile] :
       {std::pair{6u, Jericho2LifProfiles::vplsEsemOutLifProfile2_},
        std::pair{7u, Jericho2LifProfiles::vplsEsemOutLifProfile3_},
        std::pair{8u, Jericho2LifProfiles::vplsEsemOutLifProfile4_},
        std::pair{9u, Jericho2LifProfiles::vplsEsemOutLifProfile5_},
        std::pair{5u, Jericho2LifProfiles::vplsEsemOutLifProfile1_}}) {
    EsemConfigKeyVpls const key(domain, vlanId);
    EXPECT_EQ(key.keyField3(), 2046);
    ASSERT_TRUE(r.esemConfig->esemConfigHas(key)) << "domain " << domain;
    auto const info = r.esemConfig->esemConfig().find(key);
    EXPECT_EQ(std::tuple(info->tag(), info->editProfile(), info->outLifProfile()),
              std::tuple(tag, editProfile, outLifProfile));
  }
}

TEST(VlanTagInfoTest, EsemEntriesAreCountedAcrossPseudowires) {
  struct Case {
    std::uint16_t tag;
    std::uint8_t editProfile;
  };
  for (auto const& c : {Case{300, 14}, Case{0, 21}}) {
    SCOPED_TRACE("normalised tag " + std::to_string(c.tag));
    DecapSmRig r;
    r.start();
    OutputRecorder recorder(r);
    auto const count = [&] { return r.sm->esemProgrammed(vlan(100)); };

    // A pseudowire known only by its VLAN asks for no orientation: nothing else is written.
    r.tag(1, 100, c.tag);
    EXPECT_EQ(recorder.take(), concat(kEsemAdded, std::vector<std::string>{"app +", "EVEC +"}));
    expectEsemEntries(r, 100, c.tag, c.editProfile);
    EXPECT_EQ(r.esemEntries(), 5u);
    EXPECT_EQ(count(), 1);
    EXPECT_TRUE(r.tagPopPush->app(Marl::VtAppId::vplsPwTagPopPush));
    EXPECT_TRUE(r.evecRequested());

    r.tag(2, 100, c.tag);
    EXPECT_EQ(recorder.take(), kEsemAdded);  // written again, in place
    EXPECT_EQ(count(), 2);

    r.removeTag(1, 100);
    EXPECT_TRUE(recorder.take().empty());  // entries, application and request stay as they are
    EXPECT_EQ(count(), 1);

    r.removeTag(2, 100);
    EXPECT_EQ(recorder.take(), concat(std::vector<std::string>{"app -", "EVEC -"}, kEsemDeleted));
    EXPECT_FALSE(count().has_value());
    EXPECT_TRUE(r.sm->localPwInfo().empty());
  }
}

TEST(VlanTagInfoTest, ChangedTagIsDeletedCompletelyThenAdded) {
  DecapSmRig r;
  r.start();
  r.config(1, "vpls1", "grpA");
  r.label(1, 1000);
  r.fec(1, 0x100, 0x5001);
  r.tag(1, 10, 101);
  ASSERT_TRUE(r.hasEntry(1000, 101));
  OutputRecorder recorder(r);

  r.tag(1, 10, 0);
  // The VLAN's count went to zero and back, taking the application and EVEC request with it.
  EXPECT_EQ(recorder.take({"ESEM", "app", "EVEC"}),
            concat(std::vector<std::string>{"app -", "EVEC -"}, kEsemDeleted, kEsemAdded,
                   std::vector<std::string>{"app +", "EVEC +"}));
  expectEsemEntries(r, 10, 0, 21);
  EXPECT_FALSE(r.hasEntry(1000, 101));
  ASSERT_TRUE(r.hasEntry(1000, 0));
  EXPECT_EQ(r.entry(1000, 0).vlanId(), 10);
  EXPECT_EQ(r.countProgrammed(1), 1u);
  EXPECT_EQ(r.sm->localPwInfo(pw(1))->normalisedTagPerVlan(vlan(10)), Bridging::VlanIdOrNone());
}

TEST(VlanTagInfoDeathTest, DeletingAVlanNeverAddedStopsTheProcess) {
  DecapSmRig r;
  r.start();
  r.tag(1, 20, 120);
  EXPECT_DEATH(r.sm->deleteVlanTagInfo(pw(1), vlan(10)),
               std::regex_replace("esemProgrammedHas( vlanId )", std::regex(R"([()])"), R"(\$&)"));
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
