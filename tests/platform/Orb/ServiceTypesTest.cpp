// The agent services as framework types: registered by name, and created by name where that makes
// sense.

#include <gtest/gtest.h>

#include <any>
#include <optional>
#include <string_view>

#include "Fab/FabVplsPwSm.h"
#include "Loom/TypeData.h"
#include "Orb/AgentSocketCallback.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "Orb/IoctlDrvFab.h"
#include "Orb/TaskSchedulerRoot.h"
#include "Statedb/EntityManager.h"
#include "Statedb/SharedTableManager.h"

namespace {

struct TypeCase {
  std::string_view name;
  bool constructible;
  std::optional<Loom::ArgList> args;  // when the case creates one by name
};

TEST(OrbServiceTypes, AreRegisteredAndCreatedByName) {
  auto const& registry = Loom::TypeRegistry::instance();
  TypeCase const cases[] = {
      {"Statedb::EntityManager", true, Loom::ArgList{std::any(Loom::String("agent"))}},
      {"Statedb::SharedTableManager", true, Loom::ArgList{std::any(Loom::String("agent"))}},
      {"Orb::TaskSchedulerRoot", true, Loom::ArgList{}},
      {"Orb::AgentSocketHandlerSm", true, Loom::ArgList{std::any(Loom::String("handler"))}},
      {"Orb::IoctlDrvFab", true, Loom::ArgList{}},
      {"Orb::AgentSocketCallback", false, std::nullopt},
      {"Fab::FabVplsPwSm", true, std::nullopt},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(std::string(c.name));
    auto const* type = registry.find(c.name);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->name(), c.name);
    EXPECT_EQ(type->constructible(), c.constructible);
    if (c.args) {
      auto const node = registry.create(c.name, *c.args);
      ASSERT_NE(node, nullptr);
      EXPECT_EQ(node->typeData().name(), c.name);
    }
  }
  Statedb::SharedTableManager::resetAllForTest();
}

}  // namespace
