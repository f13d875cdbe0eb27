#include "Fab/FabVplsPwSm.h"

#include <utility>

namespace Fab {

Loom::Ptr<FabVplsPwSm> FabVplsPwSm::FabVplsPwSmIs(
    Loom::Ptr<Orb::TaskSchedulerRoot> const& taskScheduler,
    Loom::Ptr<Pseudowire::VplsForwardingStatus const> const& forwardingStatus,
    Loom::Ptr<Mpls::LfibStatus const> const& lfibStatus,
    Loom::Ptr<FecIdToHwFecIdRequest> const& fecIdRequest,
    Loom::Ptr<FecIdToHwFecIdResponse const> const& fecIdResponse,
    Loom::Ptr<VplsHwSingletonStatus const> const& vplsHwSingletonStatus,
    Loom::Ptr<VplsHwCollectionStatus const> const& vplsHwCollectionStatus,
    Loom::Ptr<FabL3AdjSyncStatusExternal const> const& fabL3AdjSyncStatusExt,
    Loom::Ptr<HwVplsPwConfig const> const& hwVplsPwConfig,
    Loom::Ptr<HwVplsPwStatus> const& hwVplsPwStatus,
    Loom::Ptr<HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
    Loom::Ptr<HwVplsPwDecapStatus> const& hwVplsPwDecapStatus,
    Loom::Ptr<EvpnVplsInteropStatus const> const& evpnVplsInteropStatus,
    Loom::Ptr<VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap,
    Loom::Ptr<HwVplsMactConfig const> const& mactConfig,
    Loom::Ptr<Orb::IoctlDrvFab> const& ioctlDrv,
    Loom::Ptr<Mpls::Hardware::Capability const> const& routingHwMplsCapability,
    Loom::Ptr<Mpls::Api::LabelManagerStatus const> const& labelManagerStatus,
    Loom::Ptr<Statedb::EntityManager> const& entityManager, bool cleanSlate) {
  return Loom::make<FabVplsPwSm>(
      taskScheduler, forwardingStatus, lfibStatus, fecIdRequest, fecIdResponse,
      vplsHwSingletonStatus, vplsHwCollectionStatus, fabL3AdjSyncStatusExt, hwVplsPwConfig,
      hwVplsPwStatus, hwVplsPwDecapConfig, hwVplsPwDecapStatus, evpnVplsInteropStatus,
      vplsPwIntfAdditionalDataMap, mactConfig, ioctlDrv, routingHwMplsCapability,
      labelManagerStatus, entityManager, cleanSlate);
}

FabVplsPwSm::FabVplsPwSm(Loom::Ptr<Orb::TaskSchedulerRoot> taskScheduler,
                         Loom::Ptr<Pseudowire::VplsForwardingStatus const> forwardingStatus,
                         Loom::Ptr<Mpls::LfibStatus const> lfibStatus,
                         Loom::Ptr<FecIdToHwFecIdRequest> fecIdRequest,
                         Loom::Ptr<FecIdToHwFecIdResponse const> fecIdResponse,
                         Loom::Ptr<VplsHwSingletonStatus const> vplsHwSingletonStatus,
                         Loom::Ptr<VplsHwCollectionStatus const> vplsHwCollectionStatus,
                         Loom::Ptr<FabL3AdjSyncStatusExternal const> fabL3AdjSyncStatusExt,
                         Loom::Ptr<HwVplsPwConfig const> hwVplsPwConfig,
                         Loom::Ptr<HwVplsPwStatus> hwVplsPwStatus,
                         Loom::Ptr<HwVplsPwDecapConfig const> hwVplsPwDecapConfig,
                         Loom::Ptr<HwVplsPwDecapStatus> hwVplsPwDecapStatus,
                         Loom::Ptr<EvpnVplsInteropStatus const> evpnVplsInteropStatus,
                         Loom::Ptr<VplsPwIntfAdditionalDataMap> vplsPwIntfAdditionalDataMap,
                         Loom::Ptr<HwVplsMactConfig const> mactConfig,
                         Loom::Ptr<Orb::IoctlDrvFab> ioctlDrv,
                         Loom::Ptr<Mpls::Hardware::Capability const> routingHwMplsCapability,
                         Loom::Ptr<Mpls::Api::LabelManagerStatus const> labelManagerStatus,
                         Loom::Ptr<Statedb::EntityManager> entityManager, bool cleanSlate)
    : taskScheduler_(std::move(taskScheduler)),
      forwardingStatus_(std::move(forwardingStatus)),
      lfibStatus_(std::move(lfibStatus)),
      fecIdRequest_(std::move(fecIdRequest)),
      fecIdResponse_(std::move(fecIdResponse)),
      vplsHwSingletonStatus_(std::move(vplsHwSingletonStatus)),
      vplsHwCollectionStatus_(std::move(vplsHwCollectionStatus)),
      fabL3AdjSyncStatusExt_(std::move(fabL3AdjSyncStatusExt)),
      hwVplsPwConfig_(std::move(hwVplsPwConfig)),
      hwVplsPwStatus_(std::move(hwVplsPwStatus)),
      hwVplsPwDecapConfig_(std::move(hwVplsPwDecapConfig)),
      hwVplsPwDecapStatus_(std::move(hwVplsPwDecapStatus)),
      evpnVplsInteropStatus_(std::move(evpnVplsInteropStatus)),
      vplsPwIntfAdditionalDataMap_(std::move(vplsPwIntfAdditionalDataMap)),
      mactConfig_(std::move(mactConfig)),
      ioctlDrv_(std::move(ioctlDrv)),
      routingHwMplsCapability_(std::move(routingHwMplsCapability)),
      labelManagerStatus_(std::move(labelManagerStatus)),
      entityManager_(std::move(entityManager)),
      cleanSlate_(cleanSlate) {}

Loom::TypeData const& FabVplsPwSm::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"taskScheduler", Loom::AttributeKind::reference, "Orb::TaskSchedulerRoot"},
          {"forwardingStatus", Loom::AttributeKind::reference, "Pseudowire::VplsForwardingStatus"},
          {"lfibStatus", Loom::AttributeKind::reference, "Mpls::LfibStatus"},
          {"fecIdRequest", Loom::AttributeKind::reference, "Fab::FecIdToHwFecIdRequest"},
          {"fecIdResponse", Loom::AttributeKind::reference, "Fab::FecIdToHwFecIdResponse"},
          {"vplsHwSingletonStatus", Loom::AttributeKind::reference, "Fab::VplsHwSingletonStatus"},
          {"vplsHwCollectionStatus", Loom::AttributeKind::reference, "Fab::VplsHwCollectionStatus"},
          {"fabL3AdjSyncStatusExt", Loom::AttributeKind::reference,
           "Fab::FabL3AdjSyncStatusExternal"},
          {"hwVplsPwConfig", Loom::AttributeKind::reference, "Fab::HwVplsPwConfig"},
          {"hwVplsPwStatus", Loom::AttributeKind::reference, "Fab::HwVplsPwStatus"},
          {"hwVplsPwDecapConfig", Loom::AttributeKind::reference, "Fab::HwVplsPwDecapConfig"},
          {"hwVplsPwDecapStatus", Loom::AttributeKind::reference, "Fab::HwVplsPwDecapStatus"},
          {"evpnVplsInteropStatus", Loom::AttributeKind::reference, "Fab::EvpnVplsInteropStatus"},
          {"vplsPwIntfAdditionalDataMap", Loom::AttributeKind::reference,
           "Fab::VplsPwIntfAdditionalDataMap"},
          {"mactConfig", Loom::AttributeKind::reference, "Fab::HwVplsMactConfig"},
          {"ioctlDrv", Loom::AttributeKind::reference, "Orb::IoctlDrvFab"},
          {"routingHwMplsCapability", Loom::AttributeKind::reference, "Mpls::Hardware::Capability"},
          {"labelManagerStatus", Loom::AttributeKind::reference, "Mpls::Api::LabelManagerStatus"},
          {"entityManager", Loom::AttributeKind::reference, "Statedb::EntityManager"},
          {"cleanSlate", Loom::AttributeKind::scalar, "bool"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 20, typeName);
        return FabVplsPwSmIs(
            Loom::argAt<Loom::Ptr<Orb::TaskSchedulerRoot>>(args, 0, typeName),
            Loom::argAt<Loom::Ptr<Pseudowire::VplsForwardingStatus const>>(args, 1, typeName),
            Loom::argAt<Loom::Ptr<Mpls::LfibStatus const>>(args, 2, typeName),
            Loom::argAt<Loom::Ptr<FecIdToHwFecIdRequest>>(args, 3, typeName),
            Loom::argAt<Loom::Ptr<FecIdToHwFecIdResponse const>>(args, 4, typeName),
            Loom::argAt<Loom::Ptr<VplsHwSingletonStatus const>>(args, 5, typeName),
            Loom::argAt<Loom::Ptr<VplsHwCollectionStatus const>>(args, 6, typeName),
            Loom::argAt<Loom::Ptr<FabL3AdjSyncStatusExternal const>>(args, 7, typeName),
            Loom::argAt<Loom::Ptr<HwVplsPwConfig const>>(args, 8, typeName),
            Loom::argAt<Loom::Ptr<HwVplsPwStatus>>(args, 9, typeName),
            Loom::argAt<Loom::Ptr<HwVplsPwDecapConfig const>>(args, 10, typeName),
            Loom::argAt<Loom::Ptr<HwVplsPwDecapStatus>>(args, 11, typeName),
            Loom::argAt<Loom::Ptr<EvpnVplsInteropStatus const>>(args, 12, typeName),
            Loom::argAt<Loom::Ptr<VplsPwIntfAdditionalDataMap>>(args, 13, typeName),
            Loom::argAt<Loom::Ptr<HwVplsMactConfig const>>(args, 14, typeName),
            Loom::argAt<Loom::Ptr<Orb::IoctlDrvFab>>(args, 15, typeName),
            Loom::argAt<Loom::Ptr<Mpls::Hardware::Capability const>>(args, 16, typeName),
            Loom::argAt<Loom::Ptr<Mpls::Api::LabelManagerStatus const>>(args, 17, typeName),
            Loom::argAt<Loom::Ptr<Statedb::EntityManager>>(args, 18, typeName),
            Loom::argAt<bool>(args, 19, typeName));
      },
      false);
  return data;
}

namespace {
Loom::TypeRegistration const registration(FabVplsPwSm::type());
}

}  // namespace Fab
