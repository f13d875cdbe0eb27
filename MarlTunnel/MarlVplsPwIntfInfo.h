#pragma once

#include <cstdint>
#include <string_view>

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Slab.h"
#include "Loom/String.h"
#include "Loom/TypeData.h"
#include "Netcore/IntfId.h"
#include "Netcore/MplsLabel.h"

namespace Hardware::MarlTunnel {

// The decap state machine's record of one pseudowire: the pieces of its configuration that
// have arrived (label, per-VLAN normalised tags, instance and group, flags) and how many decap
// entries are programmed for it.
//
// A record exists while any piece is held: it is created by whichever input of the pseudowire
// arrives first, and dropped once nothing is left (no instance name, no label, no tags, no FEC
// id, not standby). A record with an empty instance name that is not standby is a placeholder
// for a pseudowire whose configuration has not arrived. `pwIntfId` is the record's key and never
// changes. Records are shared (`Loom::Ptr`), so a handler may keep one across calls that drop
// it from the collection. Allocated from the type's slab. Runs on the agent's scheduler thread.
class MarlVplsPwIntfInfo : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::MarlVplsPwIntfInfo";
  LOOM_SLAB_ALLOCATED(MarlVplsPwIntfInfo, typeName)

  explicit MarlVplsPwIntfInfo(Netcore::IntfId pwIntfId) : pwIntfId_(pwIntfId) {}

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  Netcore::IntfId pwIntfId() const noexcept { return pwIntfId_; }

  // The decap label in effect; no label (0x100000) until one arrives.
  Netcore::MplsLabel decapLabel() const noexcept { return decapLabel_; }
  void decapLabelIs(Netcore::MplsLabel v) noexcept { decapLabel_ = v; }

  // Per VLAN of the pseudowire, the normalised tag its decap entry uses; none (0) when absent.
  auto const& normalisedTagPerVlan() const noexcept { return normalisedTagPerVlan_; }
  Bridging::VlanIdOrNone normalisedTagPerVlan(Bridging::VlanId v) const {
    return normalisedTagPerVlan_.valueOr(v, {});
  }
  bool normalisedTagPerVlanHas(Bridging::VlanId v) const { return normalisedTagPerVlan_.has(v); }
  void normalisedTagPerVlanIs(Bridging::VlanId v, Bridging::VlanIdOrNone tag) {
    normalisedTagPerVlan_.set(v, tag);
  }
  void normalisedTagPerVlanDel(Bridging::VlanId v) { normalisedTagPerVlan_.erase(v); }
  void normalisedTagPerVlanDelAll() { normalisedTagPerVlan_.clear(); }

  Loom::String const& vplsInstanceName() const noexcept { return vplsInstanceName_; }
  void vplsInstanceNameIs(Loom::String v) { vplsInstanceName_ = std::move(v); }
  Loom::String const& groupName() const noexcept { return groupName_; }
  void groupNameIs(Loom::String v) { groupName_ = std::move(v); }

  std::uint8_t vlanAware() const noexcept { return vlanAware_; }
  void vlanAwareIs(std::uint8_t v) noexcept { vlanAware_ = v; }
  // An encapsulation HW FEC id is known for the pseudowire.
  std::uint8_t encapHwFecIdAvail() const noexcept { return encapHwFecIdAvail_; }
  void encapHwFecIdAvailIs(std::uint8_t v) noexcept { encapHwFecIdAvail_ = v; }
  std::uint8_t splitHorizon() const noexcept { return splitHorizon_; }
  void splitHorizonIs(std::uint8_t v) noexcept { splitHorizon_ = v; }
  std::uint8_t standby() const noexcept { return standby_; }
  void standbyIs(std::uint8_t v) noexcept { standby_ = v; }

  // Decap entries programmed for the pseudowire (its VTT2 entry not counted).
  std::uint32_t countProgrammed() const noexcept { return countProgrammed_; }
  void countProgrammedIs(std::uint32_t v) noexcept { countProgrammed_ = v; }

  // A placeholder: created by another input before the pseudowire's configuration arrived.
  bool placeholder() const noexcept { return vplsInstanceName_.empty() && !standby_; }

 private:
  Netcore::IntfId const pwIntfId_;
  Netcore::MplsLabel decapLabel_;
  Loom::Collection<Bridging::VlanId, Bridging::VlanIdOrNone> normalisedTagPerVlan_;
  Loom::String vplsInstanceName_;
  Loom::String groupName_;
  std::uint8_t vlanAware_ = 0;
  std::uint8_t encapHwFecIdAvail_ = 0;
  std::uint8_t splitHorizon_ = 0;
  std::uint8_t standby_ = 0;
  std::uint32_t countProgrammed_ = 0;
};

}  // namespace Hardware::MarlTunnel
