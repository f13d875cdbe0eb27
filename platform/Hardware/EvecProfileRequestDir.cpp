#include "Hardware/EvecProfileRequestDir.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<EvecProfileRequestDir> EvecProfileRequestDir::EvecProfileRequestDirIs() {
  return Loom::make<EvecProfileRequestDir>();
}

Loom::TypeData const& EvecProfileRequestDir::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"evecProfileRequest", Loom::AttributeKind::collection,
                                        "Hardware::MarlTunnel::EvecProfileRequest"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return EvecProfileRequestDirIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(EvecProfileRequestDir::type());
}

}  // namespace Hardware::MarlTunnel
