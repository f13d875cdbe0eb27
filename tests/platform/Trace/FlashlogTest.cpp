#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Loom/Threading.h"
#include "Netcore/IntfId.h"
#include "Trace/FlashlogLayout.h"
#include "Trace/FlashlogReader.h"
#include "Trace/Trace.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace {

using Trace::FlashlogReader;

Trace::Facility& fac() {
  return Trace::facility("FlashlogTest");
}

Trace::FlashlogOptions const kSmall{
    .ringBytes = 4096, .formatTableBytes = 256 * 1024, .clock = Trace::FlashlogClock::kCoarse};

std::vector<std::string> texts(FlashlogReader const& reader) {
  std::vector<std::string> out;
  for (auto const& r : reader.records()) {
    out.push_back(r.text);
  }
  return out;
}

class FlashlogTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(Trace::Flashlog::open(file_, options_)); }
  FlashlogReader read() const { return FlashlogReader::fromFile(file_); }

  TraceTest::TempDir dir_;
  std::filesystem::path file_ = dir_ / "agent.flashlog";
  Trace::FlashlogOptions options_ = kSmall;
};

TEST_F(FlashlogTest, DecodesMessagesWithFacilityLevelAndTime) {
  auto const before = Trace::Clock::realtimeNs();
  TRACE(fac(), 4, "handleInit pwIntfId: ", Netcore::IntfId::pseudowire(5), " vlanId: ", 100);
  auto const after = Trace::Clock::realtimeNs();
  auto const reader = read();
  ASSERT_EQ(reader.records().size(), 1u);
  auto const& r = reader.records()[0];
  EXPECT_EQ(r.text, "handleInit pwIntfId: Pseudowire5 vlanId: 100");
  EXPECT_EQ(r.facility, "FlashlogTest");
  EXPECT_EQ(r.level, 4);
  // Coarse stamps lag the precise clock by up to one kernel tick.
  EXPECT_GE(r.timeNs, before - 20'000'000);
  EXPECT_LE(r.timeNs, after);
  EXPECT_EQ(reader.agent(), "agent");
  EXPECT_EQ(reader.pid(), static_cast<std::uint64_t>(::getpid()));
  EXPECT_EQ(FlashlogReader::line(r).substr(27), " FlashlogTest/4 " + r.text);
}

TEST_F(FlashlogTest, CycleStampsConvertToWallClockTime) {
  options_.clock = Trace::FlashlogClock::kCycles;
  ASSERT_TRUE(Trace::Flashlog::open(file_, options_));
  auto const before = Trace::Clock::realtimeNs();
  for (int i = 0; i < 300; ++i) {  // several laps, so anchors are in the ring too
    TRACE(fac(), 1, "tick ", i);
  }
  auto const after = Trace::Clock::realtimeNs();
  auto const reader = read();
  ASSERT_FALSE(reader.records().empty());
  EXPECT_EQ(reader.records().back().text, "tick 299");
  for (auto const& r : reader.records()) {
    EXPECT_GE(r.timeNs, before - 1'000'000);
    EXPECT_LE(r.timeNs, after + 1'000'000);
  }
}

TEST_F(FlashlogTest, WrapKeepsTheNewestRecordsInOrderAndSkipsTheTornOne) {
  // Text lengths 0..69 make records of 4 to 12 words, so the oldest record is cut at an
  // arbitrary word by the wrap; the decoder must resynchronise on the next whole record and
  // lose no more than that one.
  std::string const alphabet(80, 'x');
  for (int i = 0; i < 500; ++i) {
    TRACE(fac(), 9, "#", i, " ", alphabet.substr(0, static_cast<std::size_t>(i % 70)));
  }
  auto const reader = read();
  auto const got = texts(reader);
  ASSERT_GT(got.size(), 40u);
  int const first = 500 - static_cast<int>(got.size());
  for (std::size_t k = 0; k < got.size(); ++k) {
    int const i = first + static_cast<int>(k);
    std::size_t const kept = std::min<std::size_t>(static_cast<std::size_t>(i % 70), 64);
    EXPECT_EQ(got[k], "#" + std::to_string(i) + " " + std::string(kept, 'x'));
  }
  EXPECT_LT(reader.skippedWords(), 12u);
}

TEST_F(FlashlogTest, TextArgumentsAreCopiedPerRecordAndCutAtTheBound) {
  std::string const longText(100, 'a');
  char buffer[8] = "-uf";  // writable: its text is an argument, not part of the format
  for (char c : {'b', 'c'}) {
    buffer[0] = c;
    TRACE(fac(), 0, "[", longText, "][", buffer, "][", std::string_view(""), "]");
  }
  std::string const cut(64, 'a');
  EXPECT_EQ(texts(read()),
            (std::vector<std::string>{"[" + cut + "][buf][]", "[" + cut + "][cuf][]"}));
}

constexpr char kLongSig[] =
    "bool Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::addVplsPwIntfVlanDomain(Netcore::IntfId, "
    "U16)";
constexpr char kShortSig[] = "void f()";
static_assert(sizeof kLongSig - 1 > Trace::kMaxTextBytes);

// A helper tracing on behalf of its caller.
void failedFor(Trace::StaticText caller, int n) {
  TRACE(fac(), 1, caller, " failed ", n);
}

TEST_F(FlashlogTest, StaticTextsAreKeptWholeAlsoInFilesOpenedAfterTheirRegistration) {
  failedFor(Trace::staticText<kLongSig>(), 1);
  ASSERT_TRUE(Trace::Flashlog::open(file_, options_));
  failedFor(Trace::staticText<kLongSig>(), 2);
  failedFor(Trace::staticText<kShortSig>(), 3);
  std::string const sig = kLongSig;
  EXPECT_EQ(texts(read()), (std::vector<std::string>{sig + " failed 2", "void f() failed 3"}));
  EXPECT_EQ(texts(FlashlogReader::fromFile(file_.string() + ".1")),
            std::vector<std::string>{sig + " failed 1"});
  EXPECT_EQ(Trace::argText(Trace::staticText<kLongSig>()), sig);
}

TEST_F(FlashlogTest, ConcurrentWritersLoseNoRecord) {
  options_.ringBytes = 1 << 20;
  ASSERT_TRUE(Trace::Flashlog::open(file_, options_));
  Loom::Threading::multiThreadedIs(true);
  auto writer = [](int thread) {
    for (int i = 0; i < 5000; ++i) {
      TRACE(fac(), 9, "t", thread, " i", i);
    }
  };
  std::thread a(writer, 1);
  std::thread b(writer, 2);
  a.join();
  b.join();
  Loom::Threading::multiThreadedIs(false);
  auto const reader = read();
  EXPECT_EQ(reader.records().size(), 10000u);
  EXPECT_EQ(reader.skippedWords(), 0u);
  int next[3] = {0, 0, 0};
  for (auto const& text : texts(reader)) {
    int const thread = text[1] - '0';
    ASSERT_TRUE(thread == 1 || thread == 2) << text;
    EXPECT_EQ(text, "t" + std::to_string(thread) + " i" + std::to_string(next[thread]++));
  }
}

TEST_F(FlashlogTest, ReopeningKeepsThePreviousFileAsDotOne) {
  TRACE(fac(), 0, "first run");
  ASSERT_TRUE(Trace::Flashlog::open(file_, options_));
  TRACE(fac(), 0, "second run");
  EXPECT_EQ(texts(read()), std::vector<std::string>{"second run"});
  auto const previous = FlashlogReader::fromFile(file_.string() + ".1");
  EXPECT_EQ(texts(previous), std::vector<std::string>{"first run"});
  EXPECT_EQ(Trace::Flashlog::path(), file_);
}

TEST_F(FlashlogTest, UnusableDirectoryFallsBackToMemoryAndSaysSo) {
  TraceTest::writeFile(dir_ / "plain", "not a directory");
  auto const bad = dir_ / "plain" / "agent.flashlog";
  TraceTest::StderrCapture err;
  EXPECT_FALSE(Trace::Flashlog::open(bad, kSmall));
  TRACE(fac(), 0, "into memory");
  err.restore();
  EXPECT_TRUE(Trace::Flashlog::path().empty());
  std::string const text = err.text();
  EXPECT_NE(text.find(bad.parent_path().string()), std::string::npos) << text;
  EXPECT_NE(text.find("recording to memory only"), std::string::npos) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
}

TEST_F(FlashlogTest, DefaultPathComesFromTheEnvironment) {
  {
    TraceTest::ScopedEnv env(Trace::Flashlog::kDirEnv, dir_.path().string());
    EXPECT_EQ(Trace::Flashlog::defaultPath("MarlTunnel"), dir_ / "MarlTunnel.flashlog");
  }
  {
    TraceTest::ScopedEnv env(Trace::Flashlog::kDirEnv, std::nullopt);
    EXPECT_EQ(Trace::Flashlog::defaultPath("x"), "/tmp/flashlog/x.flashlog");
  }
  EXPECT_THROW(Trace::Flashlog::defaultPath("a/b"), std::invalid_argument);
  EXPECT_THROW(Trace::Flashlog::defaultPath(""), std::invalid_argument);
  EXPECT_THROW(Trace::Flashlog::open(file_, {.ringBytes = 5000}), std::invalid_argument);
  EXPECT_THROW(Trace::Flashlog::open(file_, {.ringBytes = 4096, .formatTableBytes = 100}),
               std::invalid_argument);
}

TEST_F(FlashlogTest, FileOfAnAbortedProcessDecodes) {
  auto const crashed = dir_ / "crashed.flashlog";
  EXPECT_EXIT(
      {
        Trace::Flashlog::open(crashed, kSmall);
        TRACE(fac(), 2, "before the crash ", 41);
        TRACE(fac(), 2, "last words ", std::string("bye"));
        std::abort();
      },
      ::testing::KilledBySignal(SIGABRT), "");
  auto const reader = FlashlogReader::fromFile(crashed);
  EXPECT_EQ(texts(reader), (std::vector<std::string>{"before the crash 41", "last words bye"}));
  EXPECT_NE(reader.pid(), static_cast<std::uint64_t>(::getpid()));
}

template <class T>
void poke(std::string& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

template <class T>
std::string poked(std::string bytes, std::size_t at, T value) {
  poke(bytes, at, value);
  return bytes;
}

TEST_F(FlashlogTest, BrokenFilesAreRefusedWithTheReason) {
  TRACE(fac(), 0, "some ", 1, " record");
  std::string const good = TraceTest::readFile(file_);
  ASSERT_NO_THROW(FlashlogReader(good, "good"));
  // The first format entry's first element kind sits after 16 fixed bytes and the facility.
  std::uint16_t facilityBytes;
  std::memcpy(&facilityBytes, good.data() + Trace::layout::kHeaderBytes + 10, 2);
  struct Case {
    char const* what;
    std::string bytes;
    char const* error;
  };
  Case const cases[] = {
      {"empty", "", "x: not a flashlog file"},
      {"text", "hello, world\n", "x: not a flashlog file"},
      {"header cut", good.substr(0, 100), "x: truncated: 100 bytes"},
      {"ring cut", good.substr(0, good.size() - 8), "x: truncated: the header describes"},
      {"trailing bytes", good + "x", "more than the"},
      {"version", poked<std::uint32_t>(good, 8, 7), "flashlog version 7"},
      {"ring size", poked<std::uint64_t>(good, offsetof(Trace::layout::FileHeader, ringWords), 3),
       "corrupt header: its table and ring sizes"},
      {"table use",
       poked<std::uint64_t>(good, offsetof(Trace::layout::FileHeader, formatUsed), 1u << 30),
       "corrupt header: format table use"},
      {"table entry", poked<std::uint32_t>(good, Trace::layout::kHeaderBytes, 3),
       "corrupt format table entry at byte 4096: entry size 3"},
      {"element kind", poked<char>(good, Trace::layout::kHeaderBytes + 16 + facilityBytes, 42),
       "has unknown kind 42"},
      {"entry type", poked<char>(good, Trace::layout::kHeaderBytes + 9, 5),
       "entry has unknown type 5"},
  };
  for (Case const& c : cases) {
    try {
      FlashlogReader(c.bytes, "x");
      ADD_FAILURE() << c.what << ": accepted";
    } catch (Trace::FlashlogError const& e) {
      EXPECT_NE(std::string(e.what()).find(c.error), std::string::npos)
          << c.what << ": " << e.what();
    }
  }
}

TEST_F(FlashlogTest, GarbageInTheRingIsSkippedNotTrusted) {
  for (int i = 0; i < 50; ++i) {
    TRACE(fac(), 0, "ok ", i);
  }
  std::string bytes = TraceTest::readFile(file_);
  Trace::layout::FileHeader h;
  std::memcpy(&h, bytes.data(), sizeof h);
  // Overwrite every third word with values that look like record headers of all sizes.
  std::uint64_t seed = 88172645463325252u;
  for (std::uint64_t w = 0; w < h.ringWords; w += 3) {
    seed ^= seed << 13;
    seed ^= seed >> 7;
    seed ^= seed << 17;
    std::uint64_t const fake = (seed & ~(std::uint64_t{0xf} << 60)) | (std::uint64_t{0xa} << 60);
    poke(bytes, h.ringOffset + w * 8, fake);
  }
  FlashlogReader const reader(bytes, "garbled");
  EXPECT_GT(reader.skippedWords(), 0u);
  for (auto const& text : texts(reader)) {
    EXPECT_EQ(text.rfind("ok ", 0), 0u) << text;
  }
}

}  // namespace
