#include "Fab/HwVplsPwStatus.h"

namespace Fab {

Loom::Ptr<HwVplsPwStatus> HwVplsPwStatus::HwVplsPwStatusIs() {
  return Loom::make<HwVplsPwStatus>();
}

Loom::TypeData const& HwVplsPwStatus::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"encapAdditionalId", Loom::AttributeKind::collection, "Fab::VplsEncapAdditionalId"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return HwVplsPwStatusIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(HwVplsPwStatus::type());
}

}  // namespace Fab
