#include "MarlTunnel/VplsDecapOutput.h"

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>

#include "MarlTunnel/MarlTrace.h"

namespace Hardware::MarlTunnel {
namespace {

// Appends text and decimal numbers to the answer, as an output stream would print them, without
// a stream's locale and formatting state on every piece: the answer has a few dozen pieces per
// entry and runs to tens of megabytes.
class AnswerText {
 public:
  AnswerText& operator<<(std::string_view text) {
    text_.append(text);
    return *this;
  }
  AnswerText& operator<<(char const* text) { return *this << std::string_view(text); }
  AnswerText& operator<<(Loom::String const& text) { return *this << text.view(); }
  // Numbers only: a character type would print as a character on a stream.
  template <std::unsigned_integral N>
  requires(!std::is_same_v<N, bool> && sizeof(N) > 1) AnswerText& operator<<(N number) {
    char digits[24];
    auto const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    text_.append(digits, end);
    return *this;
  }

  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

constexpr std::uint32_t kNoHwFec = 0xFFFFFFFF;
constexpr std::uint32_t kNoGlobalInLif = 0xFFFFFFFF;
constexpr std::uint8_t kSpokeInLifProfile = 10;
// A mesh in-LIF profile p carries orientation p - 7.
constexpr std::uint8_t kOrientationOffset = 7;

char const* pythonBool(bool v) {
  return v ? "'True'," : "'False',";
}

void writeHeader(AnswerText& os, VplsDecapEntry const& e) {
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

void writePseudowire(AnswerText& os, Loom::String const& name,
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
  AnswerText os;
  os << "{"
     << "'pseudowires' : {";
  for (auto const& [name, vlans] : entries) {
    writePseudowire(os, name, vlans);
  }
  os << "},"
     << "}";
  return Loom::String(os.take());
}

}  // namespace Hardware::MarlTunnel
