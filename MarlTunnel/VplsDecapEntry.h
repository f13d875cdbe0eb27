#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

#include "Loom/String.h"
#include "Loom/TextForm.h"
#include "Loom/TypeData.h"
#include "Netcore/MplsLabel.h"

namespace Hardware::MarlTunnel {

// One decapsulation entry of one pseudowire and VLAN (or of the pseudowire as a whole), as the
// show command reads it back from the chip's tables and the configuration. A plain value: it
// owns its strings, is copied by value, compares and orders field by field in declaration
// order, and has the framework's generic text form. It is declared not hashable: it is only
// ever a mapped value, keyed by VLAN.
class VplsDecapEntry {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::VplsDecapEntry";
  static constexpr bool hashable = false;

  VplsDecapEntry() = default;
  VplsDecapEntry(Loom::String instanceContext, Loom::String groupName, std::uint32_t destination,
                 std::uint8_t inLifProfile, std::uint32_t globalInLif, std::uint32_t lifIndex,
                 std::uint8_t terminationProfile, Netcore::MplsLabel label,
                 std::uint32_t innerDot1QTag, bool controlWord, bool flowLabel, bool active);

  static Loom::TypeData const& type();

  Loom::String const& instanceContext() const noexcept { return instanceContext_; }
  Loom::String const& groupName() const noexcept { return groupName_; }
  // Forwarding destination of the pseudowire's in-LIF (shown as its hwFec).
  std::uint32_t destination() const noexcept { return destination_; }
  std::uint8_t inLifProfile() const noexcept { return inLifProfile_; }
  std::uint32_t globalInLif() const noexcept { return globalInLif_; }
  // Local LIF index: the row of the in-LIF table.
  std::uint32_t lifIndex() const noexcept { return lifIndex_; }
  std::uint8_t terminationProfile() const noexcept { return terminationProfile_; }
  Netcore::MplsLabel label() const noexcept { return label_; }
  // The VLAN's normalised inner tag (shown as normalizedTag); 0 when none.
  std::uint32_t innerDot1QTag() const noexcept { return innerDot1QTag_; }
  bool controlWord() const noexcept { return controlWord_; }
  bool flowLabel() const noexcept { return flowLabel_; }
  // Only active entries with a VLAN feed a pseudowire's hwFec, in-LIF profile and orientation.
  bool active() const noexcept { return active_; }

  bool isEq(VplsDecapEntry const& other) const noexcept;
  bool operator==(VplsDecapEntry const& other) const noexcept { return isEq(other); }
  std::strong_ordering operator<=>(VplsDecapEntry const& other) const noexcept;
  // True when any field differs from a default-constructed entry.
  explicit operator bool() const noexcept;

  void writeText(Loom::TextWriter& w) const;
  static VplsDecapEntry readText(Loom::TextReader& r);

 private:
  Loom::String instanceContext_;
  Loom::String groupName_;
  std::uint32_t destination_ = 0;
  std::uint8_t inLifProfile_ = 0;
  std::uint32_t globalInLif_ = 0;
  std::uint32_t lifIndex_ = 0;
  std::uint8_t terminationProfile_ = 0;
  Netcore::MplsLabel label_;
  std::uint32_t innerDot1QTag_ = 0;
  bool controlWord_ = false;
  bool flowLabel_ = false;
  bool active_ = false;
};

}  // namespace Hardware::MarlTunnel
