#pragma once

#include <string_view>

#include "Hardware/VtAppId.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// The tag pop/push applications of the chip's VLAN translation that are wanted: per application,
// whether it is enabled.
//
// Written by this agent; read by the agent that programs the chip. Every write notifies the
// subscribed reactors synchronously, also when the value is unchanged; deleting an absent entry
// notifies nobody. Runs on the agent's scheduler thread; takes no locks.
class TagPopPushConfig : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::TagPopPushConfig";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onApp(::Hardware::Marl::VtAppId const&) {}
  };

  static Loom::Ptr<TagPopPushConfig> TagPopPushConfigIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per application: whether it is enabled; false when absent.
  auto const& app() const { return app_; }
  bool app(::Hardware::Marl::VtAppId k) const { return app_.valueOr(k, {}); }
  bool appHas(::Hardware::Marl::VtAppId k) const { return app_.has(k); }
  void appIs(::Hardware::Marl::VtAppId k, bool v) { app_.set(k, v); }
  void appDel(::Hardware::Marl::VtAppId k) { app_.erase(k); }
  void appDelAll() { app_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<::Hardware::Marl::VtAppId, bool, Reactor> app_{publisher_, &Reactor::onApp};
};

}  // namespace Hardware::MarlTunnel
