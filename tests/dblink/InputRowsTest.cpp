// Input hashes as other agents write them: what each decodes to, and the one line that names
// the key, the field and the problem of every kind of bad input (which then counts as absent).

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "dblink/InputRows.h"
#include "host/InputChange.h"

namespace DbLink::test {
namespace {

struct Case {
  std::string key;
  std::optional<Fields> fields;  // none: the key is absent
  std::vector<std::string> ops;  // describe() of each op
  std::string problem;           // empty: good input
};

TEST(InputRows, DecodeToTheRunnersOpsAndNameEveryProblem) {
  std::string const mib(1 << 20, 'x');
  std::vector<Case> const cases{
      {"VPLS_PW_INTF_INFO|Pseudowire7",
       Fields{{"vplsInstanceName", "v1"}, {"groupName", "g"}, {"splitHorizon", "true"}},
       {"set vplsPwIntfInfo Pseudowire7 = instance \"v1\" group \"g\" split-horizon"},
       ""},
      {"VPLS_PW_INTF_INFO|Pseudowire7", std::nullopt, {"del vplsPwIntfInfo Pseudowire7"}, ""},
      {"VPLS_DECAP_LABEL|Pseudowire7",
       Fields{{"label", "1048575"}},
       {"set decapLabel Pseudowire7 = 1048575"},
       ""},
      {"VPLS_VLAN_TAG_INFO|Pseudowire7|4094",
       Fields{{"tag", "0"}},
       {"set vlanTagInfo Pseudowire7 vlan 4094 = 0"},
       ""},
      {"VPLS_ENCAP_HW_FEC_ID|Pseudowire7",
       Fields{{"hwFecId", "4294967295"}, {"globalInLif", "0"}},
       {"set encapHwFecId Pseudowire7 = hwFecId 4294967295 globalInLif 0"},
       ""},
      {"VPLS_DECAP_CONFIG|restartDone", Fields{{"value", "true"}}, {"set restartDone = true"}, ""},
      {"VTEP_TYPE_STATUS|vxlanPresent", std::nullopt, {"set vxlanPresent = false"}, ""},
      // Bad values: the element counts as absent.
      {"VPLS_DECAP_LABEL|Pseudowire7",
       Fields{{"label", "-1"}},
       {"del decapLabel Pseudowire7"},
       "VPLS_DECAP_LABEL|Pseudowire7: field label: \"-1\" is not a number from 0 to 1048575"},
      {"VPLS_DECAP_LABEL|Pseudowire7",
       Fields{{"label", ""}},
       {"del decapLabel Pseudowire7"},
       "VPLS_DECAP_LABEL|Pseudowire7: field label: \"\" is not a number from 0 to 1048575"},
      {"VPLS_DECAP_LABEL|Pseudowire7",
       Fields{{"label", "99999999999999999999999"}},
       {"del decapLabel Pseudowire7"},
       "VPLS_DECAP_LABEL|Pseudowire7: field label: \"99999999999999999999999\" is not a number "
       "from 0 to 1048575"},
      {"VPLS_DECAP_LABEL|Pseudowire7",
       Fields{},
       {"del decapLabel Pseudowire7"},
       "VPLS_DECAP_LABEL|Pseudowire7: field label is missing"},
      {"VPLS_ENCAP_HW_FEC_ID|Pseudowire7",
       Fields{{"hwFecId", "1"}},
       {"del encapHwFecId Pseudowire7"},
       "VPLS_ENCAP_HW_FEC_ID|Pseudowire7: field globalInLif is missing"},
      {"VPLS_VLAN_TAG_INFO|Pseudowire7|10",
       Fields{{"tag", "4095"}},
       {"del vlanTagInfo Pseudowire7 vlan 10"},
       "VPLS_VLAN_TAG_INFO|Pseudowire7|10: field tag: \"4095\" is not a number from 0 to 4094"},
      {"VPLS_PW_INTF_INFO|Pseudowire7",
       Fields{{"standby", "1"}},
       {"del vplsPwIntfInfo Pseudowire7"},
       "VPLS_PW_INTF_INFO|Pseudowire7: field standby: \"1\" is not a boolean (true or false)"},
      {"VPLS_PW_INTF_INFO|Pseudowire7",
       Fields{{"groupName", "\xff\xfe"}},
       {"del vplsPwIntfInfo Pseudowire7"},
       "VPLS_PW_INTF_INFO|Pseudowire7: field groupName: \"\\xff\\xfe\" is not UTF-8 text"},
      {"VPLS_PW_INTF_INFO|Pseudowire7",
       Fields{{"vplsInstanceName", "a|b"}},
       {"del vplsPwIntfInfo Pseudowire7"},
       "VPLS_PW_INTF_INFO|Pseudowire7: field vplsInstanceName: \"a|b\" contains '|', which no "
       "name may hold"},
      {"VPLS_DECAP_LABEL|Pseudowire7",
       Fields{{"label", mib}},
       {"del decapLabel Pseudowire7"},
       "VPLS_DECAP_LABEL|Pseudowire7: field label: \"" + std::string(64, 'x') +
           "\"... (1048576 bytes) is not a number from 0 to 1048575"},
      {"VPLS_DECAP_LABEL|Pseudowire7",
       Fields{{"label", "1"}, {"lable", "2"}},
       {"del decapLabel Pseudowire7"},
       "VPLS_DECAP_LABEL|Pseudowire7: field \"lable\" is not one of this table's (label)"},
      {"VTEP_TYPE_STATUS|vxlanDciConfigured",
       Fields{{"value", "yes"}},
       {"set vxlanDciConfigured = false"},
       "VTEP_TYPE_STATUS|vxlanDciConfigured: field value: \"yes\" is not a boolean (true or "
       "false)"},
      // Keys that name no element.
      {"VPLS_DECAP_LABEL|Pseudowire65536",
       Fields{{"label", "1"}},
       {},
       "VPLS_DECAP_LABEL|Pseudowire65536: the key does not parse: \"Pseudowire65536\" is not an "
       "interface name (expected Pseudowire<1..65535>)"},
      {"VPLS_DECAP_LABEL|Pseudowire7|extra",
       Fields{{"label", "1"}},
       {},
       "VPLS_DECAP_LABEL|Pseudowire7|extra: the key does not parse: expected 2 segments "
       "separated by '|', found 3"},
      {"VPLS_VLAN_TAG_INFO|Pseudowire7|0",
       Fields{{"tag", "1"}},
       {},
       "VPLS_VLAN_TAG_INFO|Pseudowire7|0: the key does not parse: \"0\" is not a vlan from 1 to "
       "4094 in plain decimal"},
      {"VPLS_VLAN_TAG_INFO|Pseudowire7|05",
       Fields{{"tag", "1"}},
       {},
       "VPLS_VLAN_TAG_INFO|Pseudowire7|05: the key does not parse: \"05\" is not a vlan from 1 "
       "to 4094 in plain decimal"},
      {"VPLS_DECAP_CONFIG|startupSyncdone",
       Fields{{"value", "true"}},
       {},
       "VPLS_DECAP_CONFIG|startupSyncdone: the key does not parse: not one of the attribute keys "
       "VPLS_DECAP_CONFIG|startupSyncDone, VPLS_DECAP_CONFIG|restartDone"},
      {"VTEP_TYPE_STATUS",
       Fields{{"vxlanPresent", "true"}},
       {},
       "VTEP_TYPE_STATUS: the key does not parse: not one of the attribute keys "
       "VTEP_TYPE_STATUS|vxlanPresent, VTEP_TYPE_STATUS|vxlanDciConfigured"},
      {"VPLS_DECAP_LABEL|Pseudo\nwire",
       Fields{{"label", "1"}},
       {},
       "\"VPLS_DECAP_LABEL|Pseudo\\x0awire\": the key does not parse: \"Pseudo\\x0awire\" is not "
       "an interface name (expected Pseudowire<1..65535>)"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.key);
    auto const decoding = decodeInput(c.key, c.fields ? &*c.fields : nullptr);
    std::vector<std::string> ops;
    for (auto const& op : decoding.changes) {
      ops.push_back(Host::describe(op));
    }
    EXPECT_EQ(ops, c.ops);
    EXPECT_EQ(decoding.problem, c.problem);
  }
}

TEST(InputRows, AKeyOfAnotherTypeCountsAsAbsent) {
  auto const decoding = decodeWrongType("VPLS_DECAP_LABEL|Pseudowire7", "value of another type");
  ASSERT_EQ(decoding.changes.size(), 1u);
  EXPECT_EQ(Host::describe(decoding.changes[0]), "del decapLabel Pseudowire7");
  EXPECT_EQ(decoding.problem,
            "VPLS_DECAP_LABEL|Pseudowire7: holds a value of another type, not a hash; treated as "
            "absent");
}

TEST(InputRows, EverySetWrittenAsARowDecodesToItself) {
  for (auto const& key : {"VPLS_PW_INTF_INFO|Pseudowire7", "VPLS_DECAP_LABEL|Pseudowire7",
                          "VPLS_VLAN_TAG_INFO|Pseudowire7|10", "VPLS_ENCAP_HW_FEC_ID|Pseudowire7",
                          "VPLS_DECAP_CONFIG|startupSyncDone"}) {
    Fields const fields = std::string(key).starts_with("VPLS_PW_INTF_INFO")
                              ? Fields{{"vplsInstanceName", "v\"1"}, {"flowLabel", "true"}}
                          : std::string(key).starts_with("VPLS_ENCAP")
                              ? Fields{{"hwFecId", "5"}, {"globalInLif", "6"}}
                          : std::string(key).starts_with("VPLS_VLAN")    ? Fields{{"tag", "7"}}
                          : std::string(key).starts_with("VPLS_DECAP_C") ? Fields{{"value", "true"}}
                                                                         : Fields{{"label", "8"}};
    auto const op = decodeInput(key, &fields).changes.at(0);
    auto const [rowKey, rowFields] = inputRow(op);
    EXPECT_EQ(rowKey, key);
    EXPECT_EQ(Host::describe(decodeInput(rowKey, &rowFields).changes.at(0)), Host::describe(op));
  }
}

}  // namespace
}  // namespace DbLink::test
