#pragma once

#include <string_view>

#include "Hardware/EsemConfigInfoVpls.h"
#include "Hardware/EsemConfigKeyVpls.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// The ESEM entries wanted for VPLS: per (VLAN domain, VLAN, third field) the tag, edit profile and
// out-LIF profile.
//
// Written by this agent's ESEM state machine; read by the agent that programs the chip, which
// reports progress in EsemStatusVpls. Every write notifies the subscribed reactors synchronously,
// also when the value is unchanged; deleting an absent entry notifies nobody. Runs on the agent's
// scheduler thread; takes no locks.
class EsemConfigVpls : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::EsemConfigVpls";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onEsemConfig(EsemConfigKeyVpls const&) {}
  };

  static Loom::Ptr<EsemConfigVpls> EsemConfigVplsIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per key: the entry wanted; all zero when absent.
  auto const& esemConfig() const { return esemConfig_; }
  EsemConfigInfoVpls esemConfig(EsemConfigKeyVpls const& k) const {
    return esemConfig_.valueOr(k, {});
  }
  bool esemConfigHas(EsemConfigKeyVpls const& k) const { return esemConfig_.has(k); }
  void esemConfigIs(EsemConfigKeyVpls const& k, EsemConfigInfoVpls v) { esemConfig_.set(k, v); }
  void esemConfigDel(EsemConfigKeyVpls const& k) { esemConfig_.erase(k); }
  void esemConfigDelAll() { esemConfig_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<EsemConfigKeyVpls, EsemConfigInfoVpls, Reactor> esemConfig_{
      publisher_, &Reactor::onEsemConfig};
};

}  // namespace Hardware::MarlTunnel
