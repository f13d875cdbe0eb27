#pragma once

#include <map>
#include <string_view>
#include <vector>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/String.h"
#include "Loom/TypeData.h"

namespace Statedb {

// The agent's view of the central state database: the entities other agents publish, each
// under its path ("hardware/fab/vpls/mactConfig"). The agent's start-up code (or a test
// harness) stores the entities it was handed; the agent's state machines look them up by path
// and type.
//
// Invariants: a path holds at most one entity, never a null one; paths iterate in ascending
// order. A typed lookup never throws: a missing path or an entity of another type gives null.
// Runs on the agent's scheduler thread; takes no locks.
class EntityManager : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Statedb::EntityManager";

  static Loom::Ptr<EntityManager> EntityManagerIs(Loom::String name);
  explicit EntityManager(Loom::String name) : name_(std::move(name)) {}

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // The agent's name; it also names the agent's shared tables (Statedb::SharedTableManager).
  Loom::String const& name() const noexcept { return name_; }

  // Stores `entity` at `path`, replacing what was there; a null entity is refused with
  // Loom::NullPointerArgumentError.
  void entityIs(Loom::String const& path, Loom::Ptr<Loom::Node> entity);
  // Removes the entity at `path`; nothing happens when there is none.
  void entityDel(Loom::String const& path);
  bool entityHas(Loom::String const& path) const { return entities_.contains(path); }

  // The entity at `path`, null when there is none.
  Loom::Ptr<Loom::Node> entity(Loom::String const& path) const;
  // The entity at `path` as a `T`; null when there is none or it is not a `T`.
  template <class T>
  Loom::Ptr<T> entity(Loom::String const& path) const {
    return Loom::dynamicPtrCast<T>(entity(path));
  }

  // Every path that holds an entity, in ascending order.
  std::vector<Loom::String> paths() const;

 private:
  Loom::String const name_;
  std::map<Loom::String, Loom::Ptr<Loom::Node>> entities_;
};

}  // namespace Statedb
