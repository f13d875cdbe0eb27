#pragma once

#include <string_view>

#include "Fab/NexthopIndex.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Fab {

// What the decapsulation side has achieved, per (pseudowire, VLAN): the HW FEC index (FEC id and
// global in-LIF) under which the pseudowire's decapsulation entries are in hardware.
//
// Written by this agent's decapsulation state machine once the chip reports the entries programmed,
// and removed when they go; read by the other forwarding agents. Every write notifies the
// subscribed reactors synchronously, also when the value is unchanged; deleting an absent entry
// notifies nobody. Runs on the agent's scheduler thread; takes no locks.
class HwVplsPwDecapStatus : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::HwVplsPwDecapStatus";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onDecapStatus(VplsPwIntfVlanKey const&) {}
  };

  static Loom::Ptr<HwVplsPwDecapStatus> HwVplsPwDecapStatusIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per (pseudowire, VLAN): the HW FEC index in hardware; all ones when absent.
  auto const& decapStatus() const { return decapStatus_; }
  NexthopIndex decapStatus(VplsPwIntfVlanKey const& k) const { return decapStatus_.valueOr(k, {}); }
  bool decapStatusHas(VplsPwIntfVlanKey const& k) const { return decapStatus_.has(k); }
  void decapStatusIs(VplsPwIntfVlanKey const& k, NexthopIndex v) { decapStatus_.set(k, v); }
  void decapStatusDel(VplsPwIntfVlanKey const& k) { decapStatus_.erase(k); }
  void decapStatusDelAll() { decapStatus_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<VplsPwIntfVlanKey, NexthopIndex, Reactor> decapStatus_{publisher_,
                                                                          &Reactor::onDecapStatus};
};

}  // namespace Fab
