// The agent's view of the state database: entities by path, typed lookups that never throw.

#include <gtest/gtest.h>

#include <vector>

#include "Fab/HwVplsMactConfig.h"
#include "Fab/HwVplsPwDecapConfig.h"
#include "Loom/Errors.h"
#include "Statedb/EntityManager.h"

namespace {

using Statedb::EntityManager;

TEST(StatedbEntityManager, TypedLookupGivesTheEntityOnlyAsItsOwnType) {
  auto const manager = EntityManager::EntityManagerIs("MarlTunnel");
  auto const mact = Fab::HwVplsMactConfig::HwVplsMactConfigIs();
  manager->entityIs("hardware/fab/vpls/mactConfig", mact);

  EXPECT_EQ(manager->name(), "MarlTunnel");
  EXPECT_EQ(manager->entity<Fab::HwVplsMactConfig>("hardware/fab/vpls/mactConfig"), mact);
  EXPECT_EQ(manager->entity<Fab::HwVplsMactConfig const>("hardware/fab/vpls/mactConfig"), mact);
  EXPECT_EQ(manager->entity("hardware/fab/vpls/mactConfig"), mact);
  // Another type or another path: null, never an exception.
  EXPECT_EQ(manager->entity<Fab::HwVplsPwDecapConfig>("hardware/fab/vpls/mactConfig"), nullptr);
  EXPECT_EQ(manager->entity<Fab::HwVplsMactConfig>("hardware/fab/vpls/mactconfig"), nullptr);
  EXPECT_EQ(manager->entity("nowhere"), nullptr);
}

TEST(StatedbEntityManager, StoringReplacingAndDeletingKeepThePathsInOrder) {
  auto const manager = EntityManager::EntityManagerIs("agent");
  auto const first = Fab::HwVplsMactConfig::HwVplsMactConfigIs();
  auto const second = Fab::HwVplsMactConfig::HwVplsMactConfigIs();
  manager->entityIs("b/path", first);
  manager->entityIs("a/path", Fab::HwVplsPwDecapConfig::HwVplsPwDecapConfigIs());
  manager->entityIs("b/path", second);
  EXPECT_EQ(manager->entity<Fab::HwVplsMactConfig>("b/path"), second);
  EXPECT_EQ(first->useCount(), 1u) << "the replaced entity is released";
  EXPECT_EQ(manager->paths(), (std::vector<Loom::String>{"a/path", "b/path"}));

  manager->entityDel("a/path");
  manager->entityDel("a/path");  // absent: nothing happens
  EXPECT_FALSE(manager->entityHas("a/path"));
  EXPECT_EQ(manager->paths(), (std::vector<Loom::String>{"b/path"}));
}

TEST(StatedbEntityManager, NullEntityIsRefused) {
  auto const manager = EntityManager::EntityManagerIs("agent");
  EXPECT_THROW(manager->entityIs("x", nullptr), Loom::NullPointerArgumentError);
  EXPECT_FALSE(manager->entityHas("x"));
}

TEST(StatedbEntityManager, IsCreatedByTypeNameWithItsName) {
  auto const node = Loom::TypeRegistry::instance().create("Statedb::EntityManager",
                                                          {std::any(Loom::String("byName"))});
  auto const manager = Loom::dynamicPtrCast<EntityManager>(node);
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(manager->name(), "byName");
}

}  // namespace
