#include "Fab/EvpnVplsInteropStatus.h"

namespace Fab {

Loom::Ptr<EvpnVplsInteropStatus> EvpnVplsInteropStatus::EvpnVplsInteropStatusIs() {
  return Loom::make<EvpnVplsInteropStatus>();
}

Loom::TypeData const& EvpnVplsInteropStatus::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return EvpnVplsInteropStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(EvpnVplsInteropStatus::type());
}

}  // namespace Fab
