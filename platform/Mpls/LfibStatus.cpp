#include "Mpls/LfibStatus.h"

namespace Mpls {

Loom::Ptr<LfibStatus> LfibStatus::LfibStatusIs() {
  return Loom::make<LfibStatus>();
}

Loom::TypeData const& LfibStatus::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return LfibStatusIs();
                                   });
  return data;
}

namespace {
Loom::TypeRegistration const registration(LfibStatus::type());
}

}  // namespace Mpls
