#include "MarlTunnel/ShowVplsDecapCliCallback.h"

#include <sstream>
#include <string>
#include <string_view>

#include "MarlTunnel/MarlTrace.h"

namespace Hardware::MarlTunnel {
namespace {

constexpr unsigned kVplsDecapKeyType = 13;
constexpr char kUnknownName[] = "-";

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

std::unordered_map<std::uint32_t, Loom::String>& ShowVplsDecapCliCallback::globalInLifToIntfMap() {
  static std::unordered_map<std::uint32_t, Loom::String> map;
  return map;
}

std::unordered_map<Netcore::MplsLabel, Loom::String, Loom::Hasher<Netcore::MplsLabel>>&
ShowVplsDecapCliCallback::labelToIntfMap() {
  static std::unordered_map<Netcore::MplsLabel, Loom::String, Loom::Hasher<Netcore::MplsLabel>> map;
  return map;
}

namespace {

// Names the pseudowire under a key of a name map; the name is only built when it differs.
template <class Map, class Key>
void remember(Map& names, Key const& key, Netcore::IntfId pwIntfId) {
  auto& name = names[key];
  auto const text = pwIntfId.toString();
  if (name.view() != text) {
    name = Loom::String(text);
  }
}

}  // namespace

void ShowVplsDecapCliCallback::populateGlobalInLifToIntfMap() {
  MARL_TRACE(kTraceDetail, "ShowVplsDecapCliCallback::", "populateGlobalInLifToIntfMap");
  if (!hwVplsPwDecapConfig_) {
    return;
  }
  for (auto const& [pwIntfId, index] : hwVplsPwDecapConfig_->encapHwFecId()) {
    remember(globalInLifToIntfMap(), index.globalInLif(), pwIntfId);
  }
}

void ShowVplsDecapCliCallback::populateLabelToIntfMap() {
  MARL_TRACE(kTraceDetail, "ShowVplsDecapCliCallback::", "populateLabelToIntfMap");
  if (!hwVplsPwDecapConfig_) {
    return;
  }
  for (auto const& [pwIntfId, label] : hwVplsPwDecapConfig_->decapLabel()) {
    remember(labelToIntfMap(), label, pwIntfId);
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
  auto const text = printVplsDecapEntries(decapEntryList(instanceName, groupName, interfaceName));
  // Up to the first NUL byte, as a "%s" conversion would write it.
  Orb::writeAll(static_cast<int>(fd), std::string_view(text.c_str()));
}

VplsDecapEntryMap ShowVplsDecapCliCallback::decapEntries(Loom::String const& instanceName,
                                                         Loom::String const& groupName,
                                                         Loom::String const& interfaceName) {
  return toMap(decapEntryList(instanceName, groupName, interfaceName));
}

VplsDecapEntryList ShowVplsDecapCliCallback::decapEntryList(Loom::String const& instanceName,
                                                            Loom::String const& groupName,
                                                            Loom::String const& interfaceName) {
  populateLabelToIntfMap();
  populateGlobalInLifToIntfMap();
  DecapEntryCollector entries({instanceName, groupName, interfaceName}, hwVplsPwDecapConfig_,
                              hwVplsPwConfig_, intfIdDisplayContext_,
                              hwVplsPwDecapConfig_ ? hwVplsPwDecapConfig_->decapLabel().size() : 0);
  walkVplsDecap(entries);
  walkMplsDecap(entries);
  return entries.take();
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

void ShowVplsDecapCliCallback::walkVplsDecap(DecapEntryCollector& entries) const {
  forEachDecapEntry(Marl::SemShadow::Table::vplsDecap,
                    [&](std::uint64_t key, std::uint64_t payload) {
                      auto const globalInLif = keyGlobalInLif(key);
                      // 0xfff is not a VLAN: the range error ends the command without an answer.
                      Bridging::VlanIdOrNone const tag(keyVlan(key));
                      auto const lifIndex = payloadLifIndex(payload);
                      auto const lif = lifShadow_->lifEntry(lifIndex);
                      if (!lif.isPseudowire()) {
                        return;
                      }
                      Loom::String const* pwName = nullptr;
                      if (globalInLif != 0xFFFFFFFF) {
                        auto const& name = globalInLifToIntfMap()[globalInLif];
                        if (!name.empty() && name != kUnknownName) {
                          pwName = &name;
                        }
                      }
                      if (!pwName) {
                        return;
                      }
                      Bridging::VlanIdOrNone const vlan(Marl::AradLifPweToP2p(lif).vlan());
                      entries.add(*pwName, vlan, lifIndex, lif, tag.value());
                    });
}

void ShowVplsDecapCliCallback::walkMplsDecap(DecapEntryCollector& entries) const {
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
        entries.add(name, Bridging::VlanIdOrNone(), lifIndex, lif, 0);
      });
}

}  // namespace Hardware::MarlTunnel
