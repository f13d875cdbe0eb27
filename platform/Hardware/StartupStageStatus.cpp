#include "Hardware/StartupStageStatus.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<StartupStageStatus> StartupStageStatus::StartupStageStatusIs() {
  return Loom::make<StartupStageStatus>();
}

Loom::TypeData const& StartupStageStatus::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"vplsSmReady", Loom::AttributeKind::scalar, "bool"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return StartupStageStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(StartupStageStatus::type());
}

}  // namespace Hardware::MarlTunnel
