#include <gtest/gtest.h>

#include <csignal>

#include "Loom/Assert.h"
#include "Trace/Flashlog.h"
#include "Trace/FlashlogReader.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace {

constexpr char kUnit[] = "MarlTunnel/MarlVplsPwIntfDecapSm";
constexpr char kSig[] =
    "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVlanTagInfo(Netcore::IntfId, "
    "Bridging::VlanId)";

bool esemProgrammedHas(int vlanId) {
  return vlanId == 1;
}

TEST(LoomAssertDeathTest, FailureNamesConditionUnitAndSignature) {
  int const vlanId = 2;
  // The condition's own spacing must reach the message unchanged.
  // clang-format off
  EXPECT_DEATH(LOOM_ASSERT( esemProgrammedHas( vlanId ), kUnit, kSig ),
               // clang-format on
               "^assertion \"esemProgrammedHas\\( vlanId \\)\" failed in "
               "MarlTunnel/MarlVplsPwIntfDecapSm: void "
               "Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVlanTagInfo\\(Netcore::"
               "IntfId, Bridging::VlanId\\)\n$");
}

TEST(LoomAssertDeathTest, FailureIsInTheFlashlogOfTheAbortedProcess) {
  TraceTest::TempDir dir;
  auto const file = dir / "asserting.flashlog";
  EXPECT_EXIT(
      {
        Trace::Flashlog::open(file, {.ringBytes = 4096, .formatTableBytes = 1 << 18});
        LOOM_ASSERT(1 + 1 == 3, "Unit/Test", "void f()");
      },
      ::testing::KilledBySignal(SIGABRT), "assertion \"1 \\+ 1 == 3\" failed in Unit/Test");
  auto const reader = Trace::FlashlogReader::fromFile(file);
  ASSERT_FALSE(reader.records().empty());
  EXPECT_EQ(reader.records().back().facility, "Loom");
  EXPECT_EQ(reader.records().back().text, "assertion \"1 + 1 == 3\" failed in Unit/Test: void f()");
}

TEST(LoomAssert, HoldingConditionIsEvaluatedOnceAndReturns) {
  int evaluations = 0;
  LOOM_ASSERT(++evaluations == 1, kUnit, kSig);
  EXPECT_EQ(evaluations, 1);
}

}  // namespace
