#pragma once

#include <string_view>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/String.h"
#include "Loom/TypeData.h"

namespace Orb {

// Access to the fabric driver, handed to the state machines that talk to it. This agent makes
// no driver calls of its own: the object only names the device ("fab" unless told otherwise).
//
// Invariants: the device name is fixed at construction. Runs on the agent's scheduler thread;
// takes no locks.
class IoctlDrvFab : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Orb::IoctlDrvFab";
  static constexpr char kDefaultDeviceName[] = "fab";

  static Loom::Ptr<IoctlDrvFab> IoctlDrvFabIs(Loom::String deviceName = kDefaultDeviceName);
  explicit IoctlDrvFab(Loom::String deviceName) : deviceName_(std::move(deviceName)) {}

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  Loom::String const& deviceName() const noexcept { return deviceName_; }

 private:
  Loom::String const deviceName_;
};

}  // namespace Orb
