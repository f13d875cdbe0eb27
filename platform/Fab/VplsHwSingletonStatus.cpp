#include "Fab/VplsHwSingletonStatus.h"

namespace Fab {

Loom::Ptr<VplsHwSingletonStatus> VplsHwSingletonStatus::VplsHwSingletonStatusIs() {
  return Loom::make<VplsHwSingletonStatus>();
}

Loom::TypeData const& VplsHwSingletonStatus::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return VplsHwSingletonStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(VplsHwSingletonStatus::type());
}

}  // namespace Fab
