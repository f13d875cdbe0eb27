#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Bridging/VlanId.h"
#include "Loom/String.h"
#include "Netcore/IntfId.h"
#include "Trace/FlashlogReader.h"
#include "Trace/LevelList.h"
#include "Trace/Trace.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace {

enum class Colour : std::uint8_t { kRed = 1, kBlue = 7 };
enum Signed : int { kMinusTwo = -2 };

struct OnlyText {
  std::string toString() const { return "only-text"; }
};
struct CStrOnly {
  char const* c_str() const { return "c-str"; }
};
struct ValueAndText {  // value() wins: a number is cheaper to record than its text
  std::int32_t value() const { return -12; }
  std::string toString() const { return "twelve"; }
};
struct StrByValue {
  std::string str() const { return "temporary"; }
};
struct WritesItsText {  // replaces what the buffer held before
  void strepInto(std::string& out) const { out = "(written)"; }
};

TEST(TraceArgText, EachKindPrintsItsNaturalForm) {
  char buffer[16] = "buffer";
  char const* const nullText = nullptr;
  EXPECT_EQ(Trace::argText("literal"), "literal");
  EXPECT_EQ(Trace::argText(buffer), "buffer");
  EXPECT_EQ(Trace::argText(std::string("std")), "std");
  EXPECT_EQ(Trace::argText(std::string_view("view")), "view");
  EXPECT_EQ(Trace::argText(static_cast<char const*>("pointer")), "pointer");
  EXPECT_EQ(Trace::argText(nullText), "(null)");
  EXPECT_EQ(Trace::argText(Loom::String("loom")), "loom");
  EXPECT_EQ(Trace::argText(CStrOnly{}), "c-str");
  EXPECT_EQ(Trace::argText(StrByValue{}), "temporary");
  EXPECT_EQ(Trace::argText(std::uint8_t{200}), "200");
  EXPECT_EQ(Trace::argText(std::int8_t{-3}), "-3");
  EXPECT_EQ(Trace::argText('A'), "65");
  EXPECT_EQ(Trace::argText(true), "1");
  EXPECT_EQ(Trace::argText(false), "0");
  EXPECT_EQ(Trace::argText(std::int64_t{INT64_MIN}), "-9223372036854775808");
  EXPECT_EQ(Trace::argText(std::uint64_t{UINT64_MAX}), "18446744073709551615");
  EXPECT_EQ(Trace::argText(Colour::kBlue), "7");
  EXPECT_EQ(Trace::argText(kMinusTwo), "-2");
  EXPECT_EQ(Trace::argText(Bridging::VlanId(4094)), "4094");
  EXPECT_EQ(Trace::argText(ValueAndText{}), "-12");
  EXPECT_EQ(Trace::argText(OnlyText{}), "only-text");
  EXPECT_EQ(Trace::argText(WritesItsText{}), "(written)");
  EXPECT_EQ(Trace::argText(Netcore::IntfId::pseudowire(17)), "Pseudowire17");
  EXPECT_EQ(Trace::argText(Netcore::IntfId()), "");
  static_assert(Trace::kArgKind<Netcore::IntfId const&> == Trace::ArgKind::kIntfId);
  static_assert(Trace::kArgKind<char const(&)[4]> == Trace::ArgKind::kFragment);
  static_assert(Trace::kArgKind<char(&)[4]> == Trace::ArgKind::kText);
}

class DuallogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Trace::Flashlog::open(dir_ / "duallog.flashlog",
                          {.ringBytes = 1 << 16, .formatTableBytes = 1 << 18});
    Trace::Duallog::outputFileIs(out_);
  }
  void TearDown() override {
    Trace::Duallog::outputIsStderr();
    Trace::Duallog::levelDel("DuallogTest");
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> result;
    std::string const text = TraceTest::readFile(out_);
    std::size_t start = 0;
    for (auto nl = text.find('\n'); nl != std::string::npos; nl = text.find('\n', start)) {
      result.push_back(text.substr(start, nl - start));
      start = nl + 1;
    }
    EXPECT_EQ(start, text.size()) << "output ends inside a line";
    return result;
  }

  TraceTest::TempDir dir_;
  std::filesystem::path out_ = dir_ / "trace.txt";
  Trace::Facility& fac_ = Trace::facility("DuallogTest");
};

// One trace at each level; TRACE takes its level as a constant.
template <int... kLevels>
void traceLevels(Trace::Facility& fac, int tag, std::integer_sequence<int, kLevels...>) {
  ([&] { TRACE(fac, kLevels, "level ", kLevels, " #", tag); }(), ...);
}
void traceAllLevels(Trace::Facility& fac, int tag) {
  traceLevels(fac, tag, std::make_integer_sequence<int, 10>{});
}

TEST_F(DuallogTest, OnlyEnabledLevelsBecomeLines) {
  traceAllLevels(fac_, 1);
  Trace::Duallog::levelIs("DuallogTest", 2);
  traceAllLevels(fac_, 2);
  Trace::Duallog::levelIs("DuallogTest", 9);
  traceAllLevels(fac_, 3);
  Trace::Duallog::levelIs("DuallogTest", 0);
  traceAllLevels(fac_, 4);
  Trace::Duallog::levelDel("DuallogTest");
  traceAllLevels(fac_, 5);
  std::vector<std::string> expected{"level 0 #2", "level 1 #2", "level 2 #2"};
  for (int level = 0; level <= 9; ++level) {
    expected.push_back("level " + std::to_string(level) + " #3");
  }
  expected.push_back("level 0 #4");
  EXPECT_EQ(lines(), expected);
  // The Flashlog has every trace, enabled or not.
  auto const reader = Trace::FlashlogReader::fromFile(dir_ / "duallog.flashlog");
  EXPECT_EQ(reader.records().size(), 50u);
}

TEST_F(DuallogTest, OneLinePerTraceWithNothingBetweenFragments) {
  Trace::Duallog::levelIs("DuallogTest", 8);
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVlanTagInfo(Netcore::IntfId, "
      "Bridging::VlanId)";
  Netcore::IntfId const pw = Netcore::IntfId::pseudowire(5);
  std::string const multi = "two\nlines";
  TRACE(fac_, 8, kSig, " pwIntfId: ", pw, " vlanId: ", Bridging::VlanId(10));
  TRACE(fac_, 8, "a", "b", std::string("c"), 1, true, Colour::kRed, "");
  TRACE(fac_, 8, "text ", multi);
  std::string const expected0 = std::string(kSig) + " pwIntfId: Pseudowire5 vlanId: 10";
  auto const got = lines();
  ASSERT_EQ(got.size(), 4u);
  EXPECT_EQ(got[0], expected0);
  EXPECT_EQ(got[1], "abc111");
  EXPECT_EQ(got[2] + "\n" + got[3], "text two\nlines");
  // The decoder joins the same pieces the same way.
  auto const reader = Trace::FlashlogReader::fromFile(dir_ / "duallog.flashlog");
  ASSERT_EQ(reader.records().size(), 3u);
  EXPECT_EQ(reader.records()[0].text, expected0);
  EXPECT_EQ(reader.records()[1].text, "abc111");
}

TEST_F(DuallogTest, ArgumentsAreEvaluatedOnce) {
  int calls = 0;
  auto next = [&calls] { return ++calls; };
  TRACE(fac_, 9, "call ", next());
  Trace::Duallog::levelIs("DuallogTest", 9);
  TRACE(fac_, 9, "call ", next());
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(lines(), std::vector<std::string>{"call 2"});
}

TEST(DuallogLevels, ApiValidatesLevelsAndNames) {
  Trace::Duallog::levelIs("LevelsTest", 5);
  EXPECT_EQ(Trace::Duallog::level("LevelsTest"), 5);
  EXPECT_TRUE(Trace::facility("LevelsTest").enabled(5));
  EXPECT_FALSE(Trace::facility("LevelsTest").enabled(6));
  EXPECT_THROW(Trace::Duallog::levelIs("LevelsTest", 10), std::out_of_range);
  EXPECT_THROW(Trace::Duallog::levelIs("LevelsTest", -2), std::out_of_range);
  EXPECT_EQ(Trace::Duallog::level("LevelsTest"), 5);
  EXPECT_THROW(Trace::Duallog::levelIs("bad name", 1), std::invalid_argument);
  EXPECT_THROW(Trace::Duallog::levelsIs("LevelsTest/1,Other/x"), std::invalid_argument);
  EXPECT_EQ(Trace::Duallog::level("LevelsTest"), 5) << "a refused list applies nothing";
  Trace::Duallog::levelsIs("LevelsTest/1, LevelsOther");
  EXPECT_EQ(Trace::Duallog::level("LevelsTest"), 1);
  EXPECT_EQ(Trace::Duallog::level("LevelsOther"), 9);
  Trace::Duallog::levelDel("LevelsTest");
  EXPECT_EQ(Trace::Duallog::level("LevelsTest"), Trace::kNoLevel);
  EXPECT_EQ(&Trace::facility("LevelsTest"), &Trace::facility("LevelsTest"));
}

TEST(DuallogLevels, OutputFileThatCannotBeOpenedIsRefused) {
  try {
    Trace::Duallog::outputFileIs("/nonexistent-dir/trace.txt");
    FAIL() << "accepted";
  } catch (std::system_error const& e) {
    EXPECT_NE(std::string(e.what()).find("/nonexistent-dir/trace.txt"), std::string::npos);
  }
}

TEST(LevelList, ParsesListsAndNamesBadEntries) {
  struct Case {
    char const* text;
    std::vector<Trace::LevelSetting> settings;
    std::vector<std::string> problems;
  };
  Case const cases[] = {
      {"", {}, {}},
      {"MarlTunnel/8", {{"MarlTunnel", 8}}, {}},
      {"MarlTunnel/8,Other/2", {{"MarlTunnel", 8}, {"Other", 2}}, {}},
      {" MarlTunnel , ,Orb/0 ", {{"MarlTunnel", 9}, {"Orb", 0}}, {}},
      {"MarlTunnel/10", {}, {"'MarlTunnel/10': level must be one digit 0..9"}},
      {"A/x,B/3", {{"B", 3}}, {"'A/x': level must be one digit 0..9"}},
      {"/3", {}, {"'/3': facility name must be letters, digits, _ - . :"}},
      {"Bad name/3", {}, {"'Bad name/3': facility name must be letters, digits, _ - . :"}},
      {"A/", {}, {"'A/': level must be one digit 0..9"}},
  };
  for (Case const& c : cases) {
    auto const list = Trace::parseLevelList(c.text);
    EXPECT_EQ(list.settings, c.settings) << c.text;
    EXPECT_EQ(list.problems, c.problems) << c.text;
  }
}

TEST(DuallogLevels, EnvironmentSetsLevelsOfNewFacilities) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TraceTest::ScopedEnv env(Trace::Duallog::kLevelsEnv, "EnvFacility/4,Broken/x");
  // A fresh process reads MARL_TRACE when it creates its first facility.
  EXPECT_EXIT(
      {
        bool const ok = Trace::facility("EnvFacility").maxLevel() == 4 &&
                        Trace::facility("EnvOther").maxLevel() == Trace::kNoLevel;
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "MARL_TRACE: ignoring 'Broken/x'");
}

}  // namespace
