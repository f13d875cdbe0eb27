#include "MarlTunnel/VplsDecapOutput.h"

#include <sstream>

#include "MarlTunnel/MarlTrace.h"

namespace Hardware::MarlTunnel {
namespace {

constexpr std::uint32_t kNoHwFec = 0xFFFFFFFF;
constexpr std::uint32_t kNoGlobalInLif = 0xFFFFFFFF;
constexpr std::uint8_t kSpokeInLifProfile = 10;
// A mesh in-LIF profile p carries orientation p - 7.
constexpr std::uint8_t kOrientationOffset = 7;

char const* pythonBool(bool v) {
  return v ? "'True'," : "'False',";
}

void writeHeader(std::ostringstream& os, VplsDecapEntry const& e) {
  os << "'instanceContext' : "
     << "'" << e.instanceContext() << "',";
  os << "'groupName' : "
     << "'" << e.groupName() << "',";
  os << "'label' : "
     << "'" << e.label().value() << "',";
  os << "'controlWord' : " << pythonBool(e.controlWord());
  os << "'flowLabel' : " << pythonBool(e.flowLabel());
  os << "'termProfile' : "
     << "'" << unsigned{e.terminationProfile()} << "',";
  if (e.globalInLif() != kNoGlobalInLif) {
    os << "'globalInLif' : "
       << "'" << e.globalInLif() << "',";
  } else {
    os << "'globalInLif' : '-',";
  }
  os << "'active' : " << pythonBool(e.active());
  os << "'vlans' : {";
}

void writePseudowire(std::ostringstream& os, Loom::String const& name,
                     std::map<Bridging::VlanIdOrNone, VplsDecapEntry> const& vlans) {
  os << "'" << name << "' : {";
  if (vlans.empty()) {
    // Closes a 'vlans' block that was never opened; the front end expects exactly this.
    os << "},"
       << "'hwFec' : '-',"
       << "'inLifProfile' : '-',"
       << "'orientation' : '-',"
       << "},";
    return;
  }
  std::uint32_t hwFec = kNoHwFec;
  std::uint8_t inLifProfile = 0;
  std::uint8_t orientation = 0;
  bool first = true;
  for (auto const& [vlan, e] : vlans) {
    // The last active element with a VLAN sets the summary.
    if (!vlan.isNone() && e.active()) {
      hwFec = e.destination();
      inLifProfile = e.inLifProfile();
      orientation = e.inLifProfile() == kSpokeInLifProfile
                        ? std::uint8_t{0}
                        : static_cast<std::uint8_t>(e.inLifProfile() - kOrientationOffset);
    }
    if (first) {
      writeHeader(os, e);
      first = false;
    }
    os << "'" << vlan.value() << "' : {";
    os << "'normalizedTag' : '" << e.innerDot1QTag() << "',";
    os << "'lifIndex' : "
       << "'" << e.lifIndex() << "'},";
  }
  os << "},";
  if (hwFec != kNoHwFec) {
    os << "'hwFec' : "
       << "'" << hwFec << "',";
  } else {
    os << "'hwFec' : '-',";
  }
  if (inLifProfile != 0) {
    os << "'inLifProfile' : "
       << "'" << unsigned{inLifProfile} << "',";
    os << "'orientation' : "
       << "'" << unsigned{orientation} << "',";
  } else {
    os << "'inLifProfile' : '-',"
       << "'orientation' : '-',";
  }
  os << "},";
}

}  // namespace

Loom::String printVplsDecapEntries(VplsDecapEntryMap const& entries) {
  MARL_TRACE(kTraceDetail, "printVplsDecapEntries");
  std::ostringstream os;
  os << "{"
     << "'pseudowires' : {";
  for (auto const& [name, vlans] : entries) {
    writePseudowire(os, name, vlans);
  }
  os << "},"
     << "}";
  return Loom::String(os.str());
}

}  // namespace Hardware::MarlTunnel
