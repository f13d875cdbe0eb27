#include "Orb/IoctlDrvFab.h"

#include <stdexcept>

namespace Orb {

Loom::Ptr<IoctlDrvFab> IoctlDrvFab::IoctlDrvFabIs(Loom::String deviceName) {
  return Loom::make<IoctlDrvFab>(std::move(deviceName));
}

Loom::TypeData const& IoctlDrvFab::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"deviceName", Loom::AttributeKind::scalar, "Loom::String"},
      },
      // No argument: the default device.
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        if (args.empty()) {
          return IoctlDrvFabIs();
        }
        Loom::requireArgCount(args, 1, typeName);
        return IoctlDrvFabIs(Loom::argAt<Loom::String>(args, 0, typeName));
      },
      false);
  return data;
}

namespace {
Loom::TypeRegistration const registration(IoctlDrvFab::type());
}

}  // namespace Orb
