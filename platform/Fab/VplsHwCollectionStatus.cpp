#include "Fab/VplsHwCollectionStatus.h"

namespace Fab {

Loom::Ptr<VplsHwCollectionStatus> VplsHwCollectionStatus::VplsHwCollectionStatusIs() {
  return Loom::make<VplsHwCollectionStatus>();
}

Loom::TypeData const& VplsHwCollectionStatus::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return VplsHwCollectionStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(VplsHwCollectionStatus::type());
}

}  // namespace Fab
