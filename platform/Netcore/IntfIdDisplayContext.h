#pragma once

#include <string>
#include <string_view>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/TypeData.h"
#include "Netcore/IntfId.h"

namespace Netcore {

// How interface names are displayed: the full name, and the short name that tables with narrow
// columns use ("Pw<N>" for "Pseudowire<N>").
//
// It has no attributes and nothing to react to; the rules are fixed. Runs on the agent's scheduler
// thread; takes no locks.
class IntfIdDisplayContext : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Netcore::IntfIdDisplayContext";

  static Loom::Ptr<IntfIdDisplayContext> IntfIdDisplayContextIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // The full name: "Pseudowire<N>", "" for the empty id.
  std::string name(IntfId id) const { return id.toString(); }
  // The short name: "Pw<N>" for "Pseudowire<N>", "" for the empty id, and the full name
  // for any other interface.
  std::string shortName(IntfId id) const;
};

}  // namespace Netcore
