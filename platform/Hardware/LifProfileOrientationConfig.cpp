#include "Hardware/LifProfileOrientationConfig.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<LifProfileOrientationConfig>
LifProfileOrientationConfig::LifProfileOrientationConfigIs() {
  return Loom::make<LifProfileOrientationConfig>();
}

Loom::TypeData const& LifProfileOrientationConfig::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"lpoRequest", Loom::AttributeKind::set,
                                        "Hardware::MarlTunnel::LifProfileOrientationKey"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return LifProfileOrientationConfigIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(LifProfileOrientationConfig::type());
}

}  // namespace Hardware::MarlTunnel
