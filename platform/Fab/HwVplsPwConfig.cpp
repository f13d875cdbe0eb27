#include "Fab/HwVplsPwConfig.h"

namespace Fab {

Loom::Ptr<HwVplsPwConfig> HwVplsPwConfig::HwVplsPwConfigIs() {
  return Loom::make<HwVplsPwConfig>();
}

Loom::TypeData const& HwVplsPwConfig::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"vplsPwIntfInfo", Loom::AttributeKind::collection, "Fab::VplsPwIntfInfo"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return HwVplsPwConfigIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(HwVplsPwConfig::type());
}

}  // namespace Fab
