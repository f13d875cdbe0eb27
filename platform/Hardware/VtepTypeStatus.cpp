#include "Hardware/VtepTypeStatus.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<VtepTypeStatus> VtepTypeStatus::VtepTypeStatusIs() {
  return Loom::make<VtepTypeStatus>();
}

Loom::TypeData const& VtepTypeStatus::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"vxlanPresent", Loom::AttributeKind::scalar, "bool"},
                                       {"vxlanDciConfigured", Loom::AttributeKind::scalar, "bool"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return VtepTypeStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(VtepTypeStatus::type());
}

}  // namespace Hardware::MarlTunnel
