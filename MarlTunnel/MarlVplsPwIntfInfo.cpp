#include "MarlTunnel/MarlVplsPwIntfInfo.h"

namespace Hardware::MarlTunnel {

Loom::TypeData const& MarlVplsPwIntfInfo::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"pwIntfId", Loom::AttributeKind::scalar, "Netcore::IntfId"},
          {"decapLabel", Loom::AttributeKind::scalar, "Netcore::MplsLabel"},
          {"normalisedTagPerVlan", Loom::AttributeKind::collection, "Bridging::VlanIdOrNone"},
          {"vplsInstanceName", Loom::AttributeKind::scalar, "Loom::String"},
          {"groupName", Loom::AttributeKind::scalar, "Loom::String"},
          {"vlanAware", Loom::AttributeKind::scalar, "U8"},
          {"encapHwFecIdAvail", Loom::AttributeKind::scalar, "U8"},
          {"splitHorizon", Loom::AttributeKind::scalar, "U8"},
          {"standby", Loom::AttributeKind::scalar, "U8"},
          {"countProgrammed", Loom::AttributeKind::scalar, "U32"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 1, typeName);
        return Loom::make<MarlVplsPwIntfInfo>(Loom::argAt<Netcore::IntfId>(args, 0, typeName));
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(MarlVplsPwIntfInfo::type());
}

}  // namespace Hardware::MarlTunnel
