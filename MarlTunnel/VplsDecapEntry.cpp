#include "MarlTunnel/VplsDecapEntry.h"

namespace Hardware::MarlTunnel {
namespace {

template <class T>
std::strong_ordering compareUnsigned(T a, T b) noexcept {
  return a <=> b;
}

std::strong_ordering compareStrings(Loom::String const& a, Loom::String const& b) noexcept {
  auto const c = a.compare(b);
  return c < 0 ? std::strong_ordering::less
               : (c > 0 ? std::strong_ordering::greater : std::strong_ordering::equal);
}

}  // namespace

VplsDecapEntry::VplsDecapEntry(Loom::String instanceContext, Loom::String groupName,
                               std::uint32_t destination, std::uint8_t inLifProfile,
                               std::uint32_t globalInLif, std::uint32_t lifIndex,
                               std::uint8_t terminationProfile, Netcore::MplsLabel label,
                               std::uint32_t innerDot1QTag, bool controlWord, bool flowLabel,
                               bool active)
    : instanceContext_(std::move(instanceContext)),
      groupName_(std::move(groupName)),
      destination_(destination),
      inLifProfile_(inLifProfile),
      globalInLif_(globalInLif),
      lifIndex_(lifIndex),
      terminationProfile_(terminationProfile),
      label_(label),
      innerDot1QTag_(innerDot1QTag),
      controlWord_(controlWord),
      flowLabel_(flowLabel),
      active_(active) {}

Loom::TypeData const& VplsDecapEntry::type() {
  using Loom::AttributeKind;
  static Loom::TypeData const data(typeName,
                                   {
                                       {"instanceContext", AttributeKind::scalar, "Loom::String"},
                                       {"groupName", AttributeKind::scalar, "Loom::String"},
                                       {"destination", AttributeKind::scalar, "U32"},
                                       {"inLifProfile", AttributeKind::scalar, "U8"},
                                       {"globalInLif", AttributeKind::scalar, "U32"},
                                       {"lifIndex", AttributeKind::scalar, "U32"},
                                       {"terminationProfile", AttributeKind::scalar, "U8"},
                                       {"label", AttributeKind::scalar, "Netcore::MplsLabel"},
                                       {"innerDot1QTag", AttributeKind::scalar, "U32"},
                                       {"controlWord", AttributeKind::scalar, "bool"},
                                       {"flowLabel", AttributeKind::scalar, "bool"},
                                       {"active", AttributeKind::scalar, "bool"},
                                   },
                                   {}, hashable);
  return data;
}

namespace {
Loom::TypeRegistration const registration(VplsDecapEntry::type());
}

bool VplsDecapEntry::isEq(VplsDecapEntry const& other) const noexcept {
  return this == &other || (*this <=> other) == std::strong_ordering::equal;
}

std::strong_ordering VplsDecapEntry::operator<=>(VplsDecapEntry const& other) const noexcept {
  if (this == &other) {
    return std::strong_ordering::equal;
  }
  // Field by field in declaration order; the first difference decides.
  for (auto const c :
       {compareStrings(instanceContext_, other.instanceContext_),
        compareStrings(groupName_, other.groupName_),
        compareUnsigned(destination_, other.destination_),
        compareUnsigned(inLifProfile_, other.inLifProfile_),
        compareUnsigned(globalInLif_, other.globalInLif_),
        compareUnsigned(lifIndex_, other.lifIndex_),
        compareUnsigned(terminationProfile_, other.terminationProfile_),
        compareUnsigned(label_.value(), other.label_.value()),
        compareUnsigned(innerDot1QTag_, other.innerDot1QTag_),
        compareUnsigned(controlWord_, other.controlWord_),
        compareUnsigned(flowLabel_, other.flowLabel_), compareUnsigned(active_, other.active_)}) {
    if (c != std::strong_ordering::equal) {
      return c;
    }
  }
  return std::strong_ordering::equal;
}

VplsDecapEntry::operator bool() const noexcept {
  return !isEq(VplsDecapEntry());
}

void VplsDecapEntry::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("instanceContext", instanceContext_)
      .field("groupName", groupName_)
      .field("destination", destination_)
      .field("inLifProfile", inLifProfile_)
      .field("globalInLif", globalInLif_)
      .field("lifIndex", lifIndex_)
      .field("terminationProfile", terminationProfile_)
      .field("label", label_)
      .field("innerDot1QTag", innerDot1QTag_)
      .field("controlWord", controlWord_)
      .field("flowLabel", flowLabel_)
      .field("active", active_);
  w.endRecord();
}

VplsDecapEntry VplsDecapEntry::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  VplsDecapEntry e;
  e.instanceContext_ = r.field<Loom::String>("instanceContext");
  e.groupName_ = r.field<Loom::String>("groupName");
  e.destination_ = r.field<std::uint32_t>("destination");
  e.inLifProfile_ = r.field<std::uint8_t>("inLifProfile");
  e.globalInLif_ = r.field<std::uint32_t>("globalInLif");
  e.lifIndex_ = r.field<std::uint32_t>("lifIndex");
  e.terminationProfile_ = r.field<std::uint8_t>("terminationProfile");
  // The label's own parser; its range error names "label".
  e.label_ = r.field<Netcore::MplsLabel>("label");
  e.innerDot1QTag_ = r.field<std::uint32_t>("innerDot1QTag");
  e.controlWord_ = r.field<bool>("controlWord");
  e.flowLabel_ = r.field<bool>("flowLabel");
  e.active_ = r.field<bool>("active");
  r.endRecord();
  return e;
}

}  // namespace Hardware::MarlTunnel
