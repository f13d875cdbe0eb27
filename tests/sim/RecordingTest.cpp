// Recordings: what an agent applied, written as JSON Lines (the start-up state, then one op per
// line) and replayed by the runner to the same outputs, also when the agent was killed while
// writing a line.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/Recording.h"
#include "sim/Scenario.h"
#include "sim/ScenarioRunner.h"
#include "tests/sim/SimProcess.h"

namespace Sim::test {
namespace {

// The example as an agent records it: its start-up state on the first line, then its events.
std::string recordingOf(Scenario const& scenario) {
  std::string text = recordingHeaderLine(scenario);
  for (auto const& op : scenario.events) {
    text += recordingOpLine(op);
  }
  return text;
}

void expectSameOp(Op const& back, Op const& op) {
  EXPECT_EQ(describe(back), describe(op));
  EXPECT_EQ(back.kind, op.kind);
  EXPECT_EQ(back.change.kind, op.change.kind);
  EXPECT_EQ(back.change.table, op.change.table);
  EXPECT_EQ(back.change.pw, op.change.pw);
  EXPECT_EQ(back.change.vlan, op.change.vlan);
  EXPECT_EQ(back.change.pwIntfInfo, op.change.pwIntfInfo);
  EXPECT_EQ(back.change.number, op.change.number);
  EXPECT_EQ(back.change.hwFecIndex, op.change.hwFecIndex);
  EXPECT_EQ(back.change.flag, op.change.flag);
  EXPECT_EQ(back.showArgs, op.showArgs);
  EXPECT_EQ(back.comment, op.comment);
}

class RecordedExample : public ::testing::TestWithParam<char const*> {
 protected:
  Scenario example() const {
    return loadScenario(sourceDir() / "examples" / (std::string(GetParam()) + ".json"));
  }
  std::filesystem::path golden() const {
    return sourceDir() / "tests" / "sim" / "golden" / (std::string(GetParam()) + ".json");
  }
};

TEST_P(RecordedExample, ReplaysToTheGoldenState) {
  auto const result = runScenarioText(recordingOf(example()), {"--json"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(parseJson(result.out), parseJson(readFile(golden())));
}

// Cut inside the first op line and inside the last: the state is the one after the line before.
TEST_P(RecordedExample, CutShortReplaysUpToTheLastWholeLine) {
  auto const scenario = example();
  ASSERT_FALSE(scenario.events.empty());
  std::string const full = recordingOf(scenario);
  TempDir dir;
  auto const each =
      runSim(dir, {"run", dir.write("full.jsonl", full).string(), "--json", "--each"}).outLines();
  ASSERT_EQ(each.size(), scenario.events.size() + 1);
  for (std::size_t const kept : {std::size_t{0}, scenario.events.size() - 1}) {
    std::size_t begin = 0;
    for (std::size_t line = 0; line <= kept; ++line) {
      begin = full.find('\n', begin) + 1;
    }
    auto const end = full.find('\n', begin);
    auto const cut = dir.write("cut.jsonl", full.substr(0, begin + (end - begin) / 2));
    auto const result = runSim(dir, {"run", cut.string(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "vpls-decap-sim: " + cut.string() +
                              ": the last line is incomplete (a recording cut short); replaying "
                              "up to line " +
                              std::to_string(kept + 1) + "\n");
    EXPECT_EQ(parseJson(result.out), parseJson(each[kept])["state"]) << "kept " << kept;
  }
}

INSTANTIATE_TEST_SUITE_P(Recording, RecordedExample, kExamples, exampleTestName);

// Every op form, with names holding quotes, control characters and UTF-8 (the examples go
// through the writer in RecordedExample).
TEST(Recording, AwkwardOpsReadBackAsWritten) {
  auto const scenario = parseScenario(R"({"events": [
    {"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire65535",
     "value": {"vplsInstanceName": "v\"\\\n\u00e9", "groupName": "\u4e2d\t", "splitHorizon": true,
               "standby": true, "vlanAware": true, "controlWord": true, "flowLabel": true},
     "comment": "c\n\"d\""},
    {"op": "del", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 4094}},
    {"op": "set", "table": "encapHwFecId", "key": "Pseudowire2",
     "value": {"hwFecId": 4294967295, "globalInLif": 0}},
    {"op": "set", "table": "vxlanDciConfigured", "value": false},
    {"op": "show"},
    {"op": "show", "args": "None \"x\"\n"}]})");
  for (auto const& op : scenario.events) {
    std::string const line = recordingOpLine(op);
    SCOPED_TRACE(line);
    EXPECT_EQ(line.find('\n'), line.size() - 1) << "one line";
    auto const back = parseScenario("{}\n" + line);
    ASSERT_EQ(back.events.size(), 1u);
    expectSameOp(back.events[0], op);
  }
}

TEST(Recording, HeaderKeepsTheStartUpStateAndTheOutputsInTheirOrder) {
  auto const scenario = parseScenario(R"({
    "comment": "found", "cleanSlate": false, "meshGroups": 2,
    "toggles": {"MarlTunnelSplitHorizonGroup": false},
    "before": [{"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 1001}],
    "outputs": {"MPLS_DECAP_CONFIG|1001|10|0": {"name": "", "flag": "false", "hwFecId": "7"},
                "LABEL_TO_PW_INTF|1001": {"value": "Pseudowire1"},
                "VPLS_ADDITIONAL_DATA|v\"\u00e9|g|Pseudowire1|true": {}}})");
  ASSERT_EQ(scenario.outputs.size(), 3u);
  EXPECT_EQ(scenario.outputs[0].key, "MPLS_DECAP_CONFIG|1001|10|0");
  EXPECT_EQ(scenario.outputs[0].fields, (std::vector<std::pair<std::string, std::string>>{
                                            {"name", ""}, {"flag", "false"}, {"hwFecId", "7"}}));

  std::string const header = recordingHeaderLine(scenario);
  EXPECT_EQ(header.find('\n'), header.size() - 1) << header;
  auto const back = parseScenario(header + recordingOpLine(Op{}));
  EXPECT_EQ(back.comment, scenario.comment);
  EXPECT_EQ(back.cleanSlate, scenario.cleanSlate);
  EXPECT_EQ(back.meshGroups, scenario.meshGroups);
  EXPECT_EQ(back.toggles, scenario.toggles);
  ASSERT_EQ(back.before.size(), 1u);
  expectSameOp(back.before[0], scenario.before[0]);
  ASSERT_EQ(back.events.size(), 1u);
  EXPECT_EQ(back.events[0].kind, OpKind::restart);
  ASSERT_EQ(back.outputs.size(), scenario.outputs.size());
  for (std::size_t i = 0; i < back.outputs.size(); ++i) {
    EXPECT_EQ(back.outputs[i].key, scenario.outputs[i].key);
    EXPECT_EQ(back.outputs[i].fields, scenario.outputs[i].fields);
  }
  EXPECT_FALSE(back.truncatedAtLine);
}

struct BadRecording {
  char const* name;
  char const* text;
  char const* message;  // the whole message
};

class RefusedRecording : public ::testing::TestWithParam<BadRecording> {};

TEST_P(RefusedRecording, NamesTheLineAndTheProblem) {
  try {
    parseScenario(GetParam().text);
    FAIL() << "accepted: " << GetParam().text;
  } catch (ScenarioError const& e) {
    EXPECT_EQ(e.what(), std::string(GetParam().message));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Recording, RefusedRecording,
    ::testing::Values(
        BadRecording{"BadOpOnLine3",
                     "{}\n{\"op\": \"restart\"}\n"
                     R"({"op": "set", "table": "decapLabel", "key": "Pw1", "value": 1})"
                     "\n",
                     "line 3: key: \"Pw1\" is not an interface name (expected "
                     "Pseudowire<1..65535>)"},
        BadRecording{"LineNotJson", "{}\n{\"op\": \"restart\"}\nrestart\n{\"op\": \"restart\"}\n",
                     "line 3: invalid JSON: parse error at column 1: syntax error while parsing "
                     "value - invalid literal; last read: 'r'"},
        BadRecording{"LineNotAnObject", "{}\n[{\"op\": \"restart\"}]\n",
                     "line 2: must be an object, not an array"},
        BadRecording{"EventsOnTheFirstLine", "{\"events\": []}\n{\"op\": \"restart\"}\n",
                     "line 1: events: not allowed on the first line of a recording (its events "
                     "are the lines after it)"},
        BadRecording{"OutputsNotAnObject", "{\"outputs\": [\"LABEL_TO_PW_INTF|1\"]}\n{}\n",
                     "line 1: outputs: must be an object of output keys, not an array"},
        BadRecording{"OutputNotAHash", R"({"outputs": {"LABEL_TO_PW_INTF|1": "Pseudowire1"}})",
                     "outputs.LABEL_TO_PW_INTF|1: must be an object of field names to texts, not "
                     "a string"},
        BadRecording{"OutputFieldNotText",
                     R"({"outputs": {"MPLS_DECAP_CONFIG|1001|10|0": {"flag": false}}})",
                     "outputs.MPLS_DECAP_CONFIG|1001|10|0.flag: must be a string, not a boolean "
                     "(false)"},
        // A first line that is not an object: not a recording, the whole text is invalid JSON.
        BadRecording{"NotARecording", "[]\n{\"op\": \"restart\"}\n",
                     "invalid JSON: parse error at line 2, column 1: syntax error while parsing "
                     "value - unexpected '{'; expected end of input"}),
    [](auto const& info) { return std::string(info.param.name); });

constexpr char kFoundOutputs[] = R"({
  "cleanSlate": false,
  "before": [{"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 1001}],
  "outputs": {"VPLS_ENCAP_ADDITIONAL_ID|Pseudowire7": {"value": "5"}}})";

TEST(RecordingRunner, LoadsTheOutputsBetweenTheBeforeOpsAndStartUp) {
  auto const scenario = parseScenario(kFoundOutputs);
  try {
    ScenarioRunner(scenario).start();
    FAIL() << "started without an output loader";
  } catch (std::runtime_error const& e) {
    EXPECT_STREQ(e.what(), "this runner cannot load output state");
  }

  ScenarioRunner::Options options;
  std::vector<std::string> loaded;
  options.outputLoader = [&](Host::AgentHarness& harness, std::vector<Host::StateRow> const& rows) {
    EXPECT_FALSE(harness.running());
    EXPECT_TRUE(harness.hwVplsPwDecapConfig->decapLabelHas(Netcore::IntfId::pseudowire(1)));
    for (auto const& row : rows) {
      loaded.push_back(row.key);
    }
  };
  ScenarioRunner runner(scenario, options);
  runner.start();
  EXPECT_TRUE(runner.harness().running());
  EXPECT_EQ(loaded, std::vector<std::string>{"VPLS_ENCAP_ADDITIONAL_ID|Pseudowire7"});
}

// The runner loads outputs as the agent does: a published additional id survives a start-up
// without clean slate; a row that does not decode is left out and named.
TEST(RecordingRunner, StartsOverTheOutputsFound) {
  std::string text = kFoundOutputs;
  text.insert(text.size() - 2, R"(, "VPLS_ENCAP_ADDITIONAL_ID|Pseudowire8": {"value": "x"})");
  auto const result = runScenarioText(text, {"--json"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(parseJson(result.out)["encapAdditionalId"], parseJson(R"({"Pseudowire7": 5})"));
  EXPECT_TRUE(result.err.starts_with(
      "vpls-decap-sim: output left out: VPLS_ENCAP_ADDITIONAL_ID|Pseudowire8"))
      << result.err;
}

}  // namespace
}  // namespace Sim::test
