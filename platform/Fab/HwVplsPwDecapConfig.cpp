#include "Fab/HwVplsPwDecapConfig.h"

namespace Fab {

Loom::Ptr<HwVplsPwDecapConfig> HwVplsPwDecapConfig::HwVplsPwDecapConfigIs() {
  return Loom::make<HwVplsPwDecapConfig>();
}

Loom::TypeData const& HwVplsPwDecapConfig::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"vlanTagInfo", Loom::AttributeKind::collection, "Bridging::VlanIdOrNone"},
          {"encapHwFecId", Loom::AttributeKind::collection, "Fab::NexthopIndex"},
          {"decapLabel", Loom::AttributeKind::collection, "Netcore::MplsLabel"},
          {"startupSyncDone", Loom::AttributeKind::scalar, "bool"},
          {"restartDone", Loom::AttributeKind::scalar, "bool"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return HwVplsPwDecapConfigIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(HwVplsPwDecapConfig::type());
}

}  // namespace Fab
