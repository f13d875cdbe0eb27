#pragma once

#include <string_view>

#include "Bridging/VlanIdOrNone.h"
#include "Fab/NexthopIndex.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"
#include "Netcore/IntfId.h"
#include "Netcore/MplsLabel.h"

namespace Fab {

// The decapsulation side of the pseudowire configuration, as the hardware agents see it:
// per (pseudowire, VLAN) the normalised tag, per pseudowire its encapsulation HW FEC index
// (FEC id and global in-LIF) and its decapsulation label, and two start-up flags.
//
// Written by the configuration agents and, for the start-up flags, by the tunnel agent's
// wrapper; read by the VPLS state machines and the show command. Every write notifies the
// subscribed reactors synchronously. Runs on the agent's scheduler thread; takes no locks.
class HwVplsPwDecapConfig : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::HwVplsPwDecapConfig";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onVlanTagInfo(VplsPwIntfVlanKey const&) {}
    virtual void onEncapHwFecId(Netcore::IntfId const&) {}
    virtual void onDecapLabel(Netcore::IntfId const&) {}
    virtual void onStartupSyncDone() {}
    virtual void onRestartDone() {}
  };

  static Loom::Ptr<HwVplsPwDecapConfig> HwVplsPwDecapConfigIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per (pseudowire, VLAN): the normalised tag; 0 (none) when absent.
  auto const& vlanTagInfo() const { return vlanTagInfo_; }
  Bridging::VlanIdOrNone vlanTagInfo(VplsPwIntfVlanKey const& k) const {
    return vlanTagInfo_.valueOr(k, {});
  }
  bool vlanTagInfoHas(VplsPwIntfVlanKey const& k) const { return vlanTagInfo_.has(k); }
  void vlanTagInfoIs(VplsPwIntfVlanKey const& k, Bridging::VlanIdOrNone v) { vlanTagInfo_.set(k, v); }
  void vlanTagInfoDel(VplsPwIntfVlanKey const& k) { vlanTagInfo_.erase(k); }
  void vlanTagInfoDelAll() { vlanTagInfo_.clear(); }

  // Per pseudowire: its encapsulation HW FEC index; all ones when absent.
  auto const& encapHwFecId() const { return encapHwFecId_; }
  NexthopIndex encapHwFecId(Netcore::IntfId k) const { return encapHwFecId_.valueOr(k, {}); }
  bool encapHwFecIdHas(Netcore::IntfId k) const { return encapHwFecId_.has(k); }
  void encapHwFecIdIs(Netcore::IntfId k, NexthopIndex v) { encapHwFecId_.set(k, v); }
  void encapHwFecIdDel(Netcore::IntfId k) { encapHwFecId_.erase(k); }
  void encapHwFecIdDelAll() { encapHwFecId_.clear(); }

  // Per pseudowire: its decapsulation label; no label (0x100000) when absent.
  auto const& decapLabel() const { return decapLabel_; }
  Netcore::MplsLabel decapLabel(Netcore::IntfId k) const { return decapLabel_.valueOr(k, {}); }
  bool decapLabelHas(Netcore::IntfId k) const { return decapLabel_.has(k); }
  void decapLabelIs(Netcore::IntfId k, Netcore::MplsLabel v) { decapLabel_.set(k, v); }
  void decapLabelDel(Netcore::IntfId k) { decapLabel_.erase(k); }
  void decapLabelDelAll() { decapLabel_.clear(); }

  // The agent's start-up synchronisation with the configuration is over.
  bool startupSyncDone() const noexcept { return startupSyncDone_; }
  void startupSyncDoneIs(bool v) {
    startupSyncDone_ = v;
    publisher_.notify(&Reactor::onStartupSyncDone);
  }

  // The agent's restart handling is over.
  bool restartDone() const noexcept { return restartDone_; }
  void restartDoneIs(bool v) {
    restartDone_ = v;
    publisher_.notify(&Reactor::onRestartDone);
  }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<VplsPwIntfVlanKey, Bridging::VlanIdOrNone, Reactor> vlanTagInfo_{
      publisher_, &Reactor::onVlanTagInfo};
  Loom::Collection<Netcore::IntfId, NexthopIndex, Reactor> encapHwFecId_{publisher_,
                                                                         &Reactor::onEncapHwFecId};
  Loom::Collection<Netcore::IntfId, Netcore::MplsLabel, Reactor> decapLabel_{
      publisher_, &Reactor::onDecapLabel};
  bool startupSyncDone_ = false;
  bool restartDone_ = false;
};

}  // namespace Fab
