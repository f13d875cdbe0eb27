#include "Hardware/MplsDecapStatus.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<MplsDecapStatus> MplsDecapStatus::MplsDecapStatusIs() {
  return Loom::make<MplsDecapStatus>();
}

Loom::TypeData const& MplsDecapStatus::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"status", Loom::AttributeKind::collection, "bool"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return MplsDecapStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(MplsDecapStatus::type());
}

}  // namespace Hardware::MarlTunnel
