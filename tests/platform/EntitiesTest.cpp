// The foreign entity tables: their accessor families, their reactor wiring and their
// registration for creation by type name.

#include <gtest/gtest.h>

#include <any>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Fab/EvpnVplsInteropStatus.h"
#include "Fab/FabL3AdjSyncStatusExternal.h"
#include "Fab/FecIdToHwFecIdRequest.h"
#include "Fab/FecIdToHwFecIdResponse.h"
#include "Fab/HwVplsMactConfig.h"
#include "Fab/HwVplsPwConfig.h"
#include "Fab/HwVplsPwDecapStatus.h"
#include "Fab/HwVplsPwStatus.h"
#include "Fab/LabelToPwIntfId.h"
#include "Fab/VplsHwCollectionStatus.h"
#include "Fab/VplsHwSingletonStatus.h"
#include "Fab/VplsPwIntfAdditionalDataMap.h"
#include "Hardware/EsemConfigVpls.h"
#include "Hardware/EsemStatusVpls.h"
#include "Hardware/EvecProfileRequestDir.h"
#include "Hardware/IntfToLifProfileOrientationKeyMap.h"
#include "Hardware/LifProfileOrientationConfig.h"
#include "Hardware/LifProfileOrientationStatus.h"
#include "Hardware/MplsDecapConfig.h"
#include "Hardware/MplsDecapStatus.h"
#include "Hardware/StartupStageStatus.h"
#include "Hardware/TagPopPushConfig.h"
#include "Hardware/VtepTypeStatus.h"
#include "Loom/TypeData.h"
#include "Mpls/Api/LabelManagerStatus.h"
#include "Mpls/Hardware/Capability.h"
#include "Mpls/LfibStatus.h"
#include "Netcore/IntfIdDisplayContext.h"
#include "Pseudowire/VplsForwardingStatus.h"

namespace {

namespace HM = ::Hardware::MarlTunnel;
using ::Hardware::Marl::Jericho2LifProfiles;
using Netcore::IntfId;

IntfId pw(std::uint32_t n) {
  return IntfId::pseudowire(n);
}

HM::LifProfileOrientationKey lpoKey(char const* instance, std::uint16_t vlan, char const* group,
                                    IntfId intf) {
  return HM::LifProfileOrientationKey(HM::VlanAndVplsKey(instance, vlan, group, true), intf);
}

HM::MplsDecapInfoKey decapKey(std::uint32_t label, std::uint32_t tag) {
  return HM::MplsDecapInfoKey(Netcore::MplsLabel(label), Bridging::VlanIdOrNone(tag));
}

// --- Keyed collections -------------------------------------------------------------------------
//
// One case per collection member: how to reach its accessor family, two keys in ascending order,
// a value to store, and what a lookup of an absent key must return. The recorder overrides only
// the member's own handler, so a collection wired to another member's handler goes unnoticed by
// it and fails the case.
#define COLLECTION_CASE(CaseName, EntityType, member, handler, KeyType, ValueType, k1, k2, v, \
                        absentValue)                                                          \
  struct CaseName {                                                                           \
    static constexpr char const* name = #CaseName;                                            \
    using Entity = EntityType;                                                                \
    using Key = KeyType;                                                                      \
    using Value = ValueType;                                                                  \
    struct Recorder : Entity::Reactor {                                                       \
      std::vector<Key> keys;                                                                  \
      void handler(Key const& k) override { keys.push_back(k); }                              \
    };                                                                                        \
    static Loom::Ptr<Entity> create() {                                                       \
      return Loom::dynamicPtrCast<Entity>(                                                    \
          Loom::TypeRegistry::instance().create(Entity::typeName, {}));                       \
    }                                                                                         \
    static std::pair<Key, Key> keys() { return {k1, k2}; }                                    \
    static Value value() { return v; }                                                        \
    static Value absent() { return absentValue; }                                             \
    static auto const& all(Entity const& e) { return e.member(); }                            \
    static Value get(Entity const& e, Key const& k) { return e.member(k); }                   \
    static bool has(Entity const& e, Key const& k) { return e.member##Has(k); }               \
    static void set(Entity& e, Key const& k, Value const& val) { e.member##Is(k, val); }      \
    static void del(Entity& e, Key const& k) { e.member##Del(k); }                            \
    static void delAll(Entity& e) { e.member##DelAll(); }                                     \
  }

COLLECTION_CASE(
    HwVplsPwConfigInfo, Fab::HwVplsPwConfig, vplsPwIntfInfo, onVplsPwIntfInfo, IntfId,
    Fab::VplsPwIntfInfo, pw(1), pw(2),
    Fab::VplsPwIntfInfo(pw(1)).vplsInstanceNameIs("blue").remoteLabelIs(Netcore::MplsLabel(100)),
    Fab::VplsPwIntfInfo());
COLLECTION_CASE(HwVplsPwDecapStatusDecap, Fab::HwVplsPwDecapStatus, decapStatus, onDecapStatus,
                Fab::VplsPwIntfVlanKey, Fab::NexthopIndex,
                Fab::VplsPwIntfVlanKey(pw(1), Bridging::VlanId(10)),
                Fab::VplsPwIntfVlanKey(pw(1), Bridging::VlanId(20)),
                Fab::NexthopIndex(std::uint32_t{5}, std::uint32_t{0x1000}),
                Fab::NexthopIndex(Fab::NexthopIndex::kInvalid));
COLLECTION_CASE(HwVplsPwStatusEncap, Fab::HwVplsPwStatus, encapAdditionalId, onEncapAdditionalId,
                IntfId, Fab::VplsEncapAdditionalId, pw(3), pw(4), Fab::VplsEncapAdditionalId(7),
                Fab::VplsEncapAdditionalId(0));
COLLECTION_CASE(AdditionalData, Fab::VplsPwIntfAdditionalDataMap, additionalDataMap,
                onAdditionalDataMap, Fab::VplsIntfKey, std::uint16_t,
                Fab::VplsIntfKey("a", "g", pw(1), true), Fab::VplsIntfKey("b", "g", pw(1), true),
                std::uint16_t{9}, std::uint16_t{0});
COLLECTION_CASE(LabelToPw, Fab::LabelToPwIntfId, labelToPwIntf, onLabelToPwIntf, Netcore::MplsLabel,
                IntfId, Netcore::MplsLabel(100), Netcore::MplsLabel(200), pw(5), IntfId());
COLLECTION_CASE(HwFecIdResponse, Fab::FecIdToHwFecIdResponse, hwFecIdResponse, onHwFecIdResponse,
                std::uint64_t, Fab::NexthopIndex, std::uint64_t{10}, std::uint64_t{20},
                Fab::NexthopIndex(std::uint32_t{3}, std::uint32_t{4}),
                Fab::NexthopIndex(Fab::NexthopIndex::kInvalid));
COLLECTION_CASE(RequestAdjSyncId, Fab::FecIdToHwFecIdRequest, adjSyncIdMap, onAdjSyncIdMap,
                std::uint32_t, std::uint32_t, 1u, 2u, 7u, 0u);
COLLECTION_CASE(RequestSyncReady, Fab::FecIdToHwFecIdRequest, syncRequestsReady,
                onSyncRequestsReady, std::uint32_t, bool, 1u, 2u, true, false);
COLLECTION_CASE(RequestFecGen, Fab::FecIdToHwFecIdRequest, fecGen, onFecGen, std::uint32_t,
                std::uint64_t, 1u, 2u, std::uint64_t{3}, std::uint64_t{0});
COLLECTION_CASE(RequestExtFecGen, Fab::FecIdToHwFecIdRequest, extFecGen, onExtFecGen, std::uint32_t,
                std::uint64_t, 1u, 2u, std::uint64_t{4}, std::uint64_t{0});
COLLECTION_CASE(RequestHwFecId, Fab::FecIdToHwFecIdRequest, hwFecIdRequest, onHwFecIdRequest,
                std::uint64_t, bool, std::uint64_t{1}, std::uint64_t{2}, true, false);
COLLECTION_CASE(RequestObjTuple, Fab::FecIdToHwFecIdRequest, objTupleToFecId, onObjTupleToFecId,
                std::uint64_t, std::uint64_t, std::uint64_t{1}, std::uint64_t{2}, std::uint64_t{9},
                std::uint64_t{0});
COLLECTION_CASE(DecapConfig, HM::MplsDecapConfig, config, onConfig, HM::MplsDecapInfoKey,
                HM::MplsDecapInfo, decapKey(100, 10), decapKey(100, 20),
                HM::MplsDecapInfo(decapKey(100, 10))
                    .hwFecIdIs(5)
                    .inLifProfileIs(Jericho2LifProfiles::vplsSpokeInLifProfile_),
                HM::MplsDecapInfo());
COLLECTION_CASE(DecapStatus, HM::MplsDecapStatus, status, onStatus, HM::MplsDecapInfoKey, bool,
                decapKey(100, 10), decapKey(200, 0), true, false);
COLLECTION_CASE(LpoResponse, HM::LifProfileOrientationStatus, lpoResponse, onLpoResponse,
                HM::LifProfileOrientationKey, HM::LifProfileAndOrientation,
                lpoKey("a", 0, "g", pw(1)), lpoKey("a", 0, "g", pw(2)),
                HM::LifProfileAndOrientation(Jericho2LifProfiles::vplsMeshInLifProfile1_,
                                             HM::Orientation::orientation1),
                HM::LifProfileAndOrientation());
COLLECTION_CASE(EsemConfig, HM::EsemConfigVpls, esemConfig, onEsemConfig, HM::EsemConfigKeyVpls,
                HM::EsemConfigInfoVpls, HM::EsemConfigKeyVpls(5, 10), HM::EsemConfigKeyVpls(5, 20),
                HM::EsemConfigInfoVpls(10, 14, Jericho2LifProfiles::vplsEsemOutLifProfile1_),
                HM::EsemConfigInfoVpls());
COLLECTION_CASE(EsemStatus, HM::EsemStatusVpls, status, onStatus, HM::EsemConfigKeyVpls, bool,
                HM::EsemConfigKeyVpls(5, 10), HM::EsemConfigKeyVpls(6, 10), true, false);
COLLECTION_CASE(TagPopPush, HM::TagPopPushConfig, app, onApp, ::Hardware::Marl::VtAppId, bool,
                ::Hardware::Marl::VtAppId::vplsPwTagPopPush,
                static_cast<::Hardware::Marl::VtAppId>(26), true, false);
COLLECTION_CASE(IntfToLpoKey, HM::IntfToLifProfileOrientationKeyMap, lifProfileOrientationKey,
                onLifProfileOrientationKey, IntfId, HM::LifProfileOrientationKey, pw(1), pw(2),
                lpoKey("", 10, "g", pw(1)), HM::LifProfileOrientationKey());

#undef COLLECTION_CASE

template <class Case>
class EntityCollectionTest : public ::testing::Test {};

struct CaseNames {
  template <class Case>
  static std::string GetName(int) {
    return Case::name;
  }
};

using CollectionCases =
    ::testing::Types<HwVplsPwConfigInfo, HwVplsPwDecapStatusDecap, HwVplsPwStatusEncap,
                     AdditionalData, LabelToPw, HwFecIdResponse, RequestAdjSyncId, RequestSyncReady,
                     RequestFecGen, RequestExtFecGen, RequestHwFecId, RequestObjTuple, DecapConfig,
                     DecapStatus, LpoResponse, EsemConfig, EsemStatus, TagPopPush, IntfToLpoKey>;
TYPED_TEST_SUITE(EntityCollectionTest, CollectionCases, CaseNames);

TYPED_TEST(EntityCollectionTest, AccessorFamilyAndHandler) {
  using C = TypeParam;
  auto const entity = C::create();
  ASSERT_TRUE(entity);
  typename C::Recorder recorder;
  entity->publisher().subscribe(recorder);
  auto const [k1, k2] = C::keys();
  ASSERT_TRUE(k1 < k2);
  ASSERT_FALSE(C::value() == C::absent());

  // Absent: lookup yields the absent value, and reading notifies nobody.
  EXPECT_FALSE(C::has(*entity, k1));
  EXPECT_EQ(C::get(*entity, k1), C::absent());
  EXPECT_TRUE(recorder.keys.empty());

  // Writes store under exactly the written key and notify that key.
  C::set(*entity, k2, C::value());
  EXPECT_EQ(recorder.keys, std::vector{k2});
  EXPECT_FALSE(C::has(*entity, k1));
  C::set(*entity, k1, C::value());
  EXPECT_EQ(recorder.keys, (std::vector{k2, k1}));
  EXPECT_TRUE(C::has(*entity, k1));
  EXPECT_EQ(C::get(*entity, k1), C::value());

  std::vector<typename C::Key> seen;
  for (auto const& [key, value] : C::all(*entity)) {
    seen.push_back(key);
    EXPECT_EQ(value, C::value());
  }
  EXPECT_EQ(seen, (std::vector{k1, k2}));

  // Deleting notifies the deleted key. What repeated writes and deletes notify is the same for
  // every member (tests/platform/Loom/NotificationTest.cpp).
  recorder.keys.clear();
  C::del(*entity, k1);
  EXPECT_EQ(recorder.keys, std::vector{k1});
  EXPECT_FALSE(C::has(*entity, k1));
  EXPECT_EQ(C::get(*entity, k1), C::absent());
  EXPECT_TRUE(C::has(*entity, k2));

  // Deleting everything notifies each member's key.
  C::set(*entity, k1, C::value());
  recorder.keys.clear();
  C::delAll(*entity);
  EXPECT_EQ(recorder.keys, (std::vector{k1, k2}));
  EXPECT_EQ(C::all(*entity).size(), 0u);
}

// --- The set and the self-keyed collection -------------------------------------------------------

TEST(EntitySet, EvecRequestIsFiledUnderItsOwnKey) {
  struct Recorder : HM::EvecProfileRequestDir::Reactor {
    std::vector<HM::EvecProfileKey> keys;
    void onEvecProfileRequest(HM::EvecProfileKey const& k) override { keys.push_back(k); }
  };
  auto const dir = HM::EvecProfileRequestDir::EvecProfileRequestDirIs();
  Recorder recorder;
  dir->publisher().subscribe(recorder);
  HM::EvecProfileRequest const vpls(HM::EvecProfileKey::kVplsEditProfile,
                                    HM::EvecProfileKey::kVplsVtApp);
  HM::EvecProfileRequest const other(1, 2);

  EXPECT_EQ(dir->evecProfileRequest(vpls.key()), HM::EvecProfileRequest());
  dir->evecProfileRequestIs(vpls);
  dir->evecProfileRequestIs(other);
  EXPECT_EQ(recorder.keys, (std::vector{vpls.key(), other.key()}));
  EXPECT_TRUE(dir->evecProfileRequestHas(HM::EvecProfileKey(14, 25)));
  EXPECT_EQ(dir->evecProfileRequest(HM::EvecProfileKey(14, 25)), vpls);
  EXPECT_FALSE(dir->evecProfileRequestHas(HM::EvecProfileKey(25, 14)));

  recorder.keys.clear();
  dir->evecProfileRequestDel(vpls.key());
  EXPECT_EQ(recorder.keys, std::vector{vpls.key()});
  EXPECT_EQ(dir->evecProfileRequest().size(), 1u);
  dir->evecProfileRequestDelAll();
  EXPECT_EQ(recorder.keys, (std::vector{vpls.key(), other.key()}));
  EXPECT_EQ(dir->evecProfileRequest().size(), 0u);
}

// --- Scalars -------------------------------------------------------------------------------------

TEST(EntityScalar, EachVtepFlagNotifiesOnlyItsOwnHandler) {
  struct Recorder : HM::VtepTypeStatus::Reactor {
    std::vector<std::string> events;
    void onVxlanPresent() override { events.emplace_back("vxlanPresent"); }
    void onVxlanDciConfigured() override { events.emplace_back("vxlanDciConfigured"); }
  };
  auto const status = HM::VtepTypeStatus::VtepTypeStatusIs();
  Recorder recorder;
  status->publisher().subscribe(recorder);
  status->vxlanPresentIs(true);
  EXPECT_FALSE(status->vxlanDciConfigured());
  status->vxlanDciConfiguredIs(true);
  EXPECT_TRUE(status->vxlanPresent());
  status->vxlanPresentIs(false);
  EXPECT_FALSE(status->vxlanPresent());
  EXPECT_TRUE(status->vxlanDciConfigured());
  EXPECT_EQ(recorder.events,
            (std::vector<std::string>{"vxlanPresent", "vxlanDciConfigured", "vxlanPresent"}));
}

// --- Registration --------------------------------------------------------------------------------
//
// Every entity type is found and created by its name, as the shared tables are at their first
// mount; a table takes no constructor arguments. Which attributes a mount may name is checked by
// tests/platform/Statedb/SharedTableManagerTest.cpp.

TEST(EntityRegistry, EveryTypeIsCreatedByName) {
  auto const& registry = Loom::TypeRegistry::instance();
  std::istringstream names(
      "Fab::HwVplsPwConfig Fab::HwVplsPwDecapStatus Fab::HwVplsPwStatus "
      "Fab::VplsPwIntfAdditionalDataMap Fab::LabelToPwIntfId Fab::FecIdToHwFecIdResponse "
      "Fab::FecIdToHwFecIdRequest Fab::VplsHwCollectionStatus Fab::VplsHwSingletonStatus "
      "Fab::FabL3AdjSyncStatusExternal Fab::EvpnVplsInteropStatus Fab::HwVplsMactConfig "
      "Hardware::MarlTunnel::MplsDecapConfig Hardware::MarlTunnel::MplsDecapStatus "
      "Hardware::MarlTunnel::LifProfileOrientationConfig "
      "Hardware::MarlTunnel::LifProfileOrientationStatus Hardware::MarlTunnel::EsemConfigVpls "
      "Hardware::MarlTunnel::EsemStatusVpls Hardware::MarlTunnel::TagPopPushConfig "
      "Hardware::MarlTunnel::EvecProfileRequestDir Hardware::MarlTunnel::VtepTypeStatus "
      "Hardware::MarlTunnel::IntfToLifProfileOrientationKeyMap "
      "Hardware::MarlTunnel::StartupStageStatus Netcore::IntfIdDisplayContext "
      "Mpls::Hardware::Capability Mpls::LfibStatus Mpls::Api::LabelManagerStatus "
      "Pseudowire::VplsForwardingStatus");
  for (std::string name; names >> name;) {
    SCOPED_TRACE(name);
    auto const* type = registry.find(name);
    ASSERT_NE(type, nullptr);
    auto const node = registry.create(name, {});
    ASSERT_TRUE(node);
    EXPECT_EQ(&node->typeData(), type);
    EXPECT_EQ(type->name(), name);
    EXPECT_THROW(registry.create(name, {std::any(1)}), std::invalid_argument);
  }
}

// --- Interface name display ----------------------------------------------------------------------

TEST(EntityDisplay, InterfaceNames) {
  struct Row {
    IntfId id;
    std::string full;
    std::string shortName;
  };
  std::vector<Row> const rows = {
      {IntfId(), "", ""},
      {pw(1), "Pseudowire1", "Pw1"},
      {pw(65535), "Pseudowire65535", "Pw65535"},
      {IntfId::fromValue(0x01000005), "IntfId(0x01000005)", "IntfId(0x01000005)"},
  };
  auto const display = Netcore::IntfIdDisplayContext::IntfIdDisplayContextIs();
  for (auto const& row : rows) {
    SCOPED_TRACE(row.full);
    EXPECT_EQ(display->name(row.id), row.full);
    EXPECT_EQ(display->shortName(row.id), row.shortName);
  }
}

}  // namespace
