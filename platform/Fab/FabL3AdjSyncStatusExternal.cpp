#include "Fab/FabL3AdjSyncStatusExternal.h"

namespace Fab {

Loom::Ptr<FabL3AdjSyncStatusExternal> FabL3AdjSyncStatusExternal::FabL3AdjSyncStatusExternalIs() {
  return Loom::make<FabL3AdjSyncStatusExternal>();
}

Loom::TypeData const& FabL3AdjSyncStatusExternal::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return FabL3AdjSyncStatusExternalIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(FabL3AdjSyncStatusExternal::type());
}

}  // namespace Fab
