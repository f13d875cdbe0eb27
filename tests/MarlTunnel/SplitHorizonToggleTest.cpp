#include <gtest/gtest.h>

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

// What a malformed toggle file gives, and that it is reported, is Cog's (ToggleTest.cpp); here
// the flag's default and that the file is read once.
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
