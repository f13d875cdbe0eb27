#include "Hardware/EsemConfigVpls.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<EsemConfigVpls> EsemConfigVpls::EsemConfigVplsIs() {
  return Loom::make<EsemConfigVpls>();
}

Loom::TypeData const& EsemConfigVpls::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"esemConfig", Loom::AttributeKind::collection,
                                        "Hardware::MarlTunnel::EsemConfigInfoVpls"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return EsemConfigVplsIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(EsemConfigVpls::type());
}

}  // namespace Hardware::MarlTunnel
