#include "Mpls/Api/LabelManagerStatus.h"

namespace Mpls::Api {

Loom::Ptr<LabelManagerStatus> LabelManagerStatus::LabelManagerStatusIs() {
  return Loom::make<LabelManagerStatus>();
}

Loom::TypeData const& LabelManagerStatus::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return LabelManagerStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(LabelManagerStatus::type());
}

}  // namespace Mpls::Api
