#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>

#include "Fab/HwVplsPwConfig.h"
#include "Fab/HwVplsPwDecapConfig.h"
#include "Hardware/AradIhpLifTable.h"
#include "Hardware/SemShadow.h"
#include "Loom/Hash.h"
#include "Loom/Ptr.h"
#include "Loom/String.h"
#include "MarlTunnel/DecapEntryCollector.h"
#include "MarlTunnel/VplsDecapOutput.h"
#include "Netcore/IntfIdDisplayContext.h"
#include "Netcore/MplsLabel.h"
#include "Orb/AgentSocketCallback.h"

namespace Hardware::MarlTunnel {

// Answers the "vplsDecap" command of the agent socket: reads what is programmed in the chip's
// table shadows (the VPLS decap and MPLS decap exact-match tables and the in-LIF table), joins
// each hardware entry with the configuration to find its pseudowire, instance and group, and
// writes the answer text. The argument text is three words: instance, group and interface
// short name filters, "None" for a filter that is not used. It only reads.
//
// Two process-wide maps (global in-LIF to pseudowire name, label to pseudowire name) are
// added to on every command and never cleared, so that a hardware entry outlasting its
// configuration is still attributed. Runs where the agent's socket handler calls it (the
// scheduler thread); takes no locks.
class ShowVplsDecapCliCallback : public Orb::AgentSocketCallback {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::ShowVplsDecapCliCallback";

  ShowVplsDecapCliCallback(Loom::String const& handlerName, Loom::String const& command,
                           Loom::Ptr<Fab::HwVplsPwDecapConfig const> hwVplsPwDecapConfig,
                           Loom::Ptr<Fab::HwVplsPwConfig const> hwVplsPwConfig,
                           Loom::Ptr<Marl::SemShadow const> semShadow,
                           Loom::Ptr<Marl::AradIhpLifTable const> lifShadow,
                           Loom::Ptr<Netcore::IntfIdDisplayContext const> intfIdDisplayContext);

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  void handleCommand(std::uint32_t fd, Loom::String const& args) override;
  void populateGlobalInLifToIntfMap();
  void populateLabelToIntfMap();

  // The entries the command would print for these filters, as a map and as the command
  // prints them.
  VplsDecapEntryMap decapEntries(Loom::String const& instanceName, Loom::String const& groupName,
                                 Loom::String const& interfaceName);
  VplsDecapEntryList decapEntryList(Loom::String const& instanceName, Loom::String const& groupName,
                                    Loom::String const& interfaceName);

  // Only ever looked up, never walked in order, so hashed.
  static std::unordered_map<std::uint32_t, Loom::String>& globalInLifToIntfMap();
  static std::unordered_map<Netcore::MplsLabel, Loom::String, Loom::Hasher<Netcore::MplsLabel>>&
  labelToIntfMap();

 private:
  template <class Visit>
  void forEachDecapEntry(Marl::SemShadow::Table table, Visit&& visit) const;
  void walkVplsDecap(DecapEntryCollector& entries) const;
  void walkMplsDecap(DecapEntryCollector& entries) const;

  Loom::Ptr<Fab::HwVplsPwDecapConfig const> const hwVplsPwDecapConfig_;
  Loom::Ptr<Fab::HwVplsPwConfig const> const hwVplsPwConfig_;
  Loom::Ptr<Marl::SemShadow const> const semShadow_;
  Loom::Ptr<Marl::AradIhpLifTable const> const lifShadow_;
  Loom::Ptr<Netcore::IntfIdDisplayContext const> const intfIdDisplayContext_;
};

Loom::Ptr<ShowVplsDecapCliCallback> showVplsDecapCliCallbackFactory(
    Loom::String const& handlerName, Loom::String const& command,
    Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
    Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig,
    Loom::Ptr<Marl::SemShadow const> const& semShadow,
    Loom::Ptr<Marl::AradIhpLifTable const> const& lifShadow,
    Loom::Ptr<Netcore::IntfIdDisplayContext const> const& intfIdDisplayContext);

}  // namespace Hardware::MarlTunnel
