#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Bridging/VlanIdOrNone.h"
#include "Fab/HwVplsPwConfig.h"
#include "Fab/HwVplsPwDecapConfig.h"
#include "Hardware/AradIhpLifTable.h"
#include "Loom/Ptr.h"
#include "Loom/String.h"
#include "MarlTunnel/VplsDecapOutput.h"
#include "Netcore/IntfIdDisplayContext.h"

namespace Hardware::MarlTunnel {

// Gathers the show command's entries as the walks over the chip's tables meet them, and hands
// them over as the answer's map. What an entry takes from its pseudowire's configuration
// (instance, group, label, flags, whether the filters let it through) is looked up once per
// pseudowire, not once per entry, and the map is built in key order at the end instead of
// searched by name for every entry. An entry replaces an earlier one of the same pseudowire and
// VLAN, as an assignment into the map would.
//
// Lives for one command; reads the configuration it is given, which must not change meanwhile.
// Pseudowire names passed to add() must outlive the collector. Single-threaded.
class DecapEntryCollector {
 public:
  // Instance, group and interface short name filters; "None" lets everything through.
  struct Filters {
    Loom::String instanceName;
    Loom::String groupName;
    Loom::String interfaceName;
  };

  // `pseudowires`: about how many pseudowires the walks will meet.
  DecapEntryCollector(Filters filters,
                      Loom::Ptr<Fab::HwVplsPwDecapConfig const> hwVplsPwDecapConfig,
                      Loom::Ptr<Fab::HwVplsPwConfig const> hwVplsPwConfig,
                      Loom::Ptr<Netcore::IntfIdDisplayContext const> intfIdDisplayContext,
                      std::size_t pseudowires);

  // The entry of one hardware entry of pseudowire `pwName`, shown under `vlan`, unless the
  // filters leave the pseudowire out.
  void add(Loom::String const& pwName, Bridging::VlanIdOrNone vlan, std::uint32_t lifIndex,
           Marl::AradIhpLifEntry const& lif, std::uint32_t innerDot1QTag);

  // Every entry added: the pseudowires in name order, each with one entry per VLAN.
  VplsDecapEntryList take();

 private:
  // One pseudowire met by the walks: what its entries take from its configuration, and its
  // entries in the order they were added.
  struct Pseudowire {
    bool shown;
    Fab::VplsPwIntfInfo info;
    Netcore::MplsLabel label;
    PseudowireDecapEntries entries;
  };

  Pseudowire& pseudowire(Loom::String const& pwName);
  bool passes(Fab::VplsPwIntfInfo const& info, Netcore::IntfId pwIntfId) const;

  Filters const filters_;
  Loom::Ptr<Fab::HwVplsPwDecapConfig const> const hwVplsPwDecapConfig_;
  Loom::Ptr<Fab::HwVplsPwConfig const> const hwVplsPwConfig_;
  Loom::Ptr<Netcore::IntfIdDisplayContext const> const intfIdDisplayContext_;
  std::vector<Pseudowire> pseudowires_;
  std::unordered_map<Loom::String const*, std::size_t> byObject_;
  std::unordered_map<std::string_view, std::size_t> byName_;
};

}  // namespace Hardware::MarlTunnel
