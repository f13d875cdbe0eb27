#pragma once

#include <string_view>

#include "Hardware/LifProfileOrientationKey.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/Set.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// The split-horizon orientation requests: one member per (group, pseudowire) that wants an in-LIF
// profile and orientation.
//
// Written by this agent's orientation state machine; read by the allocator, which answers in
// LifProfileOrientationStatus. Every insertion notifies the subscribed reactors synchronously, also
// of a present member; deleting an absent member notifies nobody. Runs on the agent's scheduler
// thread; takes no locks.
class LifProfileOrientationConfig : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::LifProfileOrientationConfig";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onLpoRequest(LifProfileOrientationKey const&) {}
  };

  static Loom::Ptr<LifProfileOrientationConfig> LifProfileOrientationConfigIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per (group, pseudowire): present while the pseudowire wants an in-LIF profile and orientation
  // in that group.
  auto const& lpoRequest() const { return lpoRequest_; }
  bool lpoRequestHas(LifProfileOrientationKey const& k) const { return lpoRequest_.has(k); }
  void lpoRequestIs(LifProfileOrientationKey const& k) { lpoRequest_.insert(k); }
  void lpoRequestDel(LifProfileOrientationKey const& k) { lpoRequest_.erase(k); }
  void lpoRequestDelAll() { lpoRequest_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Set<LifProfileOrientationKey, Reactor> lpoRequest_{publisher_, &Reactor::onLpoRequest};
};

}  // namespace Hardware::MarlTunnel
