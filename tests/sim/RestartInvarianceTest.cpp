// An agent restart over settled configuration: the new agent's start-up walk re-derives every
// output from the inputs, and with clean slate false it finds the previous agent's outputs
// still in place. Seeded random configurations, every pseudowire complete, inputs in random
// order; the output state before and after the restart is compared table by table.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Netcore/IntfId.h"
#include "host/PseudowireStatus.h"
#include "sim/Scenario.h"
#include "sim/ScenarioRunner.h"
#include "sim/StateJson.h"
#include "sim/TextReport.h"

namespace Sim::test {
namespace {

using Json = nlohmann::ordered_json;

// The output tables of the state, with the number of leading key fields of a list's elements
// (0: an object keyed by member name).
std::map<std::string, std::size_t> const kOutputs = {
    {"mplsDecapConfig", 3},    {"labelToPwIntf", 0},
    {"decapStatus", 2},        {"encapAdditionalId", 0},
    {"additionalDataMap", 4},  {"lpoRequest", 5},
    {"lpoResponse", 5},        {"intfToLifProfileOrientationKey", 0},
    {"esemConfig", 3},         {"tagPopPushApp", 0},
    {"evecProfileRequest", 2},
};

// The output entries of a state by table and key: a list element's key is its first
// `keyFields` fields.
std::map<std::string, Json> outputEntries(Json const& state) {
  std::map<std::string, Json> entries;
  for (auto const& [table, keyFields] : kOutputs) {
    for (auto const& [name, element] : state[table].items()) {
      Json key = Json::array();
      for (auto it = element.begin(); it != element.end() && key.size() < keyFields; ++it) {
        key.push_back(*it);
      }
      entries[table + " " + (keyFields == 0 ? name : key.dump())] = element;
    }
  }
  return entries;
}

// What changed in the outputs, one line per entry: "+table key", "-table key", "~table key".
std::vector<std::string> outputDiff(Json const& before, Json const& after) {
  std::vector<std::string> diff;
  auto const was = outputEntries(before);
  auto const is = outputEntries(after);
  for (auto const& [key, value] : was) {
    auto const found = is.find(key);
    if (found == is.end()) {
      diff.push_back("-" + key);
    } else if (found->second != value) {
      diff.push_back("~" + key + " " + value.dump() + " -> " + found->second.dump());
    }
  }
  for (auto const& [key, value] : is) {
    if (!was.contains(key)) {
      diff.push_back("+" + key);
    }
  }
  return diff;
}

// One pseudowire of a generated configuration.
struct PwConfig {
  int n = 0;
  bool standby = false;
  bool vlanAware = false;
  std::string group;  // empty: a spoke
  std::set<int> vlans;

  std::string name() const { return "Pseudowire" + std::to_string(n); }
  int label() const { return 1000 + n; }
  // Split-horizon groups per VLAN domain: a group pseudowire asks for one per VLAN.
  bool perVlanGroup() const { return !standby && !vlanAware && !group.empty(); }
  bool perVlanSpoke() const { return !standby && !vlanAware && group.empty(); }
};

Json set(std::string const& table, Json key, Json value) {
  return {{"op", "set"}, {"table", table}, {"key", std::move(key)}, {"value", std::move(value)}};
}

Json del(std::string const& table, Json key) {
  return {{"op", "del"}, {"table", table}, {"key", std::move(key)}};
}

Json pwInfo(PwConfig const& pw, std::string const& instance) {
  Json info = {
      {"vplsInstanceName", instance}, {"standby", pw.standby}, {"vlanAware", pw.vlanAware}};
  if (!pw.group.empty()) {
    info["groupName"] = pw.group;
    info["splitHorizon"] = true;
  }
  return set("vplsPwIntfInfo", pw.name(), info);
}

Json attribute(std::string const& table) {
  return {{"op", "set"}, {"table", table}, {"value", true}};
}

Json fecId(PwConfig const& pw) {
  return set("encapHwFecId", pw.name(), {{"hwFecId", 4000 + pw.n}, {"globalInLif", 8000 + pw.n}});
}

// A random settled configuration: up to six pseudowires of two instances, spokes and members
// of two split-horizon groups, some VLAN-aware, some standby, each with its configuration,
// label, one to three VLAN tag infos and FEC id, the ops shuffled. A FEC id that arrived before
// its pseudowire's configuration is dropped, so its producer publishes it again at the end.
struct Settled {
  std::vector<PwConfig> pws;
  Json inputs = Json::array();
};

Settled settledConfiguration(std::uint32_t seed) {
  std::mt19937 random(seed);
  auto const chance = [&](int percent) {
    return std::uniform_int_distribution<int>(0, 99)(random) < percent;
  };
  Settled settled;
  int const count = std::uniform_int_distribution<int>(1, 6)(random);
  for (int n = 1; n <= count; ++n) {
    PwConfig pw;
    pw.n = n;
    pw.standby = chance(15);
    pw.vlanAware = chance(30);
    if (chance(60)) {
      pw.group = chance(50) ? "g1" : "g2";
    }
    std::vector<int> vlans = {10, 20, 30, 40};
    std::shuffle(vlans.begin(), vlans.end(), random);
    pw.vlans.insert(vlans.begin(),
                    vlans.begin() + std::uniform_int_distribution<int>(1, 3)(random));
    settled.inputs.push_back(pwInfo(pw, chance(50) ? "vpls-a" : "vpls-b"));
    settled.inputs.push_back(set("decapLabel", pw.name(), pw.label()));
    settled.inputs.push_back(fecId(pw));
    for (int vlan : pw.vlans) {
      // A VLAN's normalised tag belongs to the VLAN: the same on every pseudowire.
      settled.inputs.push_back(set("vlanTagInfo", {{"pw", pw.name()}, {"vlan", vlan}}, vlan + 100));
    }
    settled.pws.push_back(pw);
  }
  std::shuffle(settled.inputs.begin(), settled.inputs.end(), random);
  std::set<std::string> configured;
  Json republished = Json::array();
  for (auto const& op : settled.inputs) {
    if (op["table"] == "vplsPwIntfInfo") {
      configured.insert(op["key"]);
    } else if (op["table"] == "encapHwFecId" && !configured.contains(op["key"])) {
      republished.push_back(op);
    }
  }
  settled.inputs.insert(settled.inputs.end(), republished.begin(), republished.end());
  return settled;
}

struct RestartResult {
  Json before;
  Json after;
  std::vector<std::string> unsettled;  // pseudowires not complete before the restart
};

// Runs the configuration and start-up sync, takes the state, then restarts the agent and lets
// the new one finish start-up sync and see restart done.
RestartResult restartOver(Settled const& settled, bool cleanSlate) {
  Json events = settled.inputs;
  events.push_back(attribute("startupSyncDone"));
  std::size_t const restartAt = events.size();
  events.push_back({{"op", "restart"}});
  events.push_back(attribute("startupSyncDone"));
  events.push_back(attribute("restartDone"));
  ScenarioRunner runner(parseScenario(Json{{"cleanSlate", cleanSlate}, {"events", events}}.dump()));
  runner.start();
  RestartResult result;
  auto const& ops = runner.scenario().events;
  for (std::size_t i = 0; i < ops.size(); ++i) {
    if (i == restartAt) {
      result.before = stateJson(runner.harness(), runner.logs());
      for (auto const& pw : settled.pws) {
        auto const status =
            Host::pseudowireStatus(runner.harness(), Netcore::IntfId::pseudowire(pw.n)).words;
        if (status != (pw.standby ? "standby" : "programmed")) {
          result.unsettled.push_back(pw.name() + ": " + status);
        }
      }
    }
    runner.apply(ops[i]);
  }
  result.after = stateJson(runner.harness(), runner.logs());
  return result;
}

// How often each rule below changed the expected state, over all seeds.
struct RuleCounts {
  int keyMapHighestVlan = 0;
  int additionalIdFollowsKey = 0;
  int vtt2AtLowestVlan = 0;
  int spokeIdNotRestored = 0;
};

// The additional id of an orientation answer: orientation + 2, but 5 for orientation 0.
int additionalId(int orientation) {
  return orientation == 0 ? 5 : orientation + 2;
}

// The state a restart must leave, derived from the state before it by the rules that make the
// start-up walk's re-derived state differ from what the original order of arrival left:
//   1. The key map holds the key of a pseudowire's latest granted request. The walk takes VLAN
//      tag infos in ascending order, so a per-VLAN group pseudowire ends with its highest VLAN's.
//   2. Its additional id follows that key: the id of the highest VLAN's answer, which is a
//      different slot when its VLAN domains gave its group different slots.
//   3. A VLAN-aware pseudowire's VTT2 entry comes with its first programmed VLAN. The walk
//      programs the lowest VLAN first and so adds a VTT2 entry there; the one under the VLAN
//      that came first stays, as nothing removes outputs on a restart.
//   4. With clean slate the additional ids are cleared first, and a spoke with groups per VLAN
//      domain gets its id only from a configuration that finds VLANs already known; the walk
//      takes configurations before VLAN tag infos, so such a spoke's id does not come back.
Json expectedAfterRestart(Json expected, std::vector<PwConfig> const& pws, bool cleanSlate,
                          RuleCounts& counts) {
  auto const answer = [&](Json const& key) {
    for (auto const& response : expected["lpoResponse"]) {
      if (response["instanceName"] == key["instanceName"] && response["vlan"] == key["vlan"] &&
          response["groupName"] == key["groupName"] && response["pw"] == key["pw"]) {
        return response["orientation"].get<int>();
      }
    }
    ADD_FAILURE() << "no answer for " << key.dump();
    return -1;
  };
  for (auto const& pw : pws) {
    auto& keyMap = expected["intfToLifProfileOrientationKey"];
    if (pw.perVlanGroup() && keyMap.contains(pw.name())) {
      Json& key = keyMap[pw.name()];
      counts.keyMapHighestVlan += key["vlan"] != *pw.vlans.rbegin();
      key["vlan"] = *pw.vlans.rbegin();
      int const id = additionalId(answer(key));
      counts.additionalIdFollowsKey += expected["encapAdditionalId"][pw.name()] != id;
      expected["encapAdditionalId"][pw.name()] = id;
      for (auto& element : expected["additionalDataMap"]) {
        if (element["pw"] == pw.name()) {
          element["value"] = id;
        }
      }
    }
    if (pw.vlanAware && !pw.standby) {
      Json moved;
      bool atLowest = false;
      for (auto const& entry : expected["mplsDecapConfig"]) {
        if (entry["label"] == pw.label() && entry["inLifProfile"] == 15) {
          atLowest = atLowest || entry["innerDot1QTag"] == *pw.vlans.begin();
          moved = entry;
        }
      }
      if (!moved.is_null() && !atLowest) {
        moved["innerDot1QTag"] = *pw.vlans.begin();
        expected["mplsDecapConfig"].push_back(moved);
        ++counts.vtt2AtLowestVlan;
      }
    }
    if (cleanSlate && pw.perVlanSpoke()) {
      counts.spokeIdNotRestored += expected["encapAdditionalId"].erase(pw.name());
    }
  }
  return expected;
}

class RestartInvariance : public ::testing::TestWithParam<bool> {};

TEST_P(RestartInvariance, SettledConfigurationChangesOnlyWhatTheRulesSay) {
  bool const cleanSlate = GetParam();
  RuleCounts counts;
  std::size_t compared = 0;
  for (std::uint32_t seed = 1; seed <= 150; ++seed) {
    auto const settled = settledConfiguration(seed);
    auto const result = restartOver(settled, cleanSlate);
    ASSERT_TRUE(result.unsettled.empty()) << "seed " << seed << ": " << result.unsettled[0];
    auto const expected = expectedAfterRestart(result.before, settled.pws, cleanSlate, counts);
    auto const diff = outputDiff(expected, result.after);
    compared += outputEntries(result.after).size();
    std::ostringstream text;
    for (auto const& line : diff) {
      text << "\n  " << line;
    }
    ASSERT_TRUE(diff.empty()) << "seed " << seed << ": " << diff.size()
                              << " entries added (+), removed (-) or changed (~)" << text.str();
  }
  RecordProperty("outputEntriesCompared", static_cast<int>(compared));
  // Every rule is exercised, so that none of them hides a difference.
  EXPECT_GT(counts.keyMapHighestVlan, 0);
  EXPECT_GT(counts.additionalIdFollowsKey, 0);
  EXPECT_GT(counts.vtt2AtLowestVlan, 0);
  EXPECT_EQ(counts.spokeIdNotRestored > 0, cleanSlate);
}

INSTANTIATE_TEST_SUITE_P(Sim, RestartInvariance, ::testing::Values(false, true),
                         [](auto const& info) {
                           return std::string(info.param ? "CleanSlate" : "NoCleanSlate");
                         });

// Random input changes with agent restarts, start-up sync, restart done, VXLAN and show
// requests at random points. A standby pseudowire keeps its configuration (it may be written
// again, never removed or made non-standby), and VXLAN DCI stays off: the sequences that end in
// the state machine's own assertions or range errors all start from a standby record that lost
// its configuration, or from a change to non-standby. No step of the others may raise.
Json randomStep(std::mt19937& random, std::vector<PwConfig> const& pws) {
  auto const below = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
  PwConfig const& pw = pws[static_cast<std::size_t>(below(static_cast<int>(pws.size())))];
  int const vlan = 10 * (1 + below(3));
  Json const vlanKey = {{"pw", pw.name()}, {"vlan", vlan}};
  switch (below(12)) {
    case 0:
    case 1:
      return pwInfo(pw, "vpls-a");
    case 2:
      return pw.standby ? attribute("startupSyncDone") : del("vplsPwIntfInfo", pw.name());
    case 3:
      return set("decapLabel", pw.name(), pw.label());
    case 4:
      return del("decapLabel", pw.name());
    case 5:
    case 6:
      return set("vlanTagInfo", vlanKey, vlan + 100);
    case 7:
      return del("vlanTagInfo", vlanKey);
    case 8:
      return below(2) ? fecId(pw) : del("encapHwFecId", pw.name());
    case 9:
      return {{"op", "restart"}};
    case 10:
      return {{"op", "set"},
              {"table", below(2)   ? "vxlanPresent"
                        : below(2) ? "startupSyncDone"
                                   : "restartDone"},
              {"value", below(2) == 0}};
    default:
      return {{"op", "show"}, {"args", "None None None"}};
  }
}

TEST(RestartRandom, ChangesWithRestartsRaiseNothing) {
  int restarts = 0;
  for (std::uint32_t seed = 1; seed <= 120; ++seed) {
    std::mt19937 random(seed);
    auto const pws = settledConfiguration(seed).pws;
    Json events = Json::array();
    for (int step = 0; step < 40; ++step) {
      events.push_back(randomStep(random, pws));
      restarts += events.back()["op"] == "restart";
    }
    ScenarioRunner runner(parseScenario(Json{
        {"cleanSlate", seed % 2 == 0},
        {"meshGroups", 1 + seed % 4},
        {"events", events}}.dump()));
    std::vector<StepReport> steps;
    runner.run([&](StepReport const& step) { steps.push_back(step); });
    ASSERT_FALSE(steps.back().error) << "seed " << seed << ", event " << steps.back().event << " ("
                                     << describe(*steps.back().op) << "): " << *steps.back().error;
    ASSERT_EQ(steps.size(), events.size() + 1) << "seed " << seed;
  }
  EXPECT_GT(restarts, 300);
}

}  // namespace
}  // namespace Sim::test
