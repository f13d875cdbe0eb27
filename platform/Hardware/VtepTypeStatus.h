#pragma once

#include <string_view>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// Which kinds of VXLAN tunnel endpoint are configured on the switch, as far as they constrain the
// VPLS hardware: some VXLAN at all, and VXLAN DCI.
//
// Written by the VXLAN agent; read by this agent's orientation state machine, since orientations
// shared with VXLAN may not be used while it is present. Every write notifies the subscribed
// reactors synchronously, also when the value is unchanged. Runs on the agent's scheduler thread;
// takes no locks.
class VtepTypeStatus : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::VtepTypeStatus";

  // One handler per scalar attribute, called after every write of it.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onVxlanPresent() {}
    virtual void onVxlanDciConfigured() {}
  };

  static Loom::Ptr<VtepTypeStatus> VtepTypeStatusIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Some VXLAN is configured.
  bool vxlanPresent() const noexcept { return vxlanPresent_; }
  void vxlanPresentIs(bool v) {
    vxlanPresent_ = v;
    publisher_.notify(&Reactor::onVxlanPresent);
  }

  // VXLAN DCI is configured.
  bool vxlanDciConfigured() const noexcept { return vxlanDciConfigured_; }
  void vxlanDciConfiguredIs(bool v) {
    vxlanDciConfigured_ = v;
    publisher_.notify(&Reactor::onVxlanDciConfigured);
  }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  bool vxlanPresent_ = false;
  bool vxlanDciConfigured_ = false;
};

}  // namespace Hardware::MarlTunnel
