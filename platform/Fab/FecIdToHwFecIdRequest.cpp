#include "Fab/FecIdToHwFecIdRequest.h"

namespace Fab {

Loom::Ptr<FecIdToHwFecIdRequest> FecIdToHwFecIdRequest::FecIdToHwFecIdRequestIs() {
  return Loom::make<FecIdToHwFecIdRequest>();
}

Loom::TypeData const& FecIdToHwFecIdRequest::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"adjSyncIdMap", Loom::AttributeKind::collection, "std::uint32_t"},
          {"syncRequestsReady", Loom::AttributeKind::collection, "bool"},
          {"fecGen", Loom::AttributeKind::collection, "std::uint64_t"},
          {"extFecGen", Loom::AttributeKind::collection, "std::uint64_t"},
          {"hwFecIdRequest", Loom::AttributeKind::collection, "bool"},
          {"objTupleToFecId", Loom::AttributeKind::collection, "std::uint64_t"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return FecIdToHwFecIdRequestIs();
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(FecIdToHwFecIdRequest::type());
}

}  // namespace Fab
