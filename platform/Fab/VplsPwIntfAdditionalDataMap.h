#pragma once

#include <cstdint>
#include <string_view>

#include "Fab/VplsIntfKey.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Fab {

// The 16-bit additional data of each pseudowire in its split-horizon group, keyed by (instance
// name, group name, pseudowire, split horizon).
//
// Written by this agent; read by the agents that build the pseudowire's other hardware entries.
// Every write notifies the subscribed reactors synchronously, also when the value is unchanged;
// deleting an absent entry notifies nobody. Runs on the agent's scheduler thread; takes no locks.
class VplsPwIntfAdditionalDataMap : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::VplsPwIntfAdditionalDataMap";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onAdditionalDataMap(VplsIntfKey const&) {}
  };

  static Loom::Ptr<VplsPwIntfAdditionalDataMap> VplsPwIntfAdditionalDataMapIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per (instance, group, pseudowire, split horizon): the additional data; 0 when absent.
  auto const& additionalDataMap() const { return additionalDataMap_; }
  std::uint16_t additionalDataMap(VplsIntfKey const& k) const {
    return additionalDataMap_.valueOr(k, {});
  }
  bool additionalDataMapHas(VplsIntfKey const& k) const { return additionalDataMap_.has(k); }
  void additionalDataMapIs(VplsIntfKey const& k, std::uint16_t v) { additionalDataMap_.set(k, v); }
  void additionalDataMapDel(VplsIntfKey const& k) { additionalDataMap_.erase(k); }
  void additionalDataMapDelAll() { additionalDataMap_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<VplsIntfKey, std::uint16_t, Reactor> additionalDataMap_{
      publisher_, &Reactor::onAdditionalDataMap};
};

}  // namespace Fab
