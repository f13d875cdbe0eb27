#include "Fab/HwVplsPwDecapStatus.h"

namespace Fab {

Loom::Ptr<HwVplsPwDecapStatus> HwVplsPwDecapStatus::HwVplsPwDecapStatusIs() {
  return Loom::make<HwVplsPwDecapStatus>();
}

Loom::TypeData const& HwVplsPwDecapStatus::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"decapStatus", Loom::AttributeKind::collection, "Fab::NexthopIndex"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return HwVplsPwDecapStatusIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(HwVplsPwDecapStatus::type());
}

}  // namespace Fab
