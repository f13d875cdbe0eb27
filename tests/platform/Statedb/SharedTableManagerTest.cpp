// Shared tables: creation by type name at the first mount, type/mode/collection checks, and
// tables that outlive the agent that mounted them.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Fab/FecIdToHwFecIdRequest.h"
#include "Fab/FecIdToHwFecIdResponse.h"
#include "Fab/HwVplsPwDecapConfig.h"
#include "Loom/Errors.h"
#include "Mpls/LfibStatus.h"
#include "Statedb/SharedTableManager.h"

namespace {

using Statedb::MountError;
using Statedb::MountMode;
using Statedb::SharedTableManager;

constexpr char kResponsePath[] = "fab/vpls/l2UcastHwFecIdResponse";
constexpr char kResponseType[] = "Fab::FecIdToHwFecIdResponse";
constexpr char kRequestPath[] = "fab/vpls/l2UcastHwFecIdRequest";
constexpr char kRequestType[] = "Fab::FecIdToHwFecIdRequest";

class StatedbMount : public ::testing::Test {
 protected:
  void SetUp() override {
    SharedTableManager::resetAllForTest();
    tables = SharedTableManager::forAgent("MarlTunnel");
  }
  void TearDown() override { SharedTableManager::resetAllForTest(); }

  Loom::Ptr<SharedTableManager> tables;
};

TEST_F(StatedbMount, OneManagerPerAgentName) {
  EXPECT_EQ(SharedTableManager::forAgent("MarlTunnel"), tables);
  EXPECT_NE(SharedTableManager::forAgent("Other"), tables);
  EXPECT_EQ(tables->agentName(), "MarlTunnel");
  EXPECT_THROW(SharedTableManager::forAgent(""), std::invalid_argument);
}

TEST_F(StatedbMount, FirstMountCreatesTheTableByTypeName) {
  auto const mounted = tables->mount(kResponsePath, kResponseType, MountMode::readOnly);
  ASSERT_NE(mounted, nullptr);
  EXPECT_EQ(mounted->typeData().name(), kResponseType);
  EXPECT_TRUE(tables->mounted(kResponsePath));
  EXPECT_EQ(tables->mountMode(kResponsePath), MountMode::readOnly);
  EXPECT_EQ(tables->mountedEntity<Fab::FecIdToHwFecIdResponse>(kResponsePath), mounted);
  EXPECT_EQ(tables->mountedEntity<Fab::FecIdToHwFecIdResponse const>(kResponsePath), mounted);
  EXPECT_EQ(tables->mountedEntity<Fab::FecIdToHwFecIdRequest>(kResponsePath), nullptr)
      << "another type gives null";
  EXPECT_EQ(tables->mountedEntity<Fab::FecIdToHwFecIdResponse>(kRequestPath), nullptr)
      << "an unmounted path gives null";
  // Mounting again in the same mode finds the same table.
  EXPECT_EQ(tables->mount(kResponsePath, kResponseType, MountMode::readOnly), mounted);
  EXPECT_EQ(tables->mountedPaths(), (std::vector<Loom::String>{kResponsePath}));
}

TEST_F(StatedbMount, TypeThatCannotBeCreatedByNameIsRefusedAndLeavesNoTable) {
  for (auto const& [type, message] :
       {std::pair{"Fab::NoSuchTable", "unknown table type 'Fab::NoSuchTable' for 'some/path'"},
        {"Statedb::EntityManager",
         "table type 'Statedb::EntityManager' for 'some/path' cannot be created: "}}) {
    try {
      tables->mount("some/path", type, MountMode::write);
      ADD_FAILURE() << "mounted " << type;
    } catch (std::invalid_argument const& e) {
      EXPECT_EQ(std::string(e.what()).rfind(message, 0), 0u) << e.what();
    }
    EXPECT_FALSE(tables->mounted("some/path"));
    EXPECT_EQ(tables->table("some/path"), nullptr);
  }
}

// A mount that does not fit the table: what the error names, and that the existing mount is
// left as it was.
struct ConflictCase {
  char const* name;
  char const* secondType;
  MountMode firstMode;
  MountMode secondMode;
  char const* message;
};

class StatedbMountConflict : public StatedbMount,
                             public ::testing::WithParamInterface<ConflictCase> {};

TEST_P(StatedbMountConflict, IsAMountErrorNamingPathTypeAndMode) {
  auto const& c = GetParam();
  auto const first = tables->mount(kResponsePath, kResponseType, c.firstMode);
  try {
    tables->mount(kResponsePath, c.secondType, c.secondMode);
    ADD_FAILURE() << "mounted";
  } catch (MountError const& e) {
    EXPECT_STREQ(e.what(), c.message);
    EXPECT_EQ(e.path(), kResponsePath);
    EXPECT_EQ(e.typeName(), c.secondType);
    EXPECT_EQ(e.mode(), c.secondMode);
  }
  EXPECT_EQ(tables->mountMode(kResponsePath), c.firstMode);
  EXPECT_EQ(tables->mountedEntity(kResponsePath), first);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StatedbMountConflict,
    ::testing::Values(
        ConflictCase{"OtherType", kRequestType, MountMode::readOnly, MountMode::readOnly,
                     "cannot mount 'fab/vpls/l2UcastHwFecIdResponse' as "
                     "Fab::FecIdToHwFecIdRequest (read-only): the table is of type "
                     "Fab::FecIdToHwFecIdResponse"},
        ConflictCase{"WriteWhileReadOnly", kResponseType, MountMode::readOnly, MountMode::write,
                     "cannot mount 'fab/vpls/l2UcastHwFecIdResponse' as "
                     "Fab::FecIdToHwFecIdResponse (write): agent 'MarlTunnel' has it mounted "
                     "read-only"},
        ConflictCase{"ReadOnlyWhileWrite", kResponseType, MountMode::write, MountMode::readOnly,
                     "cannot mount 'fab/vpls/l2UcastHwFecIdResponse' as "
                     "Fab::FecIdToHwFecIdResponse (read-only): agent 'MarlTunnel' has it "
                     "mounted write"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(StatedbMount, DeclaredCollectionsMustBeCollectionsOfTheType) {
  std::vector<std::string> const used{"adjSyncIdMap", "syncRequestsReady", "fecGen",
                                      "extFecGen",    "hwFecIdRequest",    "objTupleToFecId"};
  EXPECT_NE(tables->mount(kRequestPath, kRequestType, MountMode::write, used), nullptr);

  try {
    tables->mount("other/path", kRequestType, MountMode::write, {"fecGen", "fecGeneration"});
    ADD_FAILURE() << "mounted";
  } catch (MountError const& e) {
    EXPECT_STREQ(e.what(),
                 "cannot mount 'other/path' as Fab::FecIdToHwFecIdRequest (write): "
                 "'fecGeneration' is not a collection of Fab::FecIdToHwFecIdRequest");
  }
  EXPECT_EQ(tables->table("other/path"), nullptr);
  // A scalar attribute is not a collection either.
  EXPECT_THROW(tables->mount("decap/config", "Fab::HwVplsPwDecapConfig", MountMode::readOnly,
                             {"startupSyncDone"}),
               MountError);
}

TEST_F(StatedbMount, TablesAndTheirContentsSurviveAnAgentRestart) {
  {
    // The agent's first life: it mounts the table and fills it in.
    auto const agentTables = SharedTableManager::forAgent("MarlTunnel");
    auto const response = Loom::dynamicPtrCast<Fab::FecIdToHwFecIdResponse>(
        agentTables->mount(kResponsePath, kResponseType, MountMode::write));
    ASSERT_NE(response, nullptr);
    response->hwFecIdResponseIs(7, Fab::NexthopIndex(0x1234u, 0x55u));
    agentTables->unmount(kResponsePath);
    agentTables->unmount(kResponsePath);  // not mounted: nothing happens
    EXPECT_EQ(agentTables->mountedEntity(kResponsePath), nullptr);
    EXPECT_EQ(agentTables->table(kResponsePath).get(), response.get());
  }
  tables = nullptr;
  // The rebuilt agent finds the same manager and the same table, and mounts it read-only.
  auto const agentTables = SharedTableManager::forAgent("MarlTunnel");
  EXPECT_FALSE(agentTables->mounted(kResponsePath));
  agentTables->mount(kResponsePath, kResponseType, MountMode::readOnly);
  auto const response = agentTables->mountedEntity<Fab::FecIdToHwFecIdResponse>(kResponsePath);
  ASSERT_NE(response, nullptr);
  EXPECT_EQ(response->hwFecIdResponse(7), Fab::NexthopIndex(0x1234u, 0x55u));

  // Wiping the shared memory is what loses it.
  SharedTableManager::resetAllForTest();
  auto const fresh = SharedTableManager::forAgent("MarlTunnel");
  EXPECT_NE(fresh, agentTables);
  EXPECT_EQ(fresh->table(kResponsePath), nullptr);
}

TEST_F(StatedbMount, PrePopulatedTableIsFoundByTheMountOfItsType) {
  auto const lfib = Mpls::LfibStatus::LfibStatusIs();
  tables->tableIs("mpls/pseudowireLfib", lfib);
  EXPECT_FALSE(tables->mounted("mpls/pseudowireLfib"));
  EXPECT_THROW(tables->mount("mpls/pseudowireLfib", kResponseType, MountMode::readOnly),
               MountError);
  EXPECT_EQ(tables->mount("mpls/pseudowireLfib", "Mpls::LfibStatus", MountMode::readOnly), lfib);
  EXPECT_EQ(tables->mountedEntity<Mpls::LfibStatus>("mpls/pseudowireLfib"), lfib);

  // While mounted it cannot be swapped under the agent; afterwards it can.
  EXPECT_THROW(tables->tableIs("mpls/pseudowireLfib", Mpls::LfibStatus::LfibStatusIs()),
               std::logic_error);
  EXPECT_EQ(tables->mountedEntity("mpls/pseudowireLfib"), lfib);
  tables->unmount("mpls/pseudowireLfib");
  auto const replacement = Mpls::LfibStatus::LfibStatusIs();
  tables->tableIs("mpls/pseudowireLfib", replacement);
  EXPECT_EQ(tables->mount("mpls/pseudowireLfib", "Mpls::LfibStatus", MountMode::write),
            replacement);
  EXPECT_THROW(tables->tableIs("x", nullptr), Loom::NullPointerArgumentError);
}

}  // namespace
