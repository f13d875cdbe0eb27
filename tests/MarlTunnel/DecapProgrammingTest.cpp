// MPLS decap and VTT2 entry programming: what each input change writes, with which values, and
// in which order.

#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "DecapSmFixture.h"

namespace Hardware::MarlTunnel::test {
namespace {

// A non-standby pseudowire in its own group on VLAN 10 (normalised tag 100 + n), with label
// 1000 * n and its FEC id as the test asks.
void configure(DecapSmRig& r, std::uint32_t n, bool withLabel, bool withFec) {
  r.config(n, "vpls1", "grp" + std::to_string(n));
  r.tag(n, 10, 100 + n);
  if (withLabel) {
    r.label(n, 1000 * n);
  }
  if (withFec) {
    r.fec(n, 0x100 * n, 0x5000 + n);
  }
}

// The outputs one decap entry is made of; the ESEM side of a VLAN is VlanTagInfoTest's.
std::vector<std::string> const kEntryOutputs{"orientation", "label", "decap", "VTT2"};

TEST(DecapProgrammingTest, EntryWritesFollowTheirFixedOrder) {
  // Whichever input comes last, adding writes: orientation request, label map, decap entry,
  // decap status, VTT2 entry; removing it again: VTT2 entry, decap entry, label map, decap
  // status.
  using Input = std::function<void(DecapSmRig&)>;
  Input const write[] = {[](DecapSmRig& r) { r.tag(1, 10, 101); },
                         [](DecapSmRig& r) { r.label(1, 1000); },
                         [](DecapSmRig& r) { r.fec(1, 0x100, 0x5001); }};
  Input const remove[] = {[](DecapSmRig& r) { r.removeTag(1, 10); },
                          [](DecapSmRig& r) { r.removeLabel(1); },
                          [](DecapSmRig& r) { r.removeFec(1); }};
  for (int last : {0, 1, 2}) {
    SCOPED_TRACE("last input " + std::to_string(last));
    DecapSmRig r;
    r.start();
    r.config(1, "vpls1", "grp1", /*standby=*/false, /*vlanAware=*/true);
    for (int i : {0, 1, 2}) {
      if (i != last) {
        write[i](r);
      }
    }
    OutputRecorder recorder(r);
    write[last](r);
    EXPECT_EQ(recorder.take(kEntryOutputs),
              (std::vector<std::string>{"orientation request +", "label map +", "decap entry +",
                                        "decap status +", "VTT2 entry +"}));
    remove[last](r);
    EXPECT_EQ(recorder.take(kEntryOutputs),
              (std::vector<std::string>{"VTT2 entry -", "decap entry -", "label map -",
                                        "decap status -"}));
  }
}

TEST(DecapProgrammingTest, FecIdBeforeInstanceIsIgnoredUntilPublishedAgain) {
  DecapSmRig r;
  r.start();
  r.fec(1, 0x100, 0x5001);
  EXPECT_EQ(r.sm->localPwInfo(pw(1)), nullptr);
  configure(r, 1, /*withLabel=*/true, /*withFec=*/false);
  EXPECT_FALSE(r.sm->localPwInfo(pw(1))->encapHwFecIdAvail());
  EXPECT_EQ(r.decapEntries(), 0u);

  r.fec(1, 0x100, 0x5001);
  ASSERT_TRUE(r.hasEntry(1000, 101));
  EXPECT_EQ(r.entry(1000, 101).hwFecId(), 0x100u);
}

TEST(DecapProgrammingTest, CallsWithNothingToDoChangeNothing) {
  DecapSmRig r;
  r.start();
  configure(r, 1, /*withLabel=*/false, /*withFec=*/true);
  configure(r, 2, /*withLabel=*/true, /*withFec=*/true);
  OutputRecorder recorder(r);

  // No label: addDecapConfig programs nothing, for all VLANs or for one.
  r.sm->addDecapConfig(pw(1), 0);
  r.sm->addDecapConfig(pw(1), 10);
  EXPECT_EQ(r.countProgrammed(1), 0u);

  // Keys the table does not hold: another inner tag, another label.
  r.sm->deleteMplsDecapConfig(pw(2), Bridging::VlanIdOrNone(10), Bridging::VlanIdOrNone(999),
                              Netcore::MplsLabel(2000));
  r.sm->deleteMplsDecapConfig(pw(2), Bridging::VlanIdOrNone(10), Bridging::VlanIdOrNone(102),
                              Netcore::MplsLabel(2001));
  EXPECT_EQ(r.countProgrammed(2), 1u);
  EXPECT_TRUE(recorder.take().empty());  // no output written or removed
}

std::string escapeRegex(std::string const& text) {
  static std::regex const meta(R"([.^$|()\[\]{}*+?\\])");
  return std::regex_replace(text, meta, R"(\$&)");
}

TEST(DecapProgrammingDeathTest, MissingOrientationAnswerFailsTheProfileCheck) {
  DecapSmRig r;
  r.allocator = nullptr;  // nobody answers orientation requests
  r.start();
  configure(r, 1, /*withLabel=*/true, /*withFec=*/false);
  EXPECT_DEATH(r.fec(1, 0x100, 0x5001),
               escapeRegex("inLifProfile >= Jericho2LifProfiles::vplsSpokeInLifProfile_ && "
                           "inLifProfile <= Jericho2LifProfiles::vplsMeshInLifProfile4_"));
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
