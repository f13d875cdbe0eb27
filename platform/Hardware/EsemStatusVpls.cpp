#include "Hardware/EsemStatusVpls.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<EsemStatusVpls> EsemStatusVpls::EsemStatusVplsIs() {
  return Loom::make<EsemStatusVpls>();
}

Loom::TypeData const& EsemStatusVpls::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"status", Loom::AttributeKind::collection, "bool"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return EsemStatusVplsIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(EsemStatusVpls::type());
}

}  // namespace Hardware::MarlTunnel
