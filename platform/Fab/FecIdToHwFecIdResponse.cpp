#include "Fab/FecIdToHwFecIdResponse.h"

namespace Fab {

Loom::Ptr<FecIdToHwFecIdResponse> FecIdToHwFecIdResponse::FecIdToHwFecIdResponseIs() {
  return Loom::make<FecIdToHwFecIdResponse>();
}

Loom::TypeData const& FecIdToHwFecIdResponse::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"hwFecIdResponse", Loom::AttributeKind::collection, "Fab::NexthopIndex"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return FecIdToHwFecIdResponseIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(FecIdToHwFecIdResponse::type());
}

}  // namespace Fab
