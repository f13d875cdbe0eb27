#include "Hardware/TagPopPushConfig.h"

namespace Hardware::MarlTunnel {

Loom::Ptr<TagPopPushConfig> TagPopPushConfig::TagPopPushConfigIs() {
  return Loom::make<TagPopPushConfig>();
}

Loom::TypeData const& TagPopPushConfig::type() {
  static Loom::TypeData const data(typeName,
                                   {
                                       {"app", Loom::AttributeKind::collection, "bool"},
                                   },
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return TagPopPushConfigIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(TagPopPushConfig::type());
}

}  // namespace Hardware::MarlTunnel
