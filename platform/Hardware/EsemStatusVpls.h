#pragma once

#include <string_view>

#include "Hardware/EsemConfigKeyVpls.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// Progress of the VPLS ESEM entries: per key, true once the entry is in hardware.
//
// Written by the agent that programs the chip; read by this agent's ESEM state machine. Every write
// notifies the subscribed reactors synchronously, also when the value is unchanged; deleting an
// absent entry notifies nobody. Runs on the agent's scheduler thread; takes no locks.
class EsemStatusVpls : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::EsemStatusVpls";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onStatus(EsemConfigKeyVpls const&) {}
  };

  static Loom::Ptr<EsemStatusVpls> EsemStatusVplsIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per key: whether the entry is in hardware; false when absent.
  auto const& status() const { return status_; }
  bool status(EsemConfigKeyVpls const& k) const { return status_.valueOr(k, {}); }
  bool statusHas(EsemConfigKeyVpls const& k) const { return status_.has(k); }
  void statusIs(EsemConfigKeyVpls const& k, bool v) { status_.set(k, v); }
  void statusDel(EsemConfigKeyVpls const& k) { status_.erase(k); }
  void statusDelAll() { status_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<EsemConfigKeyVpls, bool, Reactor> status_{publisher_, &Reactor::onStatus};
};

}  // namespace Hardware::MarlTunnel
