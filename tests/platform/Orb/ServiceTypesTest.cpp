// The agent services as framework types: registered by name, created by name where that makes
// sense, and the shared pseudowire state machine's seat holding its 20 arguments in order.

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

// Every argument distinct, so that a swap of two positions shows.
struct PwSmArguments {
  Loom::Ptr<Orb::TaskSchedulerRoot> scheduler = Orb::TaskSchedulerRoot::TaskSchedulerRootIs();
  Loom::Ptr<Pseudowire::VplsForwardingStatus> forwarding =
      Pseudowire::VplsForwardingStatus::VplsForwardingStatusIs();
  Loom::Ptr<Mpls::LfibStatus> lfib = Mpls::LfibStatus::LfibStatusIs();
  Loom::Ptr<Fab::FecIdToHwFecIdRequest> request =
      Fab::FecIdToHwFecIdRequest::FecIdToHwFecIdRequestIs();
  Loom::Ptr<Fab::FecIdToHwFecIdResponse> response =
      Fab::FecIdToHwFecIdResponse::FecIdToHwFecIdResponseIs();
  Loom::Ptr<Fab::VplsHwSingletonStatus> singleton =
      Fab::VplsHwSingletonStatus::VplsHwSingletonStatusIs();
  Loom::Ptr<Fab::VplsHwCollectionStatus> collection =
      Fab::VplsHwCollectionStatus::VplsHwCollectionStatusIs();
  Loom::Ptr<Fab::FabL3AdjSyncStatusExternal> adjSync =
      Fab::FabL3AdjSyncStatusExternal::FabL3AdjSyncStatusExternalIs();
  Loom::Ptr<Fab::HwVplsPwConfig> pwConfig = Fab::HwVplsPwConfig::HwVplsPwConfigIs();
  Loom::Ptr<Fab::HwVplsPwStatus> pwStatus = Fab::HwVplsPwStatus::HwVplsPwStatusIs();
  Loom::Ptr<Fab::HwVplsPwDecapConfig> decapConfig =
      Fab::HwVplsPwDecapConfig::HwVplsPwDecapConfigIs();
  Loom::Ptr<Fab::HwVplsPwDecapStatus> decapStatus =
      Fab::HwVplsPwDecapStatus::HwVplsPwDecapStatusIs();
  Loom::Ptr<Fab::EvpnVplsInteropStatus> interop =
      Fab::EvpnVplsInteropStatus::EvpnVplsInteropStatusIs();
  Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> additional =
      Fab::VplsPwIntfAdditionalDataMap::VplsPwIntfAdditionalDataMapIs();
  Loom::Ptr<Fab::HwVplsMactConfig> mact = Fab::HwVplsMactConfig::HwVplsMactConfigIs();
  Loom::Ptr<Orb::IoctlDrvFab> ioctl = Orb::IoctlDrvFab::IoctlDrvFabIs();
  Loom::Ptr<Mpls::Hardware::Capability> capability = Mpls::Hardware::Capability::CapabilityIs();
  Loom::Ptr<Mpls::Api::LabelManagerStatus> labels =
      Mpls::Api::LabelManagerStatus::LabelManagerStatusIs();
  Loom::Ptr<Statedb::EntityManager> entities = Statedb::EntityManager::EntityManagerIs("agent");

  void expectHeldBy(Fab::FabVplsPwSm const& sm, bool cleanSlate) const {
    EXPECT_EQ(sm.taskScheduler(), scheduler);
    EXPECT_EQ(sm.forwardingStatus(), forwarding);
    EXPECT_EQ(sm.lfibStatus(), lfib);
    EXPECT_EQ(sm.fecIdRequest(), request);
    EXPECT_EQ(sm.fecIdResponse(), response);
    EXPECT_EQ(sm.vplsHwSingletonStatus(), singleton);
    EXPECT_EQ(sm.vplsHwCollectionStatus(), collection);
    EXPECT_EQ(sm.fabL3AdjSyncStatusExt(), adjSync);
    EXPECT_EQ(sm.hwVplsPwConfig(), pwConfig);
    EXPECT_EQ(sm.hwVplsPwStatus(), pwStatus);
    EXPECT_EQ(sm.hwVplsPwDecapConfig(), decapConfig);
    EXPECT_EQ(sm.hwVplsPwDecapStatus(), decapStatus);
    EXPECT_EQ(sm.evpnVplsInteropStatus(), interop);
    EXPECT_EQ(sm.vplsPwIntfAdditionalDataMap(), additional);
    EXPECT_EQ(sm.mactConfig(), mact);
    EXPECT_EQ(sm.ioctlDrv(), ioctl);
    EXPECT_EQ(sm.routingHwMplsCapability(), capability);
    EXPECT_EQ(sm.labelManagerStatus(), labels);
    EXPECT_EQ(sm.entityManager(), entities);
    EXPECT_EQ(sm.cleanSlate(), cleanSlate);
  }
};

TEST(OrbServiceTypes, SharedPseudowireStateMachineHoldsItsArgumentsInOrder) {
  PwSmArguments const a;
  auto const sm = Fab::FabVplsPwSm::FabVplsPwSmIs(
      a.scheduler, a.forwarding, a.lfib, a.request, a.response, a.singleton, a.collection,
      a.adjSync, a.pwConfig, a.pwStatus, a.decapConfig, a.decapStatus, a.interop, a.additional,
      a.mact, a.ioctl, a.capability, a.labels, a.entities, true);
  a.expectHeldBy(*sm, true);
  EXPECT_EQ(sm->typeData().attributes().size(), 20u);
}

}  // namespace
