#include "Mpls/Hardware/Capability.h"

namespace Mpls::Hardware {

Loom::Ptr<Capability> Capability::CapabilityIs() {
  return Loom::make<Capability>();
}

Loom::TypeData const& Capability::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return CapabilityIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(Capability::type());
}

}  // namespace Mpls::Hardware
