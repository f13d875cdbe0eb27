#include <gtest/gtest.h>

#include "MarlTunnel/LogMessages.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace {

using Hardware::MarlTunnel::MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN;

TEST(MarlLogMessages, SplitHorizonReducedWithVxlanTexts) {
  Cog::LogMessage const& m = MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN.message();
  EXPECT_EQ(m.identifier, "MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN");
  EXPECT_EQ(m.severity, 3);
  EXPECT_EQ(m.format,
            "Hardware resources to implement VPLS split horizon filtering are insufficient to "
            "program VPLS PW group %s in instance %s.");
  EXPECT_EQ(m.explanation,
            "When VXLAN is configured, the switch has reduced hardware resources to implement "
            "VPLS split horizon filtering. The switch is unable to program all VPLS entries.");
  EXPECT_EQ(m.recommendedAction,
            "Reconfigure your network to reduce the number of split horizon PW groups in the "
            "VPLS instance on the switch, or remove any VXLAN configuration on the switch.");
  EXPECT_EQ(MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN.slotCount(), 2u);
  EXPECT_EQ(Cog::logMessage("MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN"), m)
      << "the library's table is registered with Cog";
}

TEST(MarlLogMessages, DefaultSinkLine) {
  TraceTest::StderrCapture err;
  Cog::log(MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN, "grp1", "vpls7");
  err.restore();
  EXPECT_EQ(err.text(),
            "MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN: Hardware resources to implement VPLS "
            "split horizon filtering are insufficient to program VPLS PW group grp1 in instance "
            "vpls7.\n");
}

}  // namespace
