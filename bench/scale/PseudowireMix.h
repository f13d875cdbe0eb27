#pragma once

#include <cstdint>

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Fab/NexthopIndex.h"
#include "Fab/VplsPwIntfInfo.h"
#include "Hardware/AradIhpLifTable.h"
#include "Netcore/IntfId.h"
#include "Netcore/MplsLabel.h"
#include "host/AgentHarness.h"

namespace Bench {

// The configuration of a switch at scale that the scale benchmarks program: `pseudowires`
// pseudowires Pseudowire1..PseudowireP, each carrying `vlans` VLANs, so P x V (pseudowire,
// VLAN) entries. Everything is a function of the pseudowire's number, so nothing is stored.
//
// Pseudowires come in VPLS instances of 16 ("vpls<k>"); every eighth instance is VLAN-aware.
// In each instance: six pseudowires in split-horizon group "core", four in "edge", two in "dc",
// three spokes without group, and one standby pseudowire (of group "core"). Group names are
// the same in every instance, so the per-VLAN-domain groups of all instances sharing a VLAN
// are three and fit the orientation allocator's four mesh slots. An instance's VLANs are V
// consecutive ids from 1..4000; VLAN v of a pseudowire has the normalised tag 4001 + v, so
// tags never equal a VLAN id (a VLAN-aware pseudowire's VTT2 entry is keyed by the VLAN id)
// and the decap entries of one pseudowire all have distinct keys. Labels, HW FEC ids and
// global in-LIFs are distinct per pseudowire.
class PseudowireMix {
 public:
  static constexpr std::uint32_t kPseudowiresPerInstance = 16;
  // Rows of the chip's in-LIF table, one per decap entry: the chip model hands out the indexes 1
  // to the table's largest.
  static constexpr std::uint64_t kChipInLifRows = Hardware::Marl::AradIhpLifTable::kMaxLifIndex;

  PseudowireMix(std::uint32_t pseudowires, std::uint32_t vlans);

  std::uint32_t pseudowires() const noexcept { return pseudowires_; }
  std::uint32_t vlans() const noexcept { return vlans_; }
  std::uint64_t entries() const noexcept { return std::uint64_t{pseudowires_} * vlans_; }
  // Pseudowires whose entries are per VLAN (all but the standby ones).
  std::uint32_t activePseudowires() const noexcept;
  // The decap entries the chip holds for the mix, each in a row of its in-LIF table: one per
  // active pseudowire and VLAN, and one per standby pseudowire, whose single entry belongs to no
  // VLAN. A VLAN-aware pseudowire's VTT2 entry is a VLAN translation entry and takes no row.
  std::uint64_t decapEntries() const noexcept;
  bool decapEntriesFitChip() const noexcept { return decapEntries() <= kChipInLifRows; }
  // The most pseudowires of `vlans` VLANs each whose decap entries fit the chip's in-LIF table
  // (at most the 65535 interface names allow).
  static std::uint32_t chipCapacityPseudowires(std::uint32_t vlans);

  // Pseudowire n, 1..pseudowires().
  Netcore::IntfId pwIntfId(std::uint32_t n) const;
  Fab::VplsPwIntfInfo config(std::uint32_t n) const;
  Netcore::MplsLabel label(std::uint32_t n) const;
  Fab::NexthopIndex encapHwFecId(std::uint32_t n) const;
  // VLAN v (0..vlans()-1) of pseudowire n, and its normalised tag.
  Bridging::VlanId vlan(std::uint32_t n, std::uint32_t v) const;
  Bridging::VlanIdOrNone tag(std::uint32_t v) const;

  // Writes pseudowire n's inputs as a pseudowire comes up: configuration, label, VLAN tag
  // infos, encapsulation HW FEC id.
  void add(Host::AgentHarness& harness, std::uint32_t n) const;
  // Deletes them again as a pseudowire goes down: VLAN tag infos from the last to the first,
  // FEC id, label, configuration. The last decap entry of a VLAN-aware pseudowire takes its
  // VTT2 entry with it under that entry's VLAN; removing the first VLAN last makes that the VLAN
  // the VTT2 entry was added under, so that nothing is left behind.
  void remove(Host::AgentHarness& harness, std::uint32_t n) const;
  void addAll(Host::AgentHarness& harness) const;
  void removeAll(Host::AgentHarness& harness) const;

 private:
  std::uint32_t pseudowires_;
  std::uint32_t vlans_;
};

}  // namespace Bench
