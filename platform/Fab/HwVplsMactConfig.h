#pragma once

#include <string_view>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Fab {

// The MAC table configuration of the VPLS instances as the hardware agents see it.
//
// This agent only holds the table and hands it to another state machine; it has no attributes of
// its own, only its type data, so that it can be mounted and created by name like every other
// table. Runs on the agent's scheduler thread; takes no locks.
class HwVplsMactConfig : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::HwVplsMactConfig";

  // The table has no attributes, so there is nothing to react to; the interface exists
  // so that every entity can be subscribed to in the same way.
  class Reactor {
   public:
    virtual ~Reactor() = default;
  };

  static Loom::Ptr<HwVplsMactConfig> HwVplsMactConfigIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
};

}  // namespace Fab
