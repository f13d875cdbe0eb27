#include "bench/scale/PseudowireMix.h"

#include <stdexcept>
#include <string>

#include "Fab/VplsPwIntfVlanKey.h"

namespace Bench {
namespace {

constexpr std::uint32_t kVlanAwareInstanceEvery = 8;
constexpr std::uint32_t kVlanIds = 4000;
constexpr std::uint32_t kFirstTag = 4001;
constexpr std::uint32_t kMaxVlans = 4094 - kFirstTag + 1;
constexpr std::uint32_t kFirstLabel = 1000;
constexpr std::uint32_t kFirstHwFecId = 0x10000;
constexpr std::uint32_t kFirstGlobalInLif = 0x20000;

// The role of a pseudowire by its place in its instance.
constexpr std::uint32_t kLastCore = 5;
constexpr std::uint32_t kLastEdge = 9;
constexpr std::uint32_t kLastDc = 11;
constexpr std::uint32_t kStandbyPlace = 15;

std::uint32_t instanceOf(std::uint32_t n) {
  return (n - 1) / PseudowireMix::kPseudowiresPerInstance;
}
std::uint32_t placeOf(std::uint32_t n) {
  return (n - 1) % PseudowireMix::kPseudowiresPerInstance;
}

char const* groupOf(std::uint32_t place) {
  if (place <= kLastCore || place == kStandbyPlace) {
    return "core";
  }
  if (place <= kLastEdge) {
    return "edge";
  }
  return place <= kLastDc ? "dc" : "";
}

}  // namespace

PseudowireMix::PseudowireMix(std::uint32_t pseudowires, std::uint32_t vlans)
    : pseudowires_(pseudowires), vlans_(vlans) {
  if (pseudowires < 1 || pseudowires > Netcore::IntfId::kMaxPseudowire) {
    throw std::invalid_argument("pseudowires must be 1 to 65535 (the interface names), not " +
                                std::to_string(pseudowires));
  }
  if (vlans < 1 || vlans > kMaxVlans) {
    throw std::invalid_argument("VLANs per pseudowire must be 1 to " + std::to_string(kMaxVlans) +
                                ", not " + std::to_string(vlans));
  }
}

std::uint32_t PseudowireMix::activePseudowires() const noexcept {
  // The standby pseudowire is the last of each complete instance.
  return pseudowires_ - pseudowires_ / kPseudowiresPerInstance;
}

std::uint64_t PseudowireMix::decapEntries() const noexcept {
  auto const active = activePseudowires();
  return std::uint64_t{active} * vlans_ + (pseudowires_ - active);
}

std::uint32_t PseudowireMix::chipCapacityPseudowires(std::uint32_t vlans) {
  // Decap entries grow with every pseudowire added, so the largest fitting count is found by
  // bisection; one pseudowire of the allowed VLANs always fits.
  std::uint32_t fits = 1;
  std::uint32_t beyond = Netcore::IntfId::kMaxPseudowire + 1;
  while (beyond - fits > 1) {
    auto const middle = fits + (beyond - fits) / 2;
    if (PseudowireMix(middle, vlans).decapEntriesFitChip()) {
      fits = middle;
    } else {
      beyond = middle;
    }
  }
  return fits;
}

Netcore::IntfId PseudowireMix::pwIntfId(std::uint32_t n) const {
  return Netcore::IntfId::pseudowire(n);
}

Fab::VplsPwIntfInfo PseudowireMix::config(std::uint32_t n) const {
  auto const instance = instanceOf(n);
  auto const place = placeOf(n);
  std::string const group = groupOf(place);
  return Fab::VplsPwIntfInfo(pwIntfId(n))
      .vplsInstanceNameIs(Loom::String("vpls" + std::to_string(instance)))
      .groupNameIs(Loom::String(group))
      .splitHorizonIs(!group.empty())
      .standbyIs(place == kStandbyPlace)
      .vlanAwareIs(instance % kVlanAwareInstanceEvery == kVlanAwareInstanceEvery - 1)
      .controlWordIs(place % 2 == 0)
      .remoteLabelIs(Netcore::MplsLabel(kFirstLabel + n));
}

Netcore::MplsLabel PseudowireMix::label(std::uint32_t n) const {
  return Netcore::MplsLabel(kFirstLabel + n);
}

Fab::NexthopIndex PseudowireMix::encapHwFecId(std::uint32_t n) const {
  return Fab::NexthopIndex(kFirstHwFecId + n, kFirstGlobalInLif + n);
}

Bridging::VlanId PseudowireMix::vlan(std::uint32_t n, std::uint32_t v) const {
  return Bridging::VlanId(1 + (instanceOf(n) * vlans_ + v) % kVlanIds);
}

Bridging::VlanIdOrNone PseudowireMix::tag(std::uint32_t v) const {
  return Bridging::VlanIdOrNone(kFirstTag + v);
}

void PseudowireMix::add(Host::AgentHarness& harness, std::uint32_t n) const {
  auto const pw = pwIntfId(n);
  harness.hwVplsPwConfig->vplsPwIntfInfoIs(pw, config(n));
  auto& decap = *harness.hwVplsPwDecapConfig;
  decap.decapLabelIs(pw, label(n));
  for (std::uint32_t v = 0; v < vlans_; ++v) {
    decap.vlanTagInfoIs(Fab::VplsPwIntfVlanKey(pw, vlan(n, v)), tag(v));
  }
  decap.encapHwFecIdIs(pw, encapHwFecId(n));
}

void PseudowireMix::remove(Host::AgentHarness& harness, std::uint32_t n) const {
  auto const pw = pwIntfId(n);
  auto& decap = *harness.hwVplsPwDecapConfig;
  for (std::uint32_t v = vlans_; v-- > 0;) {
    decap.vlanTagInfoDel(Fab::VplsPwIntfVlanKey(pw, vlan(n, v)));
  }
  decap.encapHwFecIdDel(pw);
  decap.decapLabelDel(pw);
  harness.hwVplsPwConfig->vplsPwIntfInfoDel(pw);
}

void PseudowireMix::addAll(Host::AgentHarness& harness) const {
  for (std::uint32_t n = 1; n <= pseudowires_; ++n) {
    add(harness, n);
  }
}

void PseudowireMix::removeAll(Host::AgentHarness& harness) const {
  for (std::uint32_t n = 1; n <= pseudowires_; ++n) {
    remove(harness, n);
  }
}

}  // namespace Bench
