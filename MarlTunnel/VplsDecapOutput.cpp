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
  explicit AnswerText(std::size_t capacity) { text_.reserve(capacity); }

  AnswerText& operator<<(std::string_view text) {
    text_.append(text);
    return *this;
  }
  // A literal's length is known at compile time.
  template <std::size_t N>
  AnswerText& operator<<(char const (&literal)[N]) {
    return *this << std::string_view(literal, N - 1);
  }
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

std::string_view pythonBool(bool v) {
  return v ? "'True'," : "'False',";
}

void writeHeader(AnswerText& os, VplsDecapEntry const& e) {
  os << "'instanceContext' : '" << e.instanceContext() << "','groupName' : '" << e.groupName()
     << "','label' : '" << e.label().value() << "',";
  os << "'controlWord' : " << pythonBool(e.controlWord());
  os << "'flowLabel' : " << pythonBool(e.flowLabel());
  os << "'termProfile' : '" << unsigned{e.terminationProfile()} << "',";
  if (e.globalInLif() != kNoGlobalInLif) {
    os << "'globalInLif' : '" << e.globalInLif() << "',";
  } else {
    os << "'globalInLif' : '-',";
  }
  os << "'active' : " << pythonBool(e.active()) << "'vlans' : {";
}

// `Vlans` iterates as (VLAN, entry) pairs in ascending VLAN order: the map's or the list's.
template <class Vlans>
void writePseudowire(AnswerText& os, Loom::String const& name, Vlans const& vlans) {
  os << "'" << name << "' : {";
  if (vlans.empty()) {
    // Closes a 'vlans' block that was never opened; the front end expects exactly this.
    os << "},'hwFec' : '-','inLifProfile' : '-','orientation' : '-',},";
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
    os << "'" << vlan.value() << "' : {'normalizedTag' : '" << e.innerDot1QTag()
       << "','lifIndex' : '" << e.lifIndex() << "'},";
  }
  os << "},";
  if (hwFec != kNoHwFec) {
    os << "'hwFec' : '" << hwFec << "',";
  } else {
    os << "'hwFec' : '-',";
  }
  if (inLifProfile != 0) {
    os << "'inLifProfile' : '" << unsigned{inLifProfile} << "','orientation' : '"
       << unsigned{orientation} << "',";
  } else {
    os << "'inLifProfile' : '-','orientation' : '-',";
  }
  os << "},";
}

Loom::String const& nameOf(VplsDecapEntryMap::value_type const& pseudowire) {
  return pseudowire.first;
}
auto const& vlansOf(VplsDecapEntryMap::value_type const& pseudowire) {
  return pseudowire.second;
}
Loom::String const& nameOf(PseudowireDecapEntries const& pseudowire) {
  return *pseudowire.name;
}
auto const& vlansOf(PseudowireDecapEntries const& pseudowire) {
  return pseudowire.vlans;
}

// Room for the whole answer, so that it is never copied while it grows: a pseudowire takes its
// names and at most 320 bytes more, an element at most 64.
template <class Entries>
std::size_t answerBound(Entries const& entries) {
  std::size_t bytes = 64;
  for (auto const& pseudowire : entries) {
    auto const& vlans = vlansOf(pseudowire);
    bytes += 320 + nameOf(pseudowire).size();
    if (!vlans.empty()) {
      auto const& e = vlans.begin()->second;
      bytes += e.instanceContext().size() + e.groupName().size() + 64 * vlans.size();
    }
  }
  return bytes;
}

// One trace site for both forms of the result.
void traceAnswer() {
  MARL_TRACE(kTraceDetail, "printVplsDecapEntries");
}

template <class Entries>
Loom::String answer(Entries const& entries) {
  traceAnswer();
  AnswerText os(answerBound(entries));
  os << "{'pseudowires' : {";
  for (auto const& pseudowire : entries) {
    writePseudowire(os, nameOf(pseudowire), vlansOf(pseudowire));
  }
  os << "},}";
  return Loom::String(os.take());
}

}  // namespace

VplsDecapEntryMap toMap(VplsDecapEntryList const& entries) {
  VplsDecapEntryMap map;
  for (auto const& pseudowire : entries) {
    auto& vlans =
        map.emplace_hint(map.end(), *pseudowire.name, VplsDecapEntryMap::mapped_type())->second;
    for (auto const& [vlan, entry] : pseudowire.vlans) {
      vlans.emplace_hint(vlans.end(), vlan, entry);
    }
  }
  return map;
}

Loom::String printVplsDecapEntries(VplsDecapEntryMap const& entries) {
  return answer(entries);
}

Loom::String printVplsDecapEntries(VplsDecapEntryList const& entries) {
  return answer(entries);
}

}  // namespace Hardware::MarlTunnel
