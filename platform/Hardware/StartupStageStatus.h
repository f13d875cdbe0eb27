#pragma once

#include <string_view>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// The start-up stage of this agent as other agents see it.
//
// Written by this agent; read by the agents that wait for it. Every write notifies the subscribed
// reactors synchronously, also when the value is unchanged. Runs on the agent's scheduler thread;
// takes no locks.
class StartupStageStatus : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::StartupStageStatus";

  // One handler per scalar attribute, called after every write of it.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onVplsSmReady() {}
  };

  static Loom::Ptr<StartupStageStatus> StartupStageStatusIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // The VPLS state machines have finished their start-up and are reacting to changes.
  bool vplsSmReady() const noexcept { return vplsSmReady_; }
  void vplsSmReadyIs(bool v) {
    vplsSmReady_ = v;
    publisher_.notify(&Reactor::onVplsSmReady);
  }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  bool vplsSmReady_ = false;
};

}  // namespace Hardware::MarlTunnel
