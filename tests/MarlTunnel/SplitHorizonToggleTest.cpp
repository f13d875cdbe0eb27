#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "Cog/Toggle.h"
#include "MarlTunnel/SplitHorizonToggle.h"
#include "MarlTunnel/detail/SplitHorizonToggleForTest.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace {

using Hardware::MarlTunnel::toggleMarlTunnelSplitHorizonGroupEnabled;
using Hardware::MarlTunnel::detail::resetSplitHorizonToggleCacheForTest;

class SplitHorizonToggleTest : public ::testing::Test {
 protected:
  void SetUp() override { resetSplitHorizonToggleCacheForTest(); }
  void TearDown() override { resetSplitHorizonToggleCacheForTest(); }

  void fileIs(char const* json) { TraceTest::writeFile(dir_ / "MarlTunnel.json", json); }

  TraceTest::TempDir dir_;
  TraceTest::ScopedEnv env_{Cog::kToggleDirEnv, dir_.path().string()};
};

TEST_F(SplitHorizonToggleTest, MalformedFileLeavesItOn) {
  fileIs(R"({"MarlTunnelSplitHorizonGroup": "off"})");
  TraceTest::StderrCapture err;
  EXPECT_TRUE(toggleMarlTunnelSplitHorizonGroupEnabled());
  EXPECT_TRUE(toggleMarlTunnelSplitHorizonGroupEnabled());
  err.restore();
  std::string const said = err.text();
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << "read once, so warned once: " << said;
}

TEST_F(SplitHorizonToggleTest, ReadOnceAndCachedUntilReset) {
  EXPECT_TRUE(toggleMarlTunnelSplitHorizonGroupEnabled()) << "on without a file";
  fileIs(R"({"MarlTunnelSplitHorizonGroup": false})");
  EXPECT_TRUE(toggleMarlTunnelSplitHorizonGroupEnabled()) << "later file changes have no effect";
  resetSplitHorizonToggleCacheForTest();
  EXPECT_FALSE(toggleMarlTunnelSplitHorizonGroupEnabled());
  fileIs(R"({"MarlTunnelSplitHorizonGroup": true})");
  EXPECT_FALSE(toggleMarlTunnelSplitHorizonGroupEnabled());
}

TEST_F(SplitHorizonToggleTest, ConcurrentFirstCallsAgree) {
  fileIs(R"({"MarlTunnelSplitHorizonGroup": false})");
  std::vector<int> seen(8, -1);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&seen, i] { seen[i] = toggleMarlTunnelSplitHorizonGroupEnabled(); });
  }
  for (auto& t : threads) {
    t.join();
  }
  EXPECT_EQ(seen, std::vector<int>(8, 0));
}

}  // namespace
