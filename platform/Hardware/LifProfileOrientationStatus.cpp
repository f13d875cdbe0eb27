#include "Hardware/LifProfileOrientationStatus.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<LifProfileOrientationStatus>
LifProfileOrientationStatus::LifProfileOrientationStatusIs() {
  return Loom::make<LifProfileOrientationStatus>();
}

Loom::TypeData const& LifProfileOrientationStatus::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"lpoResponse", Loom::AttributeKind::collection,
                                        "Hardware::MarlTunnel::LifProfileAndOrientation"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return LifProfileOrientationStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(LifProfileOrientationStatus::type());
}

}  // namespace Hardware::MarlTunnel
