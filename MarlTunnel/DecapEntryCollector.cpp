#include "MarlTunnel/DecapEntryCollector.h"

#include <algorithm>

namespace Hardware::MarlTunnel {
namespace {

constexpr char kNoFilter[] = "None";

bool passes(Loom::String const& filter, Loom::String const& value) {
  return filter == kNoFilter || filter == value;
}

}  // namespace

DecapEntryCollector::DecapEntryCollector(
    Filters filters, Loom::Ptr<Fab::HwVplsPwDecapConfig const> hwVplsPwDecapConfig,
    Loom::Ptr<Fab::HwVplsPwConfig const> hwVplsPwConfig,
    Loom::Ptr<Netcore::IntfIdDisplayContext const> intfIdDisplayContext, std::size_t pseudowires)
    : filters_(std::move(filters)),
      hwVplsPwDecapConfig_(std::move(hwVplsPwDecapConfig)),
      hwVplsPwConfig_(std::move(hwVplsPwConfig)),
      intfIdDisplayContext_(std::move(intfIdDisplayContext)) {
  pseudowires_.reserve(pseudowires);
  byObject_.reserve(pseudowires);
  byName_.reserve(pseudowires);
}

bool DecapEntryCollector::passes(Fab::VplsPwIntfInfo const& info, Netcore::IntfId pwIntfId) const {
  auto const shortName =
      intfIdDisplayContext_ ? intfIdDisplayContext_->shortName(pwIntfId) : pwIntfId.toString();
  return MarlTunnel::passes(filters_.instanceName, info.vplsInstanceName()) &&
         MarlTunnel::passes(filters_.groupName, info.groupName()) &&
         MarlTunnel::passes(filters_.interfaceName, Loom::String(shortName));
}

DecapEntryCollector::Pseudowire& DecapEntryCollector::pseudowire(Loom::String const& pwName) {
  // The walks pass the same name objects again and again; equal names in different objects
  // are the same pseudowire.
  auto const [known, first] = byObject_.try_emplace(&pwName, pseudowires_.size());
  if (!first) {
    return pseudowires_[known->second];
  }
  auto const [found, added] = byName_.try_emplace(pwName.view(), pseudowires_.size());
  if (!added) {
    known->second = found->second;
    return pseudowires_[found->second];
  }
  auto const pwIntfId = Netcore::IntfId(pwName.view());
  auto info = hwVplsPwConfig_ ? hwVplsPwConfig_->vplsPwIntfInfo(pwIntfId) : Fab::VplsPwIntfInfo();
  bool const shown = passes(info, pwIntfId);
  auto const label =
      hwVplsPwDecapConfig_ ? hwVplsPwDecapConfig_->decapLabel(pwIntfId) : Netcore::MplsLabel();
  return pseudowires_.emplace_back(Pseudowire{shown, std::move(info), label, {&pwName, {}}});
}

void DecapEntryCollector::add(Loom::String const& pwName, Bridging::VlanIdOrNone vlan,
                              std::uint32_t lifIndex, Marl::AradIhpLifEntry const& lif,
                              std::uint32_t innerDot1QTag) {
  auto& pw = pseudowire(pwName);
  if (!pw.shown) {
    return;
  }
  Marl::AradLifPweToP2p const pwe(lif);
  auto const& info = pw.info;
  pw.entries.vlans.emplace_back(
      vlan, VplsDecapEntry(info.vplsInstanceName(), info.groupName(), pwe.destination(),
                           pwe.inLifProfile(), pwe.globalInLif(), lifIndex,
                           pwe.terminationProfile(), pw.label, innerDot1QTag, info.controlWord(),
                           info.flowLabel(), !info.standby()));
}

VplsDecapEntryList DecapEntryCollector::take() {
  VplsDecapEntryList result;
  for (auto& pw : pseudowires_) {
    if (!pw.entries.vlans.empty()) {
      result.push_back(std::move(pw.entries));
    }
  }
  std::sort(result.begin(), result.end(),
            [](auto const& a, auto const& b) { return a.name->view() < b.name->view(); });
  for (auto& pw : result) {
    auto& vlans = pw.vlans;
    // Per VLAN, the entry added last is the one that stays. The walks mostly meet a
    // pseudowire's VLANs in order already.
    auto const before = [](auto const& a, auto const& b) { return a.first < b.first; };
    if (!std::is_sorted(vlans.begin(), vlans.end(), before)) {
      std::stable_sort(vlans.begin(), vlans.end(), before);
    }
    auto const last = std::unique(vlans.rbegin(), vlans.rend(), [](auto const& a, auto const& b) {
                        return a.first == b.first;
                      }).base();
    vlans.erase(vlans.begin(), last);
  }
  pseudowires_.clear();
  return result;
}

}  // namespace Hardware::MarlTunnel
