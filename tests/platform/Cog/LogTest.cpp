#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Cog/Log.h"
#include "Loom/String.h"
#include "Netcore/IntfId.h"
#include "Trace/Flashlog.h"
#include "Trace/FlashlogReader.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace {

Cog::LogHandle const TEST_LOG_TWO_SLOTS{Cog::LogMessage{
    .identifier = "TEST_LOG_TWO_SLOTS",
    .severity = 5,
    .format = "group %s in instance %s is short of %s.",
    .explanation = "An explanation.",
    .recommendedAction = "An action.",
}};

struct Recorded {
  std::string identifier;
  std::vector<std::string> args;
  std::string formatted;
};

class LogTest : public ::testing::Test {
 protected:
  void TearDown() override { Cog::logSinkIsDefault(); }

  void record() {
    Cog::logSinkIs([this](Cog::LogMessage const& m, std::vector<std::string> const& args,
                          std::string const& formatted) {
      recorded_.push_back({std::string(m.identifier), args, formatted});
    });
  }

  std::vector<Recorded> recorded_;
};

TEST_F(LogTest, ReplacedSinkIsTheOnlySinkUntilRestored) {
  record();
  TraceTest::StderrCapture err;
  Cog::log(TEST_LOG_TWO_SLOTS, Loom::String("g2"), Netcore::IntfId::pseudowire(9),
           std::uint16_t{100});
  Cog::LogSink const previous = Cog::logSinkIs({});
  ASSERT_TRUE(previous) << "logSinkIs returns the sink it replaces";
  Cog::log(TEST_LOG_TWO_SLOTS, "a", "b", "c");
  Cog::logSinkIs(previous);
  Cog::log(TEST_LOG_TWO_SLOTS, "d", "e", "f");
  err.restore();
  EXPECT_EQ(err.text(), "TEST_LOG_TWO_SLOTS: group a in instance b is short of c.\n");
  ASSERT_EQ(recorded_.size(), 2u);
  EXPECT_EQ(recorded_[0].identifier, "TEST_LOG_TWO_SLOTS");
  EXPECT_EQ(recorded_[0].args, (std::vector<std::string>{"g2", "Pseudowire9", "100"}));
  EXPECT_EQ(recorded_[0].formatted, "group g2 in instance Pseudowire9 is short of 100.");
  EXPECT_EQ(recorded_[1].formatted, "group d in instance e is short of f.");
}

TEST(LogFormat, SlotsTakeArgumentsInOrder) {
  struct Case {
    char const* format;
    std::vector<std::string> args;
    char const* expected;
  };
  Case const cases[] = {
      {"no slots", {}, "no slots"},
      {"%s", {"x"}, "x"},
      {"%s and %s", {"a", "b"}, "a and b"},
      {"%s and %s", {"a"}, "a and %s"},
      {"%s", {"a", "b"}, "a"},
      {"100%% %s", {"sure"}, "100%% sure"},
      {"%s%s", {"%s", "x"}, "%sx"},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(Cog::formatLogText(c.format, c.args), c.expected) << c.format;
  }
}

TEST(LogRegistry, MessagesAreRegisteredOnceByIdentifier) {
  auto const found = Cog::logMessage("TEST_LOG_TWO_SLOTS");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->severity, 5);
  EXPECT_EQ(found->explanation, "An explanation.");
  EXPECT_FALSE(Cog::logMessage("TEST_LOG_ABSENT").has_value());
  Cog::LogMessage same = *found;
  EXPECT_NO_THROW(Cog::LogHandle{same});
  Cog::LogMessage different = same;
  different.severity = 1;
  EXPECT_THROW(Cog::LogHandle{different}, std::invalid_argument);
  EXPECT_THROW(Cog::LogHandle{Cog::LogMessage{}}, std::invalid_argument);
}

TEST(LogFlashlog, EveryLogIsRecorded) {
  TraceTest::TempDir dir;
  auto const file = dir / "log.flashlog";
  Trace::Flashlog::open(file, {.ringBytes = 4096, .formatTableBytes = 1 << 18});
  Cog::logSinkIs([](auto const&, auto const&, auto const&) {});
  Cog::log(TEST_LOG_TWO_SLOTS, "g", "i", 7);
  Cog::log(TEST_LOG_TWO_SLOTS, "only one");
  Cog::logSinkIsDefault();
  auto const reader = Trace::FlashlogReader::fromFile(file);
  ASSERT_EQ(reader.records().size(), 2u);
  EXPECT_EQ(reader.records()[0].facility, "Log");
  EXPECT_EQ(reader.records()[0].level, 5);
  EXPECT_EQ(reader.records()[0].text, "TEST_LOG_TWO_SLOTS: group g in instance i is short of 7.");
  EXPECT_EQ(reader.records()[1].text,
            "TEST_LOG_TWO_SLOTS: group only one in instance %s is short of %s.");
}

}  // namespace
