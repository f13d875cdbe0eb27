#pragma once

#include <string_view>

#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"
#include "Netcore/IntfId.h"
#include "Netcore/MplsLabel.h"

namespace Fab {

// The reverse of the pseudowires' decapsulation labels: per label, the pseudowire that terminates
// it.
//
// Written by this agent as labels are bound to and released from pseudowires; read by the agents
// that account or trap on incoming labels. Every write notifies the subscribed reactors
// synchronously, also when the value is unchanged; deleting an absent entry notifies nobody. Runs
// on the agent's scheduler thread; takes no locks.
class LabelToPwIntfId : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::LabelToPwIntfId";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onLabelToPwIntf(Netcore::MplsLabel const&) {}
  };

  static Loom::Ptr<LabelToPwIntfId> LabelToPwIntfIdIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per decapsulation label: its pseudowire; the empty id when absent.
  auto const& labelToPwIntf() const { return labelToPwIntf_; }
  Netcore::IntfId labelToPwIntf(Netcore::MplsLabel k) const {
    return labelToPwIntf_.valueOr(k, {});
  }
  bool labelToPwIntfHas(Netcore::MplsLabel k) const { return labelToPwIntf_.has(k); }
  void labelToPwIntfIs(Netcore::MplsLabel k, Netcore::IntfId v) { labelToPwIntf_.set(k, v); }
  void labelToPwIntfDel(Netcore::MplsLabel k) { labelToPwIntf_.erase(k); }
  void labelToPwIntfDelAll() { labelToPwIntf_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<Netcore::MplsLabel, Netcore::IntfId, Reactor> labelToPwIntf_{
      publisher_, &Reactor::onLabelToPwIntf};
};

}  // namespace Fab
