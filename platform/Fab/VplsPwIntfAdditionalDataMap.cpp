#include "Fab/VplsPwIntfAdditionalDataMap.h"

namespace Fab {

Loom::Ptr<VplsPwIntfAdditionalDataMap>
VplsPwIntfAdditionalDataMap::VplsPwIntfAdditionalDataMapIs() {
  return Loom::make<VplsPwIntfAdditionalDataMap>();
}

Loom::TypeData const& VplsPwIntfAdditionalDataMap::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"additionalDataMap", Loom::AttributeKind::collection, "std::uint16_t"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return VplsPwIntfAdditionalDataMapIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(VplsPwIntfAdditionalDataMap::type());
}

}  // namespace Fab
