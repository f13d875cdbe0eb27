// The runner drives the library through the real input entities and reports each step; the
// text report tells what each pseudowire is waiting for.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "host/PseudowireStatus.h"
#include "sim/Scenario.h"
#include "sim/ScenarioRunner.h"
#include "sim/StateJson.h"
#include "sim/TextReport.h"
#include "tests/sim/SimProcess.h"

namespace Sim::test {
namespace {

// A pseudowire with every input, in the order configuration, label, tag, FEC id.
std::string fullPw(int n, std::string const& value, int vlan = 10) {
  std::string const pw = "\"Pseudowire" + std::to_string(n) + "\"";
  return R"({"op": "set", "table": "vplsPwIntfInfo", "key": )" + pw + R"(, "value": )" + value +
         R"(}, {"op": "set", "table": "decapLabel", "key": )" + pw + R"(, "value": )" +
         std::to_string(1000 + n) + R"(}, {"op": "set", "table": "vlanTagInfo", "key": {"pw": )" +
         pw + R"(, "vlan": )" + std::to_string(vlan) + R"(}, "value": 7)" +
         R"(}, {"op": "set", "table": "encapHwFecId", "key": )" + pw +
         R"(, "value": {"hwFecId": 100, "globalInLif": 200}})";
}

std::vector<StepReport> runAll(ScenarioRunner& runner) {
  std::vector<StepReport> steps;
  runner.run([&](StepReport const& step) { steps.push_back(step); });
  return steps;
}

struct StatusCase {
  char const* name;
  std::string scenario;
  int pw;
  char const* status;
};

class PseudowireStatus : public ::testing::TestWithParam<StatusCase> {};

TEST_P(PseudowireStatus, SaysWhatItIsWaitingFor) {
  ScenarioRunner runner(parseScenario(GetParam().scenario));
  auto const steps = runAll(runner);
  ASSERT_FALSE(steps.back().error) << *steps.back().error;
  EXPECT_EQ(
      Host::pseudowireStatus(runner.harness(), Netcore::IntfId::pseudowire(GetParam().pw)).words,
      GetParam().status);
}

std::string events(std::string const& ops, std::string const& extra = "") {
  return "{" + extra + R"("events": [)" + ops + "]}";
}

constexpr char kSpoke[] = R"({"vplsInstanceName": "v"})";
constexpr char kGroup[] = R"({"vplsInstanceName": "v", "groupName": "g", "splitHorizon": true})";

INSTANTIATE_TEST_SUITE_P(
    Sim, PseudowireStatus,
    ::testing::Values(
        StatusCase{"Programmed", events(fullPw(1, kGroup)), 1, "programmed"},
        StatusCase{
            "WaitingForConfiguration",
            events(R"({"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 5})"), 1,
            "waiting for configuration"},
        StatusCase{"WaitingForLabel",
                   events(fullPw(1, kSpoke) +
                          R"(, {"op": "del", "table": "decapLabel", "key": "Pseudowire1"})"),
                   1, "waiting for label"},
        StatusCase{
            "WaitingForTagAndFec",
            events(
                R"({"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1", "value": {"vplsInstanceName": "v"}},
                             {"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 5})"),
            1, "waiting for VLAN tag info, encap FEC id"},
        StatusCase{
            "FecBeforeInstance",
            events(
                R"({"op": "set", "table": "encapHwFecId", "key": "Pseudowire1", "value": {"hwFecId": 1, "globalInLif": 2}},)" +
                fullPw(1, kSpoke).substr(0, fullPw(1, kSpoke).rfind(", {"))),
            1, "FEC id arrived before instance (re-publish it)"},
        StatusCase{
            "StandbyWithLabel",
            events(
                R"({"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1", "value": {"vplsInstanceName": "v", "standby": true}},
                             {"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 5})"),
            1, "standby"},
        StatusCase{
            "StandbyWithoutLabel",
            events(
                R"({"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1", "value": {"vplsInstanceName": "v", "standby": true}})"),
            1, "standby, waiting for label"},
        StatusCase{
            "AllocationFailed",
            events(
                fullPw(1, kGroup) + "," +
                    fullPw(2,
                           R"({"vplsInstanceName": "v", "groupName": "h", "splitHorizon": true})"),
                R"("meshGroups": 1, )"),
            2, "orientation allocation failed"},
        StatusCase{"RefusedUnderDci",
                   events(R"({"op": "set", "table": "vxlanDciConfigured", "value": true},)" +
                          fullPw(1, kSpoke)),
                   1, "no split-horizon group under VXLAN DCI"},
        StatusCase{
            "RefusedUnderVxlan",
            events(
                R"({"op": "set", "table": "vxlanPresent", "value": true},)" +
                fullPw(1, R"({"vplsInstanceName": "v", "groupName": "g1", "splitHorizon": true})") +
                "," +
                fullPw(2, R"({"vplsInstanceName": "v", "groupName": "g2", "splitHorizon": true})") +
                "," +
                fullPw(3, R"({"vplsInstanceName": "v", "groupName": "g3", "splitHorizon": true})")),
            3, "split-horizon group refused under VXLAN"},
        StatusCase{
            "SlotsAllowedUnderVxlan",
            events(R"({"op": "set", "table": "vxlanPresent", "value": true},)" + fullPw(1, kGroup)),
            1, "programmed"}),
    [](auto const& info) { return std::string(info.param.name); });

// A standby pseudowire with a label turned active keeps its standby entry; deleting its
// configuration then removes that entry as a VLAN entry of VLAN 0, and the VLAN id's range check
// raises. The runner reports the error in the step, and runs nothing after it.
constexpr char kRaisingScenario[] = R"({"events": [
  {"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1",
   "value": {"vplsInstanceName": "v", "standby": true}},
  {"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 100},
  {"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1", "value": {"vplsInstanceName": "v"}},
  {"op": "del", "table": "vplsPwIntfInfo", "key": "Pseudowire1"},
  {"op": "set", "table": "decapLabel", "key": "Pseudowire2", "value": 200}]})";

constexpr char kRangeError[] = "Bridging::VlanId::value < 1 or > 4094 not allowed";

TEST(ScenarioRunner, ReportsALibraryExceptionInItsStepAndStops) {
  ScenarioRunner runner(parseScenario(kRaisingScenario));
  auto const steps = runAll(runner);
  ASSERT_EQ(steps.size(), 5u);  // start-up and events 0 to 3
  for (std::size_t i = 0; i + 1 < steps.size(); ++i) {
    EXPECT_EQ(steps[i].event, static_cast<int>(i) - 1);
    EXPECT_FALSE(steps[i].error);
  }
  EXPECT_EQ(steps.back().event, 3);
  EXPECT_EQ(steps.back().error, kRangeError);
  EXPECT_FALSE(runner.harness().hwVplsPwDecapConfig->decapLabelHas(Netcore::IntfId::pseudowire(2)));
}

TEST(ScenarioRunner, AnExceptionEndsTheRunWithExitCode1AndAnErrorOnTheLastLine) {
  auto const result = runScenarioText(kRaisingScenario, {"--json", "--each"});
  EXPECT_EQ(result.exitCode, 1);
  auto const lines = result.outLines();
  ASSERT_EQ(lines.size(), 5u);  // the steps themselves: ReportsALibraryExceptionInItsStepAndStops
  auto const last = parseJson(lines.back());
  EXPECT_EQ(last["error"], kRangeError);
  EXPECT_EQ(result.err, std::string("vpls-decap-sim: event 3 (del vplsPwIntfInfo Pseudowire1) "
                                    "raised: ") +
                            kRangeError + "\n");

  auto const final = runScenarioText(kRaisingScenario, {"--json"});
  EXPECT_EQ(final.exitCode, 1);
  EXPECT_EQ(parseJson(final.out), last["state"]);
}

// A standby pseudowire whose change to active is refused under VXLAN DCI keeps its standby
// record; a VLAN arriving then programs an active entry without FEC id, which the state machine
// asserts against. The assertion aborts the runner as it aborts the agent, after the lines of
// the steps before it, and leaves the Flashlog of the run, which nobody had asked to keep, in
// its private directory, saying where.
TEST(ScenarioRunner, AnAssertionAbortsTheProcessWithTheConditionOnStderr) {
  TempDir dir;
  auto const scenario = dir.write("s.json", R"({"events": [
    {"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1",
     "value": {"vplsInstanceName": "v", "standby": true}},
    {"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 100},
    {"op": "set", "table": "vxlanDciConfigured", "value": true},
    {"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1", "value": {"vplsInstanceName": "v"}},
    {"op": "set", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 10}, "value": 10}]})");
  auto const result = runSim(dir, {"run", scenario.string(), "--json", "--each"},
                             {.input = {}, .flashlogDir = false});
  EXPECT_EQ(result.signal, SIGABRT);
  EXPECT_EQ(result.outLines().size(), 5u);  // start-up and events 0 to 3, flushed
  EXPECT_NE(result.err.find("assertion \"hwVplsPwDecapConfig()->decapLabelHas( pwIntfId ) and ( "
                            "standby or ( hwVplsPwDecapConfig()->vlanTagInfoHas("),
            std::string::npos)
      << result.err;
  EXPECT_NE(result.err.find("failed in MarlTunnel/MarlVplsPwIntfDecapSm: void "
                            "Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::"
                            "populateMplsDecapConfigHelper(Netcore::IntfId, "
                            "Bridging::VlanIdOrNone)\n"),
            std::string::npos)
      << result.err;
  auto const kept = std::string("vpls-decap-sim: the flashlog of this run is kept: ");
  auto const at = result.err.find(kept);
  ASSERT_NE(at, std::string::npos) << result.err;
  auto const end = result.err.find('\n', at);
  std::filesystem::path const flashlog =
      result.err.substr(at + kept.size(), end - at - kept.size());
  EXPECT_EQ(flashlog.parent_path().parent_path(), dir.path());
  EXPECT_GT(std::filesystem::file_size(flashlog), 0u);
}

TEST(ScenarioRunner, WritesTheTogglesAsTheToggleFileTheAgentReads) {
  // With the toggle off, groups are instance-wide: the request carries the instance name.
  ScenarioRunner runner(parseScenario(
      events(fullPw(1, kGroup), R"("toggles": {"MarlTunnelSplitHorizonGroup": false}, )")));
  EXPECT_EQ(readFile(runner.toggleDir() / "MarlTunnel.json"),
            "{\n  \"MarlTunnelSplitHorizonGroup\": false\n}\n");
  runAll(runner);
  auto const requests = stateJson(runner.harness(), runner.logs())["lpoRequest"];
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0]["instanceName"], "v");
  EXPECT_EQ(requests[0]["vlan"], 0);

  ScenarioRunner defaults(parseScenario(events(fullPw(1, kGroup))));
  EXPECT_FALSE(std::filesystem::exists(defaults.toggleDir() / "MarlTunnel.json"));
  runAll(defaults);
  auto const perVlan = stateJson(defaults.harness(), defaults.logs())["lpoRequest"];
  ASSERT_EQ(perVlan.size(), 1u);
  EXPECT_EQ(perVlan[0]["instanceName"], "");
  EXPECT_EQ(perVlan[0]["vlan"], 10);
}

}  // namespace
}  // namespace Sim::test
