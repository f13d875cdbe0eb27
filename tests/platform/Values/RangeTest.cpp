// Range checks of the value types: what is accepted, what is refused, and the exact texts.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <type_traits>

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Hardware/MplsDecapInfo.h"
#include "Hardware/VlanAndVplsKey.h"
#include "Loom/RangeError.h"
#include "Loom/String.h"
#include "Netcore/IntfId.h"
#include "Netcore/MplsLabel.h"

namespace {

using Hardware::MarlTunnel::MplsDecapInfo;
using Hardware::MarlTunnel::VlanAndVplsKey;
using Netcore::IntfId;
using Netcore::MplsLabel;

constexpr char kVlanText[] = "Bridging::VlanId::value < 1 or > 4094 not allowed";
constexpr char kVlanOrNoneText[] = "Bridging::VlanIdOrNone::value > 4094 not allowed";
constexpr char kStringText[] = "Cog::String::bytes > maxLength() not allowed";
constexpr char kLabelText[] = "Netcore::MplsLabel::value > 1048576 not allowed";

std::string bytes(std::size_t n) {
  return std::string(n, 'x');
}

struct Refusal {
  char const* what;
  std::function<void()> construct;
  std::string text;
};

TEST(ValueRange, RefusedValuesRaiseRangeErrorWithTheTypesText) {
  static_assert(std::is_base_of_v<std::range_error, Loom::RangeError>);
  Refusal const cases[] = {
      {"VLAN 0", [] { Bridging::VlanId(0); }, kVlanText},
      {"VLAN 4095", [] { Bridging::VlanId(4095); }, kVlanText},
      {"VLAN 65537 (not truncated)", [] { Bridging::VlanId(65537); }, kVlanText},
      {"VLAN or none 4095", [] { Bridging::VlanIdOrNone(4095); }, kVlanOrNoneText},
      {"101-byte bounded string", [] { Loom::BoundedString<100>(bytes(101)); }, kStringText},
      {"101-byte decap entry name", [] { MplsDecapInfo().nameIs(Loom::String(bytes(101))); },
       kStringText},
      {"orientation key VLAN 4095", [] { VlanAndVplsKey("blue", 4095, "g", true); },
       kVlanOrNoneText},
      {"label 0x100001", [] { MplsLabel(0x100001); }, kLabelText},
      {"label text above range", [] { MplsLabel::fromString("1048577"); }, kLabelText},
      {"label text overflowing 64 bits", [] { MplsLabel::fromString("99999999999999999999999"); },
       kLabelText},
      {"empty label text", [] { MplsLabel::fromString(""); },
       "Netcore::MplsLabel: '' is not a label"},
      {"label text with a letter", [] { MplsLabel::fromString("12a"); },
       "Netcore::MplsLabel: '12a' is not a label"},
      {"signed label text", [] { MplsLabel::fromString("-1"); },
       "Netcore::MplsLabel: '-1' is not a label"},
      {"pseudowire number 0", [] { IntfId::pseudowire(0); },
       "Netcore::IntfId: pseudowire number 0 not in 1..65535"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    try {
      c.construct();
      ADD_FAILURE() << "accepted";
    } catch (Loom::RangeError const& e) {
      EXPECT_EQ(std::string(e.what()), c.text);
    }
  }
}

TEST(ValueRange, BoundaryValuesAreAccepted) {
  EXPECT_EQ(Bridging::VlanId(1).value(), 1);
  EXPECT_EQ(Bridging::VlanId(4094).value(), 4094);
  EXPECT_EQ(Bridging::VlanIdOrNone(4094).value(), 4094);
  EXPECT_TRUE(Bridging::VlanIdOrNone(0).isNone());
  EXPECT_EQ(Loom::BoundedString<100>(bytes(100)).str().size(), 100u);
  EXPECT_EQ(MplsDecapInfo().nameIs(Loom::String(bytes(100))).name().str(), bytes(100));
  EXPECT_EQ(VlanAndVplsKey("", 4094, "g", false).vlanId(), 4094);
}

TEST(ValueRange, LabelOneAboveTheLargestIsNoLabelAndTheDefault) {
  EXPECT_EQ(MplsLabel().value(), 0x100000u);
  EXPECT_FALSE(MplsLabel().isLabel());
  EXPECT_EQ(MplsLabel(0x100000), MplsLabel());
  EXPECT_TRUE(MplsLabel(0xfffff).isLabel());
  EXPECT_EQ(MplsLabel::fromString("0").value(), 0u);
  EXPECT_EQ(MplsLabel::fromString("1048575").value(), 0xfffffu);
  EXPECT_EQ(MplsLabel::fromString("1048576"), MplsLabel());
}

TEST(ValueRange, InterfaceNames) {
  for (auto const* name : {"Pseudowire1", "Pseudowire65535", "Pseudowire42"}) {
    SCOPED_TRACE(name);
    IntfId const id(name);
    EXPECT_TRUE(id.isPseudowire());
    EXPECT_EQ(id.toString(), name);
    EXPECT_EQ(IntfId(id.toString()), id);
    EXPECT_EQ(IntfId::pseudowire(id.pseudowireNumber()), id);
  }
  EXPECT_EQ(IntfId("Pseudowire65535").pseudowireNumber(), 65535u);

  IntfId const empty("");
  EXPECT_TRUE(empty.empty());
  EXPECT_EQ(empty, IntfId());
  EXPECT_EQ(empty.toString(), "");

  for (auto const* name :
       {"Pseudowire0", "Pseudowire65536", "Pseudowire01", "pseudowire1", "Pw1", "Pseudowire",
        "Pseudowire+1", "Pseudowire-1", "Pseudowire1 ", "Pseudowire100000"}) {
    SCOPED_TRACE(name);
    try {
      IntfId{std::string_view(name)};
      ADD_FAILURE() << "accepted";
    } catch (Loom::RangeError const& e) {
      EXPECT_EQ(std::string(e.what()), "Netcore::IntfId: '" + std::string(name) +
                                           "' is not an interface name (expected "
                                           "Pseudowire<1..65535>)");
    }
  }
}

}  // namespace
