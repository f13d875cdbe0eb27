#include "Hardware/IntfToLifProfileOrientationKeyMap.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<IntfToLifProfileOrientationKeyMap>
IntfToLifProfileOrientationKeyMap::IntfToLifProfileOrientationKeyMapIs() {
  return Loom::make<IntfToLifProfileOrientationKeyMap>();
}

Loom::TypeData const& IntfToLifProfileOrientationKeyMap::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"lifProfileOrientationKey", Loom::AttributeKind::collection,
                                        "Hardware::MarlTunnel::LifProfileOrientationKey"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return IntfToLifProfileOrientationKeyMapIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(IntfToLifProfileOrientationKeyMap::type());
}

}  // namespace Hardware::MarlTunnel
