#include "Statedb/EntityManager.h"

#include "Loom/Errors.h"

namespace Statedb {

Loom::Ptr<EntityManager> EntityManager::EntityManagerIs(Loom::String name) {
  return Loom::make<EntityManager>(std::move(name));
}

Loom::TypeData const& EntityManager::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"name", Loom::AttributeKind::scalar, "Loom::String"},
          {"entity", Loom::AttributeKind::collection, "Loom::Node"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 1, typeName);
        return EntityManagerIs(Loom::argAt<Loom::String>(args, 0, typeName));
      },
      false);
  return data;
}

void EntityManager::entityIs(Loom::String const& path, Loom::Ptr<Loom::Node> entity) {
  if (!entity) {
    throw Loom::NullPointerArgumentError(typeName, "entity");
  }
  entities_.insert_or_assign(path, std::move(entity));
}

void EntityManager::entityDel(Loom::String const& path) {
  entities_.erase(path);
}

Loom::Ptr<Loom::Node> EntityManager::entity(Loom::String const& path) const {
  auto const it = entities_.find(path);
  return it == entities_.end() ? nullptr : it->second;
}

std::vector<Loom::String> EntityManager::paths() const {
  std::vector<Loom::String> result;
  result.reserve(entities_.size());
  for (auto const& [path, entity] : entities_) {
    result.push_back(path);
  }
  return result;
}

namespace {
Loom::TypeRegistration const registration(EntityManager::type());
}

}  // namespace Statedb
