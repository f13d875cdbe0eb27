#pragma once

#include <string_view>

#include "Fab/VplsEncapAdditionalId.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"
#include "Netcore/IntfId.h"

namespace Fab {

// Per pseudowire the additional id that its encapsulation side must use, derived from the split-
// horizon orientation its in-LIF was given.
//
// Written by this agent once a pseudowire's orientation is known, and removed with the pseudowire;
// read by the encapsulation agent. Every write notifies the subscribed reactors synchronously, also
// when the value is unchanged; deleting an absent entry notifies nobody. Runs on the agent's
// scheduler thread; takes no locks.
class HwVplsPwStatus : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::HwVplsPwStatus";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onEncapAdditionalId(Netcore::IntfId const&) {}
  };

  static Loom::Ptr<HwVplsPwStatus> HwVplsPwStatusIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per pseudowire: its encapsulation additional id; 0 when absent.
  auto const& encapAdditionalId() const { return encapAdditionalId_; }
  VplsEncapAdditionalId encapAdditionalId(Netcore::IntfId k) const {
    return encapAdditionalId_.valueOr(k, {});
  }
  bool encapAdditionalIdHas(Netcore::IntfId k) const { return encapAdditionalId_.has(k); }
  void encapAdditionalIdIs(Netcore::IntfId k, VplsEncapAdditionalId v) {
    encapAdditionalId_.set(k, v);
  }
  void encapAdditionalIdDel(Netcore::IntfId k) { encapAdditionalId_.erase(k); }
  void encapAdditionalIdDelAll() { encapAdditionalId_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<Netcore::IntfId, VplsEncapAdditionalId, Reactor> encapAdditionalId_{
      publisher_, &Reactor::onEncapAdditionalId};
};

}  // namespace Fab
