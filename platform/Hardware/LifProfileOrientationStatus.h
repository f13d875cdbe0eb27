#pragma once

#include <string_view>

#include "Hardware/LifProfileAndOrientation.h"
#include "Hardware/LifProfileOrientationKey.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// The allocator's answers to the orientation requests: per request key, the in-LIF profile and
// orientation given (orientation 8 when the allocation failed).
//
// Written by the allocator; read by this agent's orientation state machine. Every write notifies
// the subscribed reactors synchronously, also when the value is unchanged; deleting an absent entry
// notifies nobody. Runs on the agent's scheduler thread; takes no locks.
class LifProfileOrientationStatus : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::LifProfileOrientationStatus";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onLpoResponse(LifProfileOrientationKey const&) {}
  };

  static Loom::Ptr<LifProfileOrientationStatus> LifProfileOrientationStatusIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per request: the answer; no profile and orientation 0 when absent.
  auto const& lpoResponse() const { return lpoResponse_; }
  LifProfileAndOrientation lpoResponse(LifProfileOrientationKey const& k) const {
    return lpoResponse_.valueOr(k, {});
  }
  bool lpoResponseHas(LifProfileOrientationKey const& k) const { return lpoResponse_.has(k); }
  void lpoResponseIs(LifProfileOrientationKey const& k, LifProfileAndOrientation v) {
    lpoResponse_.set(k, v);
  }
  void lpoResponseDel(LifProfileOrientationKey const& k) { lpoResponse_.erase(k); }
  void lpoResponseDelAll() { lpoResponse_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<LifProfileOrientationKey, LifProfileAndOrientation, Reactor> lpoResponse_{
      publisher_, &Reactor::onLpoResponse};
};

}  // namespace Hardware::MarlTunnel
