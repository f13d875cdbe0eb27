#include "MarlTunnel/ShowVplsDecapCliCallback.h"

#include <sstream>
#include <string>
#include <string_view>

#include "MarlTunnel/MarlTrace.h"

namespace Hardware::MarlTunnel {
namespace {

constexpr unsigned kVplsDecapKeyType = 13;
constexpr char kUnknownName[] = "-";
constexpr char kNoFilter[] = "None";

// VPLS decap SEM key: global in-LIF in bits 0-21, normalised tag in bits 22-33.
std::uint32_t keyGlobalInLif(std::uint64_t key) {
  return static_cast<std::uint32_t>(key & 0x3fffff);
}
std::uint32_t keyVlan(std::uint64_t key) {
  return static_cast<std::uint32_t>(key >> 22 & 0xfff);
}
// MPLS decap SEM key: label in bits 1-20.
std::uint32_t keyLabel(std::uint64_t key) {
  return static_cast<std::uint32_t>(key >> 1 & 0xfffff);
}
// SEM payload: local LIF index in bits 4-20.
std::uint32_t payloadLifIndex(std::uint64_t payload) {
  return static_cast<std::uint32_t>(payload >> 4 & 0x1ffff);
}

bool passes(Loom::String const& filter, Loom::String const& value) {
  return filter == kNoFilter || filter == value;
}

}  // namespace

ShowVplsDecapCliCallback::ShowVplsDecapCliCallback(
    Loom::String const& handlerName, Loom::String const& command,
    Loom::Ptr<Fab::HwVplsPwDecapConfig const> hwVplsPwDecapConfig,
    Loom::Ptr<Fab::HwVplsPwConfig const> hwVplsPwConfig, Loom::Ptr<Marl::SemShadow const> semShadow,
    Loom::Ptr<Marl::AradIhpLifTable const> lifShadow,
    Loom::Ptr<Netcore::IntfIdDisplayContext const> intfIdDisplayContext)
    : AgentSocketCallback(handlerName, command),
      hwVplsPwDecapConfig_(std::move(hwVplsPwDecapConfig)),
      hwVplsPwConfig_(std::move(hwVplsPwConfig)),
      semShadow_(std::move(semShadow)),
      lifShadow_(std::move(lifShadow)),
      intfIdDisplayContext_(std::move(intfIdDisplayContext)) {}

Loom::Ptr<ShowVplsDecapCliCallback> showVplsDecapCliCallbackFactory(
    Loom::String const& handlerName, Loom::String const& command,
    Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
    Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig,
    Loom::Ptr<Marl::SemShadow const> const& semShadow,
    Loom::Ptr<Marl::AradIhpLifTable const> const& lifShadow,
    Loom::Ptr<Netcore::IntfIdDisplayContext const> const& intfIdDisplayContext) {
  return Loom::make<ShowVplsDecapCliCallback>(handlerName, command, hwVplsPwDecapConfig,
                                              hwVplsPwConfig, semShadow, lifShadow,
                                              intfIdDisplayContext);
}

Loom::TypeData const& ShowVplsDecapCliCallback::type() {
  using Loom::AttributeKind;
  static Loom::TypeData const data(
      typeName,
      {
          {"hwVplsPwDecapConfig", AttributeKind::reference, "Fab::HwVplsPwDecapConfig"},
          {"hwVplsPwConfig", AttributeKind::reference, "Fab::HwVplsPwConfig"},
          {"semShadow", AttributeKind::reference, "Hardware::Marl::SemShadow"},
          {"lifShadow", AttributeKind::reference, "Hardware::Marl::AradIhpLifTable"},
          {"intfIdDisplayContext", AttributeKind::reference, "Netcore::IntfIdDisplayContext"},
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(ShowVplsDecapCliCallback::type());
}

std::map<std::uint32_t, Loom::String>& ShowVplsDecapCliCallback::globalInLifToIntfMap() {
  static std::map<std::uint32_t, Loom::String> map;
  return map;
}

std::map<Netcore::MplsLabel, Loom::String>& ShowVplsDecapCliCallback::labelToIntfMap() {
  static std::map<Netcore::MplsLabel, Loom::String> map;
  return map;
}

void ShowVplsDecapCliCallback::populateGlobalInLifToIntfMap() {
  MARL_TRACE(kTraceDetail, "ShowVplsDecapCliCallback::", "populateGlobalInLifToIntfMap");
  if (!hwVplsPwDecapConfig_) {
    return;
  }
  for (auto const& [pwIntfId, index] : hwVplsPwDecapConfig_->encapHwFecId()) {
    globalInLifToIntfMap()[index.globalInLif()] = Loom::String(pwIntfId.toString());
  }
}

void ShowVplsDecapCliCallback::populateLabelToIntfMap() {
  MARL_TRACE(kTraceDetail, "ShowVplsDecapCliCallback::", "populateLabelToIntfMap");
  if (!hwVplsPwDecapConfig_) {
    return;
  }
  for (auto const& [pwIntfId, label] : hwVplsPwDecapConfig_->decapLabel()) {
    labelToIntfMap()[label] = Loom::String(pwIntfId.toString());
  }
}

void ShowVplsDecapCliCallback::handleCommand(std::uint32_t fd, Loom::String const& args) {
  MARL_TRACE(kTraceDetail, "ShowVplsDecapCliCallback::", "handleCommand");
  std::istringstream words(args.str());
  std::string instanceName;
  std::string groupName;
  std::string interfaceName;
  words >> instanceName >> groupName >> interfaceName;
  MARL_TRACE(kTraceDetail, "instanceName = ", instanceName, " groupName = ", groupName,
             " interfaceName = ", interfaceName);
  auto const text = printVplsDecapEntries(decapEntries(instanceName, groupName, interfaceName));
  // Up to the first NUL byte, as a "%s" conversion would write it.
  Orb::writeAll(static_cast<int>(fd), std::string_view(text.c_str()));
}

VplsDecapEntryMap ShowVplsDecapCliCallback::decapEntries(Loom::String const& instanceName,
                                                         Loom::String const& groupName,
                                                         Loom::String const& interfaceName) {
  populateLabelToIntfMap();
  populateGlobalInLifToIntfMap();
  Filters const filters{instanceName, groupName, interfaceName};
  VplsDecapEntryMap result;
  walkVplsDecap(filters, result);
  walkMplsDecap(filters, result);
  return result;
}

bool ShowVplsDecapCliCallback::fillEntry(Loom::String const& pwName, Filters const& filters,
                                         std::uint32_t lifIndex, Marl::AradIhpLifEntry const& lif,
                                         std::uint32_t innerDot1QTag, VplsDecapEntry& entry) const {
  auto const pwIntfId = Netcore::IntfId(pwName.view());
  auto const info =
      hwVplsPwConfig_ ? hwVplsPwConfig_->vplsPwIntfInfo(pwIntfId) : Fab::VplsPwIntfInfo();
  auto const shortName =
      intfIdDisplayContext_ ? intfIdDisplayContext_->shortName(pwIntfId) : pwIntfId.toString();
  if (!passes(filters.instanceName, info.vplsInstanceName()) ||
      !passes(filters.groupName, info.groupName()) ||
      !passes(filters.interfaceName, Loom::String(shortName))) {
    return false;
  }
  Marl::AradLifPweToP2p const pwe(lif);
  auto const label =
      hwVplsPwDecapConfig_ ? hwVplsPwDecapConfig_->decapLabel(pwIntfId) : Netcore::MplsLabel();
  entry =
      VplsDecapEntry(info.vplsInstanceName(), info.groupName(), pwe.destination(),
                     pwe.inLifProfile(), pwe.globalInLif(), lifIndex, pwe.terminationProfile(),
                     label, innerDot1QTag, info.controlWord(), info.flowLabel(), !info.standby());
  return true;
}

template <class Visit>
void ShowVplsDecapCliCallback::forEachDecapEntry(Marl::SemShadow::Table table,
                                                 Visit&& visit) const {
  if (!semShadow_ || !lifShadow_) {
    return;
  }
  // Only VPLS decap keys with a payload on the entry's first FAP.
  Marl::SemTableReader const reader(semShadow_, table);
  for (Marl::SemExactMatchIterator it(*semShadow_, table); !it.done(); it.next()) {
    auto const key = it.key();
    if (Marl::SemShadow::keyType(key) != kVplsDecapKeyType) {
      continue;
    }
    auto const payload = reader.payload(Marl::SemShadow::firstFap(it.fapMask()), key);
    if (payload != Marl::SemShadow::kEmptyPayload) {
      visit(key, payload);
    }
  }
}

void ShowVplsDecapCliCallback::walkVplsDecap(Filters const& filters,
                                             VplsDecapEntryMap& result) const {
  forEachDecapEntry(Marl::SemShadow::Table::vplsDecap, [&](std::uint64_t key,
                                                           std::uint64_t payload) {
    auto const globalInLif = keyGlobalInLif(key);
    // 0xfff is not a VLAN: the range error ends the command without an answer.
    Bridging::VlanIdOrNone const tag(keyVlan(key));
    auto const lifIndex = payloadLifIndex(payload);
    auto const lif = lifShadow_->lifEntry(lifIndex);
    if (!lif.isPseudowire()) {
      return;
    }
    Loom::String pwName = kUnknownName;
    if (globalInLif != 0xFFFFFFFF) {
      auto const& name = globalInLifToIntfMap()[globalInLif];
      if (!name.empty()) {
        pwName = name;
      }
    }
    VplsDecapEntry entry;
    if (pwName == kUnknownName || !fillEntry(pwName, filters, lifIndex, lif, tag.value(), entry)) {
      return;
    }
    Bridging::VlanIdOrNone const vlan(Marl::AradLifPweToP2p(lif).vlan());
    result[pwName][vlan] = entry;
  });
}

void ShowVplsDecapCliCallback::walkMplsDecap(Filters const& filters,
                                             VplsDecapEntryMap& result) const {
  forEachDecapEntry(
      Marl::SemShadow::Table::mplsDecap, [&](std::uint64_t key, std::uint64_t payload) {
        auto const lifIndex = payloadLifIndex(payload);
        auto const lif = lifShadow_->lifEntry(lifIndex);
        if (!lif.isPseudowire()) {
          return;
        }
        auto const& name = labelToIntfMap()[Netcore::MplsLabel(keyLabel(key))];
        if (name.empty()) {
          MARL_TRACE(kTraceNotable,
                     "Entry present in shadow but missing from hwVplsPwDecapConfig->decapLabel");
          return;
        }
        VplsDecapEntry entry;
        if (!fillEntry(name, filters, lifIndex, lif, 0, entry)) {
          return;
        }
        result[name][Bridging::VlanIdOrNone()] = entry;
      });
}

}  // namespace Hardware::MarlTunnel
