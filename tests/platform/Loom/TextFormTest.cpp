// The generic text form of value records: exact encodings, round trips and refused input.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Fab/VplsIntfKey.h"
#include "Fab/VplsPwIntfInfo.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Hardware/EsemConfigKeyVpls.h"
#include "Hardware/LifProfileOrientationKey.h"
#include "Hardware/MplsDecapInfo.h"
#include "Hardware/MplsDecapInfoKey.h"
#include "Hardware/VlanAndVplsKey.h"
#include "Loom/TextForm.h"

namespace {

namespace HW = Hardware::MarlTunnel;
using Netcore::IntfId;
using Netcore::MplsLabel;

// Encodes `value` to exactly `text` and decodes `text` back to an equal value.
template <class T>
void expectRoundTrip(T const& value, std::string_view text) {
  SCOPED_TRACE(text);
  EXPECT_EQ(Loom::toText(value), text);
  EXPECT_TRUE(Loom::fromText<T>(text) == value);
}

TEST(LoomTextForm, EveryRecordTypeRoundTripsThroughItsExactText) {
  expectRoundTrip(Fab::VplsPwIntfVlanKey(IntfId("Pseudowire7"), Bridging::VlanId(100)),
                  R"(Fab::VplsPwIntfVlanKey(pwIntfId="Pseudowire7", vlanId=100))");
  expectRoundTrip(Fab::VplsIntfKey("blue", "mesh", IntfId("Pseudowire65535"), true),
                  R"(Fab::VplsIntfKey(vplsInstanceName="blue", groupName="mesh", )"
                  R"(pwIntfId="Pseudowire65535", splitHorizon=true))");
  expectRoundTrip(Fab::VplsPwIntfInfo(),
                  R"(Fab::VplsPwIntfInfo(pwIntfId="", vplsInstanceName="", groupName="", )"
                  R"(splitHorizon=false, standby=false, vlanAware=false, controlWord=false, )"
                  R"(remoteLabel=1048576, flags=0, pwType=0))");
  expectRoundTrip(Fab::VplsPwIntfInfo(IntfId("Pseudowire3"))
                      .vplsInstanceNameIs("red")
                      .standbyIs(true)
                      .controlWordIs(true)
                      .remoteLabelIs(MplsLabel(1048575))
                      .flowLabelIs(true)
                      .pwTypeIs(5),
                  R"(Fab::VplsPwIntfInfo(pwIntfId="Pseudowire3", vplsInstanceName="red", )"
                  R"(groupName="", splitHorizon=false, standby=true, vlanAware=false, )"
                  R"(controlWord=true, remoteLabel=1048575, flags=16384, pwType=5))");
  expectRoundTrip(HW::EsemConfigKeyVpls(5, 4094),
                  "Hardware::MarlTunnel::EsemConfigKeyVpls(vlanDomain=5, vlanId=4094, "
                  "keyField3=2046)");
  expectRoundTrip(HW::MplsDecapInfoKey(),
                  "Hardware::MarlTunnel::MplsDecapInfoKey(label=1048576, innerDot1QTag=0, "
                  "keyField3=0)");
  expectRoundTrip(
      HW::MplsDecapInfo(HW::MplsDecapInfoKey(MplsLabel(100), Bridging::VlanIdOrNone(20)))
          .hwFecIdIs(0x20001)
          .globalInLifIs(0x44001)
          .inLifProfileIs(Hardware::Marl::Jericho2LifProfiles::vplsMeshInLifProfile2_)
          .vlanIdIs(20),
      "Hardware::MarlTunnel::MplsDecapInfo(name=\"\", flag=false, hwFecId=131073, "
      "globalInLif=278529, inLifProfile=12, key=Hardware::MarlTunnel::MplsDecapInfoKey("
      "label=100, innerDot1QTag=20, keyField3=0), vlanId=20, field8=0, field9=2)");
  expectRoundTrip(HW::VlanAndVplsKey("blue", 0, "g1", true),
                  R"(Hardware::MarlTunnel::VlanAndVplsKey(instanceName="blue", vlanId=0, )"
                  R"(groupName="g1", splitHorizon=true))");
  expectRoundTrip(HW::LifProfileOrientationKey({"", 30, "g2", false}, IntfId("Pseudowire9")),
                  "Hardware::MarlTunnel::LifProfileOrientationKey(vlanAndVplsKey="
                  R"(Hardware::MarlTunnel::VlanAndVplsKey(instanceName="", vlanId=30, )"
                  R"(groupName="g2", splitHorizon=false), pwIntfId="Pseudowire9"))");
}

TEST(LoomTextForm, AnyStringBytesSurviveAndEncodeAsPrintableAscii) {
  std::string const samples[] = {
      R"(say "hi")",
      R"(back\slash\)",
      "line1\nline2\ttab\r",
      std::string("nul\0x", 5),
      "\x01\x1f\x7f\x80\xff",
      "caf\xc3\xa9",
      ", )=\"(",
      "\\x41 is not A",
  };
  for (auto const& s : samples) {
    SCOPED_TRACE(s);
    HW::MplsDecapInfo const info = HW::MplsDecapInfo().nameIs(Loom::String(s));
    Fab::VplsIntfKey const key(s, s + s, IntfId(), false);
    auto const infoText = Loom::toText(info);
    auto const keyText = Loom::toText(key);
    for (char const c : infoText + keyText) {
      EXPECT_TRUE(c >= 0x20 && c < 0x7f) << "raw byte " << int(static_cast<unsigned char>(c));
    }
    EXPECT_EQ(Loom::fromText<HW::MplsDecapInfo>(infoText).name().str(), s);
    EXPECT_TRUE(Loom::fromText<Fab::VplsIntfKey>(keyText) == key);
  }
  EXPECT_EQ(Loom::toText(Fab::VplsIntfKey("a\"b\\c\n\t\x01\xe9", "", IntfId(), false)),
            R"(Fab::VplsIntfKey(vplsInstanceName="a\"b\\c\n\t\x01\xe9", groupName="", )"
            R"(pwIntfId="", splitHorizon=false))");
}

template <class T>
void decodeAs(std::string_view text) {
  (void)Loom::fromText<T>(text);
}

struct BadText {
  char const* what;
  void (*decode)(std::string_view);
  std::string text;
  std::string attribute;  // "" for the record's own frame
};

TEST(LoomTextForm, RefusedInputNamesTheAttribute) {
  auto* const vlanKey = &decodeAs<Fab::VplsPwIntfVlanKey>;
  std::string const good = R"(Fab::VplsPwIntfVlanKey(pwIntfId="Pseudowire1", vlanId=5))";
  std::string const info =
      "Hardware::MarlTunnel::MplsDecapInfo(name=\"\", flag=false, hwFecId=0, globalInLif=0, "
      "inLifProfile=0, key=Hardware::MarlTunnel::MplsDecapInfoKey(label=LABEL, innerDot1QTag=0, "
      "keyField3=0), vlanId=1, field8=0, field9=2)";
  auto withLabel = [&](std::string const& label) {
    return info.substr(0, info.find("LABEL")) + label + info.substr(info.find("LABEL") + 5);
  };
  BadText const cases[] = {
      {"trailing characters", vlanKey, good + " ", ""},
      {"wrong type name", vlanKey, R"(Fab::VplsIntfKey(pwIntfId="Pseudowire1", vlanId=5))", ""},
      {"missing close", vlanKey, R"(Fab::VplsPwIntfVlanKey(pwIntfId="Pseudowire1", vlanId=5)", ""},
      {"missing separator", vlanKey, R"(Fab::VplsPwIntfVlanKey(pwIntfId="Pseudowire1"vlanId=5))",
       "vlanId"},
      {"wrong attribute name", vlanKey, R"(Fab::VplsPwIntfVlanKey(pwIntfId="Pseudowire1", vlan=5))",
       "vlanId"},
      {"attributes swapped", vlanKey, R"(Fab::VplsPwIntfVlanKey(vlanId=5, pwIntfId="Pseudowire1"))",
       "pwIntfId"},
      {"unterminated string", vlanKey, R"(Fab::VplsPwIntfVlanKey(pwIntfId="Pseudowire1)",
       "pwIntfId"},
      {"not an interface name", vlanKey, R"(Fab::VplsPwIntfVlanKey(pwIntfId="Pw1", vlanId=5))",
       "pwIntfId"},
      {"VLAN out of range", vlanKey,
       R"(Fab::VplsPwIntfVlanKey(pwIntfId="Pseudowire1", vlanId=4095))", "vlanId"},
      {"negative number", &decodeAs<HW::EsemConfigKeyVpls>,
       "Hardware::MarlTunnel::EsemConfigKeyVpls(vlanDomain=-5, vlanId=1, keyField3=2046)",
       "vlanDomain"},
      {"16-bit field out of range", &decodeAs<HW::EsemConfigKeyVpls>,
       "Hardware::MarlTunnel::EsemConfigKeyVpls(vlanDomain=5, vlanId=65536, keyField3=2046)",
       "vlanId"},
      {"group VLAN out of range", &decodeAs<HW::VlanAndVplsKey>,
       R"(Hardware::MarlTunnel::VlanAndVplsKey(instanceName="", vlanId=4095, groupName="", )"
       R"(splitHorizon=false))",
       "vlanId"},
      {"not a bool", &decodeAs<Fab::VplsIntfKey>,
       R"(Fab::VplsIntfKey(vplsInstanceName="", groupName="", pwIntfId="", splitHorizon=yes))",
       "splitHorizon"},
      {"unknown escape", &decodeAs<Fab::VplsIntfKey>,
       R"(Fab::VplsIntfKey(vplsInstanceName="\q", groupName="", pwIntfId="", splitHorizon=no))",
       "vplsInstanceName"},
      {"short hex escape", &decodeAs<Fab::VplsIntfKey>,
       R"(Fab::VplsIntfKey(vplsInstanceName="", groupName="\x4", pwIntfId="", splitHorizon=no))",
       "groupName"},
      {"nested label out of range", &decodeAs<HW::MplsDecapInfo>, withLabel("1048577"), "label"},
      {"nested label not a number", &decodeAs<HW::MplsDecapInfo>, withLabel("12a"), "label"},
      {"name too long", &decodeAs<HW::MplsDecapInfo>,
       "Hardware::MarlTunnel::MplsDecapInfo(name=\"" + std::string(101, 'n') + "\", flag=false)",
       "name"},
  };
  EXPECT_NO_THROW(decodeAs<HW::MplsDecapInfo>(withLabel("16")));
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    try {
      c.decode(c.text);
      ADD_FAILURE() << "accepted: " << c.text;
    } catch (Loom::DeserializationError const& e) {
      EXPECT_EQ(e.attribute(), c.attribute);
      EXPECT_EQ(
          std::string(e.what()).rfind("cannot deserialise attribute '" + c.attribute + "': ", 0),
          0u)
          << e.what();
    }
  }
}

}  // namespace
