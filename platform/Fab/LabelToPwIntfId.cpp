#include "Fab/LabelToPwIntfId.h"

namespace Fab {

Loom::Ptr<LabelToPwIntfId> LabelToPwIntfId::LabelToPwIntfIdIs() {
  return Loom::make<LabelToPwIntfId>();
}

Loom::TypeData const& LabelToPwIntfId::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"labelToPwIntf", Loom::AttributeKind::collection, "Netcore::IntfId"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return LabelToPwIntfIdIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(LabelToPwIntfId::type());
}

}  // namespace Fab
