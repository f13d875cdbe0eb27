#include "Hardware/MplsDecapConfig.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<MplsDecapConfig> MplsDecapConfig::MplsDecapConfigIs() {
  return Loom::make<MplsDecapConfig>();
}

Loom::TypeData const& MplsDecapConfig::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"config", Loom::AttributeKind::collection, "Hardware::MarlTunnel::MplsDecapInfo"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return MplsDecapConfigIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(MplsDecapConfig::type());
}

}  // namespace Hardware::MarlTunnel
