#include "Pseudowire/VplsForwardingStatus.h"

namespace Pseudowire {

Loom::Ptr<VplsForwardingStatus> VplsForwardingStatus::VplsForwardingStatusIs() {
  return Loom::make<VplsForwardingStatus>();
}

Loom::TypeData const& VplsForwardingStatus::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return VplsForwardingStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(VplsForwardingStatus::type());
}

}  // namespace Pseudowire
