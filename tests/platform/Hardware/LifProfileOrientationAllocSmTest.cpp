// The orientation allocator's mesh slots: which group holds which slot, and when it lets go.

#include <gtest/gtest.h>

#include <string>

#include "Hardware/Jericho2LifProfiles.h"
#include "Hardware/LifProfileOrientationAllocSm.h"
#include "Hardware/Orientation.h"

namespace Hardware::MarlTunnel::test {
namespace {

LifProfileOrientationKey request(std::string const& group, std::uint32_t pw,
                                 std::uint16_t vlan = 10) {
  return LifProfileOrientationKey(VlanAndVplsKey("", vlan, group, true),
                                  Netcore::IntfId::pseudowire(pw));
}

class AllocatorTest : public ::testing::Test {
 protected:
  std::uint32_t slot(std::string const& group, std::uint16_t vlan = 10) const {
    return allocator->slotOf(VlanAndVplsKey("", vlan, group, true));
  }
  Orientation orientation(LifProfileOrientationKey const& key) const {
    return status->lpoResponse(key).orientation();
  }

  Loom::Ptr<LifProfileOrientationConfig> config =
      LifProfileOrientationConfig::LifProfileOrientationConfigIs();
  Loom::Ptr<LifProfileOrientationStatus> status =
      LifProfileOrientationStatus::LifProfileOrientationStatusIs();
  Loom::Ptr<LifProfileOrientationAllocSm> allocator =
      LifProfileOrientationAllocSm::LifProfileOrientationAllocSmIs(config, status, 3);
};

TEST_F(AllocatorTest, AGroupKeepsItsSlotUntilItsLastAnsweredRequestGoes) {
  config->lpoRequestIs(request("a", 1));
  config->lpoRequestIs(request("b", 2));
  config->lpoRequestIs(request("a", 3));
  config->lpoRequestIs(request("a", 3));  // asked again: still one request
  EXPECT_EQ(slot("a"), 1u);
  EXPECT_EQ(slot("b"), 2u);
  EXPECT_EQ(orientation(request("a", 3)), Orientation::orientation4);

  config->lpoRequestDel(request("a", 3));
  EXPECT_EQ(slot("a"), 1u);
  EXPECT_FALSE(status->lpoResponseHas(request("a", 3)));
  config->lpoRequestDel(request("a", 1));
  EXPECT_EQ(slot("a"), 0u);

  // The lowest free slot goes to the next new group; other domains have slots of their own.
  config->lpoRequestIs(request("c", 4));
  EXPECT_EQ(slot("c"), 1u);
  config->lpoRequestIs(request("a", 5, 20));
  EXPECT_EQ(slot("a", 20), 1u);
}

TEST_F(AllocatorTest, AFailedRequestHoldsNothingAndRetriesWhenAskedAgain) {
  for (std::uint32_t n = 1; n <= 3; ++n) {
    config->lpoRequestIs(request(std::string("g").append(std::to_string(n)), n));
  }
  config->lpoRequestIs(request("g4", 4));
  EXPECT_EQ(orientation(request("g4", 4)), Orientation::orientationAllocFailed);
  EXPECT_EQ(slot("g4"), 0u);

  // Withdrawing the failed request frees nobody's slot.
  config->lpoRequestDel(request("g4", 4));
  EXPECT_EQ(slot("g1"), 1u);
  config->lpoRequestIs(request("g4", 4));
  config->lpoRequestDel(request("g2", 2));
  EXPECT_EQ(orientation(request("g4", 4)), Orientation::orientationAllocFailed);
  config->lpoRequestIs(request("g4", 4));
  EXPECT_EQ(slot("g4"), 2u);
  EXPECT_EQ(orientation(request("g4", 4)), Orientation::orientation5);
}

// State found at start-up where two groups of a domain claim slot 1 and an answer has no
// request: only the first group's requested answer holds the slot, and the others count as
// holding only once they are requested again.
TEST_F(AllocatorTest, AtStartUpOnlyConsistentAnswersHoldTheirSlot) {
  allocator = nullptr;
  auto const slot1 =
      LifProfileAndOrientation(Marl::Jericho2LifProfiles{11}, Orientation::orientation4);
  config->lpoRequestIs(request("a", 1));
  config->lpoRequestIs(request("b", 2));
  for (auto pw : {1u, 9u}) {
    status->lpoResponseIs(request("a", pw), slot1);
  }
  status->lpoResponseIs(request("b", 2), slot1);
  allocator = LifProfileOrientationAllocSm::LifProfileOrientationAllocSmIs(config, status, 3);
  allocator->takeSlotsBack();
  EXPECT_EQ(slot("a"), 1u);
  EXPECT_EQ(slot("b"), 0u);

  config->lpoRequestDel(request("b", 2));  // held nothing
  EXPECT_EQ(slot("a"), 1u);
  config->lpoRequestIs(request("a", 9));  // now holds, beside a's first request
  config->lpoRequestDel(request("a", 1));
  EXPECT_EQ(slot("a"), 1u);
  config->lpoRequestDel(request("a", 9));
  EXPECT_EQ(slot("a"), 0u);
}

TEST_F(AllocatorTest, SpokesTakeNoSlot) {
  auto const spoke =
      LifProfileOrientationKey(VlanAndVplsKey("", 10, "a", false), Netcore::IntfId::pseudowire(1));
  config->lpoRequestIs(spoke);
  EXPECT_EQ(orientation(spoke), Orientation::orientation0);
  EXPECT_EQ(slot("a"), 0u);
  config->lpoRequestIs(request("a", 2));
  EXPECT_EQ(slot("a"), 1u);
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
