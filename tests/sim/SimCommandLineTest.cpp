// The runner's command line: what it accepts, and one clear message for what it does not.

#include <gtest/gtest.h>

#include <set>

#include "sim/CommandLine.h"
#include "tests/sim/SimProcess.h"

namespace Sim::test {
namespace {

TEST(SimCommandLine, ReadsEveryOptionInAnyPlaceAndBothForms) {
  auto const line =
      parseCommandLine({"serve", "--json", "s.json", "--each", "--trace-level", "8",
                        "--trace-file=t.log", "--flashlog", "f.flashlog", "--socket-dir=/tmp/x"});
  EXPECT_EQ(line.mode, CommandLine::Mode::serve);
  EXPECT_EQ(line.scenario, "s.json");
  EXPECT_TRUE(line.json);
  EXPECT_TRUE(line.each);
  EXPECT_EQ(line.traceLevel, 8);
  EXPECT_EQ(line.traceFile, "t.log");
  EXPECT_EQ(line.flashlog, "f.flashlog");
  EXPECT_EQ(line.socketDir, "/tmp/x");

  auto const plain = parseCommandLine({"run", "s.json"});
  EXPECT_EQ(plain.mode, CommandLine::Mode::run);
  EXPECT_FALSE(plain.json || plain.each || plain.traceLevel || plain.socketDir);
  EXPECT_EQ(parseCommandLine({"run", "--help"}).mode, CommandLine::Mode::help);
  EXPECT_EQ(parseCommandLine({"--version"}).mode, CommandLine::Mode::version);
}

struct BadLine {
  char const* name;
  std::vector<std::string> args;
  char const* message;
};

class SimCommandLineRefuses : public ::testing::TestWithParam<BadLine> {};

TEST_P(SimCommandLineRefuses, WithOneMessage) {
  try {
    parseCommandLine(GetParam().args);
    FAIL() << "accepted";
  } catch (Host::UsageError const& e) {
    EXPECT_EQ(e.what(), std::string(GetParam().message));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sim, SimCommandLineRefuses,
    ::testing::Values(
        BadLine{"NoCommand", {}, "missing command (run or serve)"},
        BadLine{"UnknownCommand",
                {"start", "s.json"},
                "unknown command 'start' (expected run or serve)"},
        BadLine{"NoScenario", {"run", "--json"}, "missing scenario file"},
        BadLine{"TwoScenarios",
                {"run", "a.json", "b.json"},
                "more than one scenario file ('a.json' and 'b.json')"},
        BadLine{"UnknownOption", {"run", "s.json", "--jsn"}, "unknown option '--jsn'"},
        BadLine{"LevelTooHigh",
                {"run", "s.json", "--trace-level", "10"},
                "--trace-level: '10' is not a level from 0 to 9"},
        BadLine{"LevelNotANumber",
                {"run", "s.json", "--trace-level=high"},
                "--trace-level: 'high' is not a level from 0 to 9"},
        BadLine{"MissingValue", {"run", "s.json", "--trace-file"}, "--trace-file: missing value"},
        BadLine{"EmptyValue", {"run", "s.json", "--flashlog="}, "--flashlog: empty value"},
        BadLine{"ValueOnAFlag", {"run", "s.json", "--json=yes"}, "--json: takes no value"},
        BadLine{"SocketDirOnRun",
                {"run", "s.json", "--socket-dir", "/tmp"},
                "--socket-dir: only for serve"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(SimCommandLine, UsageErrorsAndAnUnopenableTraceFileExitWith2BeforeAnythingRuns) {
  TempDir dir;
  auto const result = runSim(dir, {"run", "s.json", "--trace-level", "12"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_TRUE(result.err.starts_with(
      "vpls-decap-sim: --trace-level: '12' is not a level from 0 to 9\nusage: vpls-decap-sim run"))
      << result.err;

  auto const help = runSim(dir, {"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(help.out.starts_with("usage: vpls-decap-sim run")) << help.out;

  auto const scenario = dir.write("s.json", "{}");
  auto const trace = runSim(dir, {"run", scenario.string(), "--json", "--trace-file",
                                  (dir.path() / "no-such-dir" / "t.log").string()});
  EXPECT_EQ(trace.exitCode, 2);
  EXPECT_EQ(trace.out, "");
  EXPECT_NE(trace.err.find("no-such-dir/t.log"), std::string::npos) << trace.err;
}

TEST(SimCommandLine, TraceOptionsReachDuallogAndFlashlog) {
  TempDir dir;
  auto const scenario = dir.write(
      "s.json",
      R"({"before": [{"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 5}]})");
  auto const trace = dir.path() / "trace.log";
  auto const flashlog = dir.path() / "run.flashlog";
  auto const result =
      runSim(dir, {"run", scenario.string(), "--json", "--trace-level", "2", "--trace-file",
                   trace.string(), "--flashlog", flashlog.string()});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  auto const lines = readFile(trace);
  EXPECT_NE(lines.find("void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::handleInit()\n"),
            std::string::npos)
      << lines;
  EXPECT_EQ(lines.find(" pwIntfId: "), std::string::npos) << "level 8 traces at level 2";
  EXPECT_GT(std::filesystem::file_size(flashlog), 0u);
}

// `run -` reads the scenario, or a recording, from standard input: the same result as from the
// file, and the messages about it name standard input.
TEST(SimCommandLine, ReadsTheScenarioFromStandardInput) {
  TempDir dir;
  auto const scenario = dir.write(
      "s.json",
      R"({"before": [{"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 5}]})");
  auto const fromFile = runSim(dir, {"run", scenario.string(), "--json"});
  auto const fromInput = runSim(dir, {"run", "-", "--json"}, {.input = scenario});
  ASSERT_EQ(fromInput.exitCode, 0) << fromInput.err;
  EXPECT_EQ(fromInput.out, fromFile.out);

  auto const bad =
      runSim(dir, {"run", "-"}, {.input = dir.write("bad.json", "{\"meshGroups\": 9}")});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_TRUE(bad.err.starts_with("vpls-decap-sim: standard input: meshGroups")) << bad.err;

  auto const cut =
      runSim(dir, {"run", "-"}, {.input = dir.write("cut.jsonl", "{}\n{\"op\": \"restart\"")});
  EXPECT_EQ(cut.exitCode, 0) << cut.err;
  EXPECT_TRUE(cut.err.starts_with("vpls-decap-sim: standard input: the last line is incomplete"))
      << cut.err;
}

// The Flashlog is kept where --flashlog or MARL_FLASHLOG_DIR says; without either nobody asked
// for it and a run leaves no file behind.
TEST(SimCommandLine, KeepsTheFlashlogOnlyWhenAsked) {
  TempDir dir;
  auto const scenario = dir.write("s.json", "{}");
  auto const unasked = runSim(dir, {"run", scenario.string()}, {.input = {}, .flashlogDir = false});
  ASSERT_EQ(unasked.exitCode, 0) << unasked.err;
  std::set<std::string> left;
  for (auto const& entry : std::filesystem::directory_iterator(dir.path())) {
    left.insert(entry.path().filename().string());
  }
  EXPECT_EQ(left, (std::set<std::string>{"s.json", "stderr", "stdout"}));

  ASSERT_EQ(runSim(dir, {"run", scenario.string()}).exitCode, 0);
  EXPECT_GT(std::filesystem::file_size(dir.path() / "flashlog" / "vpls-decap-sim.flashlog"), 0u);
}

}  // namespace
}  // namespace Sim::test
