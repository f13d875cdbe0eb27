#pragma once

#include <string_view>
#include <utility>

#include "Hardware/LifProfileOrientationKey.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"
#include "Netcore/IntfId.h"

namespace Hardware::MarlTunnel {

// Per pseudowire, the orientation request key under which it currently asks for its in-LIF profile,
// so that the request can be found again when the pseudowire changes group or goes.
//
// Written and read by this agent's orientation state machine. Every write notifies the subscribed
// reactors synchronously, also when the value is unchanged; deleting an absent entry notifies
// nobody. Runs on the agent's scheduler thread; takes no locks.
class IntfToLifProfileOrientationKeyMap : public Loom::Node {
 public:
  static constexpr std::string_view typeName =
      "Hardware::MarlTunnel::IntfToLifProfileOrientationKeyMap";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onLifProfileOrientationKey(Netcore::IntfId const&) {}
  };

  static Loom::Ptr<IntfToLifProfileOrientationKeyMap> IntfToLifProfileOrientationKeyMapIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per pseudowire: its request key; the default key (empty names, VLAN 0, no split horizon, empty
  // id) when absent.
  auto const& lifProfileOrientationKey() const { return lifProfileOrientationKey_; }
  LifProfileOrientationKey lifProfileOrientationKey(Netcore::IntfId k) const {
    return lifProfileOrientationKey_.valueOr(k, {});
  }
  bool lifProfileOrientationKeyHas(Netcore::IntfId k) const {
    return lifProfileOrientationKey_.has(k);
  }
  void lifProfileOrientationKeyIs(Netcore::IntfId k, LifProfileOrientationKey v) {
    lifProfileOrientationKey_.set(k, std::move(v));
  }
  void lifProfileOrientationKeyDel(Netcore::IntfId k) { lifProfileOrientationKey_.erase(k); }
  void lifProfileOrientationKeyDelAll() { lifProfileOrientationKey_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<Netcore::IntfId, LifProfileOrientationKey, Reactor> lifProfileOrientationKey_{
      publisher_, &Reactor::onLifProfileOrientationKey};
};

}  // namespace Hardware::MarlTunnel
