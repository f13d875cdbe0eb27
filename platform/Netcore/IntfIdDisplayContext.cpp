#include "Netcore/IntfIdDisplayContext.h"

namespace Netcore {

Loom::Ptr<IntfIdDisplayContext> IntfIdDisplayContext::IntfIdDisplayContextIs() {
  return Loom::make<IntfIdDisplayContext>();
}

Loom::TypeData const& IntfIdDisplayContext::type() {
  static Loom::TypeData const data(typeName, {},
                                   [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
                                     Loom::requireArgCount(args, 0, typeName);
                                     return IntfIdDisplayContextIs();
                                   });
  return data;
}

std::string IntfIdDisplayContext::shortName(IntfId id) const {
  if (id.isPseudowire()) {
    return "Pw" + std::to_string(id.pseudowireNumber());
  }
  return id.toString();
}

namespace {
Loom::TypeRegistration const registration(IntfIdDisplayContext::type());
}

}  // namespace Netcore
