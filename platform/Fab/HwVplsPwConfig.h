#pragma once

#include <string_view>
#include <utility>

#include "Fab/VplsPwIntfInfo.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"
#include "Netcore/IntfId.h"

namespace Fab {

// The configuration of every pseudowire interface as the hardware agents see it: per pseudowire its
// VPLS instance, split-horizon group, flags and peer label.
//
// Written by the configuration agents; read by the VPLS state machines. A pseudowire without an
// entry reads as the default record. Every write notifies the subscribed reactors synchronously,
// also when the value is unchanged; deleting an absent entry notifies nobody. Runs on the agent's
// scheduler thread; takes no locks.
class HwVplsPwConfig : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::HwVplsPwConfig";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onVplsPwIntfInfo(Netcore::IntfId const&) {}
  };

  static Loom::Ptr<HwVplsPwConfig> HwVplsPwConfigIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per pseudowire: its configuration; the default record `VplsPwIntfInfo()` when absent.
  auto const& vplsPwIntfInfo() const { return vplsPwIntfInfo_; }
  VplsPwIntfInfo vplsPwIntfInfo(Netcore::IntfId k) const { return vplsPwIntfInfo_.valueOr(k, {}); }
  bool vplsPwIntfInfoHas(Netcore::IntfId k) const { return vplsPwIntfInfo_.has(k); }
  void vplsPwIntfInfoIs(Netcore::IntfId k, VplsPwIntfInfo v) {
    vplsPwIntfInfo_.set(k, std::move(v));
  }
  void vplsPwIntfInfoDel(Netcore::IntfId k) { vplsPwIntfInfo_.erase(k); }
  void vplsPwIntfInfoDelAll() { vplsPwIntfInfo_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<Netcore::IntfId, VplsPwIntfInfo, Reactor> vplsPwIntfInfo_{
      publisher_, &Reactor::onVplsPwIntfInfo};
};

}  // namespace Fab
