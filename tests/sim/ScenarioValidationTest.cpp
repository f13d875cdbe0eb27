// Scenario files are validated as a whole before anything runs; a bad one gets one message that
// names where (the event index or before[i], then the field) and what is wrong.

#include <gtest/gtest.h>

#include <string>

#include "sim/Scenario.h"
#include "tests/sim/SimProcess.h"

namespace Sim::test {
namespace {

struct BadScenario {
  char const* name;
  char const* text;
  char const* message;  // the whole message
};

// An event list around one op.
std::string withEvent(std::string const& op) {
  return R"({"events": [{"op": "restart"}, )" + op + "]}";
}

class RefusedScenario : public ::testing::TestWithParam<BadScenario> {};

TEST_P(RefusedScenario, NamesWhereAndWhat) {
  auto const& bad = GetParam();
  std::string const text = std::string(bad.text).starts_with("EVENT:")
                               ? withEvent(std::string(bad.text).substr(6))
                               : std::string(bad.text);
  try {
    parseScenario(text);
    FAIL() << "accepted: " << text;
  } catch (ScenarioError const& e) {
    EXPECT_EQ(e.what(), std::string(bad.message));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Scenario, RefusedScenario,
    ::testing::Values(
        BadScenario{"BadJson", "{\"events\": [}",
                    "invalid JSON: parse error at line 1, column 13: syntax error while parsing "
                    "value - unexpected '}'; expected '[', '{', or a literal"},
        BadScenario{"NumberTooLarge", R"({"meshGroups": 1e9044})",
                    "invalid JSON: number overflow parsing '1e9044'"},
        BadScenario{"DuplicateKey", R"({"meshGroups": 2, "meshGroups": 3})",
                    "invalid scenario: the key \"meshGroups\" appears twice in one object"},
        BadScenario{"UnknownTopLevelKey", R"({"evnts": []})",
                    "unknown top-level key \"evnts\" (allowed: comment, cleanSlate, toggles, "
                    "meshGroups, chipRows, before, events, outputs)"},
        // Names from the file keep the message on one line.
        BadScenario{"UnknownKeyWithNewline", R"({"a\nb\u0001\"": 1})",
                    "unknown top-level key \"a\\nb\\u0001\\\"\" (allowed: comment, cleanSlate, "
                    "toggles, meshGroups, chipRows, before, events, outputs)"},
        BadScenario{"UnknownOpFieldWithTab", R"(EVENT:{"op": "restart", "x\ty": 1})",
                    "events[1].x\\ty: unknown field in a restart op (allowed: op, comment)"},
        BadScenario{"UnknownOpWithNewline", R"(EVENT:{"op": "set\n"})",
                    "events[1].op: unknown op \"set\\n\" (expected set, del, show or restart)"},
        BadScenario{"MeshGroupsOutOfRange", R"({"meshGroups": 5})",
                    "meshGroups: 5 is out of range 1..4"},
        BadScenario{"MeshGroupsNotANumber", R"({"meshGroups": "4"})",
                    "meshGroups: must be an integer in 1..4, not a string (\"4\")"},
        BadScenario{"UnknownToggle", R"({"toggles": {"SplitHorizon": true}})",
                    "toggles.SplitHorizon: unknown toggle (known: MarlTunnelSplitHorizonGroup)"},
        BadScenario{"ToggleNotABool", R"({"toggles": {"MarlTunnelSplitHorizonGroup": "no"}})",
                    "toggles.MarlTunnelSplitHorizonGroup: must be true or false, not a string "
                    "(\"no\")"},
        BadScenario{"EventsNotAList", R"({"events": {}})",
                    "events: must be an array of ops, not an object"},
        BadScenario{"UnknownOp", R"(EVENT:{"op": "update"})",
                    "events[1].op: unknown op \"update\" (expected set, del, show or restart)"},
        BadScenario{"MissingOp", R"(EVENT:{"table": "decapLabel"})",
                    "events[1]: missing \"op\" field (set, del, show or restart)"},
        BadScenario{
            "UnknownTable",
            R"(EVENT:{"op": "set", "table": "decapLabels", "key": "Pseudowire1", "value": 1})",
            "events[1].table: unknown table \"decapLabels\" (expected vplsPwIntfInfo, "
            "decapLabel, vlanTagInfo, encapHwFecId, startupSyncDone, restartDone, "
            "vxlanPresent, vxlanDciConfigured)"},
        BadScenario{
            "UnknownOpField",
            R"(EVENT:{"op": "del", "table": "decapLabel", "key": "Pseudowire1", "vlaue": 1})",
            "events[1].vlaue: unknown field in a del op (allowed: op, table, key, value, "
            "comment, sameBatch)"},
        BadScenario{
            "UnknownValueField",
            R"(EVENT:{"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1", "value": {"instance": "v"}})",
            "events[1].value.instance: unknown field in a vplsPwIntfInfo value (allowed: "
            "vplsInstanceName, groupName, splitHorizon, standby, vlanAware, controlWord, "
            "flowLabel)"},
        BadScenario{
            "WrongValueFieldType",
            R"(EVENT:{"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire1", "value": {"standby": "yes"}})",
            "events[1].value.standby: must be true or false, not a string (\"yes\")"},
        BadScenario{"ShortInterfaceName",
                    R"(EVENT:{"op": "set", "table": "decapLabel", "key": "Pw1", "value": 1})",
                    "events[1].key: \"Pw1\" is not an interface name (expected "
                    "Pseudowire<1..65535>)"},
        BadScenario{"EmptyInterfaceName",
                    R"(EVENT:{"op": "del", "table": "vplsPwIntfInfo", "key": ""})",
                    "events[1].key: \"\" is not an interface name (expected "
                    "Pseudowire<1..65535>)"},
        BadScenario{
            "VlanZero",
            R"(EVENT:{"op": "set", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 0}, "value": 1})",
            "events[1].key.vlan: 0 is out of range 1..4094"},
        BadScenario{
            "Vlan4095",
            R"(EVENT:{"op": "del", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 4095}})",
            "events[1].key.vlan: 4095 is out of range 1..4094"},
        BadScenario{
            "TagOutOfRange",
            R"(EVENT:{"op": "set", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 10}, "value": 4095})",
            "events[1].value: 4095 is out of range 0..4094"},
        BadScenario{
            "NegativeTag",
            R"(EVENT:{"op": "set", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 10}, "value": -1})",
            "events[1].value: -1 is out of range 0..4094"},
        BadScenario{
            "LabelOutOfRange",
            R"(EVENT:{"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 1048576})",
            "events[1].value: 1048576 is out of range 0..1048575"},
        BadScenario{
            "FractionalLabel",
            R"(EVENT:{"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 1.5})",
            "events[1].value: must be an integer in 0..1048575, not a fractional number "
            "(1.5)"},
        BadScenario{
            "FecIdTooLarge",
            R"(EVENT:{"op": "set", "table": "encapHwFecId", "key": "Pseudowire1", "value": {"hwFecId": 4294967296, "globalInLif": 1}})",
            "events[1].value.hwFecId: 4294967296 is out of range 0..4294967295"},
        BadScenario{
            "FecMissingGlobalInLif",
            R"(EVENT:{"op": "set", "table": "encapHwFecId", "key": "Pseudowire1", "value": {"hwFecId": 1}})",
            "events[1].value: missing \"globalInLif\" field"},
        BadScenario{
            "KeyOnAttribute",
            R"(EVENT:{"op": "set", "table": "vxlanPresent", "key": "Pseudowire1", "value": true})",
            "events[1].key: not allowed: vxlanPresent is an attribute, set it with a value "
            "only"},
        BadScenario{"AttributeNotABool",
                    R"(EVENT:{"op": "set", "table": "restartDone", "value": 1})",
                    "events[1].value: must be true or false, not a number (1)"},
        BadScenario{"DelOfAttribute", R"(EVENT:{"op": "del", "table": "startupSyncDone"})",
                    "events[1]: del is not possible on the attribute startupSyncDone (set it to "
                    "false)"},
        BadScenario{"MissingKey", R"(EVENT:{"op": "set", "table": "decapLabel", "value": 1})",
                    "events[1]: missing \"key\" field (table decapLabel needs a key)"},
        BadScenario{"MissingValue",
                    R"(EVENT:{"op": "set", "table": "decapLabel", "key": "Pseudowire1"})",
                    "events[1]: missing \"value\" field (a set of decapLabel needs a value)"},
        BadScenario{
            "ValueOnDel",
            R"(EVENT:{"op": "del", "table": "decapLabel", "key": "Pseudowire1", "value": 1})",
            "events[1].value: not allowed on a del"},
        BadScenario{"RestartWithTable", R"(EVENT:{"op": "restart", "table": "decapLabel"})",
                    "events[1].table: unknown field in a restart op (allowed: op, comment)"},
        BadScenario{"RestartBeforeStart", R"({"before": [{"op": "restart"}]})",
                    "before[0].op: only set and del are possible before start-up, not restart"},
        BadScenario{"BadKeyBeforeStart",
                    R"({"before": [{"op": "del", "table": "decapLabel", "key": "pseudowire1"}]})",
                    "before[0].key: \"pseudowire1\" is not an interface name (expected "
                    "Pseudowire<1..65535>)"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(Scenario, AcceptsEveryOpFormAndKeepsTheValues) {
  auto const scenario = parseScenario(R"({
    "comment": "ignored", "cleanSlate": false, "meshGroups": 1,
    "toggles": {"MarlTunnelSplitHorizonGroup": false},
    "before": [{"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire65535",
                "value": {"vplsInstanceName": "v", "groupName": "g\"\n", "standby": true,
                          "flowLabel": true}}],
    "events": [
      {"op": "set", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 4094}, "value": 0},
      {"op": "set", "table": "encapHwFecId", "key": "Pseudowire1",
       "value": {"hwFecId": 4294967295, "globalInLif": 7}},
      {"op": "set", "table": "vxlanDciConfigured", "value": true, "comment": "c"},
      {"op": "show"},
      {"op": "show", "args": "None None None\n"},
      {"op": "restart"}]})");
  EXPECT_FALSE(scenario.cleanSlate);
  EXPECT_EQ(scenario.meshGroups, 1u);
  ASSERT_TRUE(scenario.toggles.has_value());
  EXPECT_EQ(scenario.toggles->at("MarlTunnelSplitHorizonGroup"), false);
  ASSERT_EQ(scenario.before.size(), 1u);
  EXPECT_EQ(describe(scenario.before[0]),
            "set vplsPwIntfInfo Pseudowire65535 = instance \"v\" group \"g\\\"\\n\" standby "
            "flow-label");
  ASSERT_EQ(scenario.events.size(), 6u);
  EXPECT_EQ(describe(scenario.events[0]), "set vlanTagInfo Pseudowire1 vlan 4094 = 0");
  EXPECT_EQ(scenario.events[1].change.hwFecIndex.hwFecId(), 4294967295u);
  EXPECT_EQ(scenario.events[1].change.hwFecIndex.globalInLif(), 7u);
  EXPECT_EQ(describe(scenario.events[2]), "set vxlanDciConfigured = true");
  EXPECT_EQ(scenario.events[2].comment, "c");
  EXPECT_EQ(scenario.events[3].showArgs, "");
  // Names and arguments are escaped, so that a step's description stays on one line.
  EXPECT_EQ(describe(scenario.events[4]), "show \"None None None\\n\"");
  EXPECT_EQ(scenario.events[5].kind, OpKind::restart);
}

TEST(Scenario, DefaultsWhenFieldsAreAbsent) {
  auto const scenario = parseScenario("{}");
  EXPECT_TRUE(scenario.cleanSlate);
  EXPECT_EQ(scenario.meshGroups, 4u);
  EXPECT_FALSE(scenario.toggles.has_value());
  EXPECT_TRUE(scenario.events.empty());
}

// The runner refuses a bad or missing file before anything runs: exit code 2, one message on
// stderr that starts with the file's path, nothing on stdout.
TEST(Scenario, RunnerRefusesABadFileWithExitCode2AndOneMessage) {
  struct Case {
    char const* file;
    char const* text;  // nullptr: no such file
    char const* message;
  };
  Case const cases[] = {
      {"empty.json", "",
       "invalid JSON: parse error at line 1, column 1: syntax error while parsing value - "
       "unexpected end of input; expected '[', '{', or a literal"},
      {"late.json",
       R"({"events": [{"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 1}, {"op": "sett"}]})",
       "events[1].op: unknown op \"sett\" (expected set, del, show or restart)"},
      {"none.json", nullptr, "cannot read the scenario file: No such file or directory"},
  };
  for (auto const& c : cases) {
    TempDir dir;
    auto const file = c.text ? dir.write(c.file, c.text) : dir.path() / c.file;
    auto const result = runSim(dir, {"run", file.string(), "--json", "--each"});
    EXPECT_EQ(result.exitCode, 2) << c.file;
    EXPECT_EQ(result.out, "") << c.file;
    EXPECT_EQ(result.err, "vpls-decap-sim: " + file.string() + ": " + c.message + "\n");
  }
}

}  // namespace
}  // namespace Sim::test
