#include "Fab/HwVplsMactConfig.h"

namespace Fab {

Loom::Ptr<HwVplsMactConfig> HwVplsMactConfig::HwVplsMactConfigIs() {
  return Loom::make<HwVplsMactConfig>();
}

Loom::TypeData const& HwVplsMactConfig::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return HwVplsMactConfigIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(HwVplsMactConfig::type());
}

}  // namespace Fab
