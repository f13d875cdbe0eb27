#pragma once

#include <string_view>

#include "Hardware/EvecProfileKey.h"
#include "Hardware/EvecProfileRequest.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// The EVEC (egress VLAN editing command) profiles wanted: each request is filed under its own key.
//
// Written by this agent's ESEM state machine; read by the agent that allocates the profiles. Every
// write notifies the subscribed reactors synchronously, also when the value is unchanged; deleting
// an absent entry notifies nobody. Runs on the agent's scheduler thread; takes no locks.
class EvecProfileRequestDir : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::EvecProfileRequestDir";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onEvecProfileRequest(EvecProfileKey const&) {}
  };

  static Loom::Ptr<EvecProfileRequestDir> EvecProfileRequestDirIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per profile key: the request; the default request (0, 0) when absent. A request is written
  // under its own key.
  auto const& evecProfileRequest() const { return evecProfileRequest_; }
  EvecProfileRequest evecProfileRequest(EvecProfileKey k) const {
    return evecProfileRequest_.valueOr(k, {});
  }
  bool evecProfileRequestHas(EvecProfileKey k) const { return evecProfileRequest_.has(k); }
  void evecProfileRequestIs(EvecProfileRequest const& request) {
    evecProfileRequest_.set(request.key(), request);
  }
  void evecProfileRequestDel(EvecProfileKey k) { evecProfileRequest_.erase(k); }
  void evecProfileRequestDelAll() { evecProfileRequest_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<EvecProfileKey, EvecProfileRequest, Reactor> evecProfileRequest_{
      publisher_, &Reactor::onEvecProfileRequest};
};

}  // namespace Hardware::MarlTunnel
