#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"

#include "Loom/Errors.h"
#include "MarlTunnel/MarlTrace.h"

namespace Hardware::MarlTunnel {

MarlVplsPwIntfDecapSm::MarlVplsPwIntfDecapSm(
    Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
    Loom::Ptr<Fab::HwVplsPwDecapStatus> const& hwVplsPwDecapStatus,
    Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig,
    Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus,
    Loom::Ptr<MplsDecapConfig> const& decapConfig,
    Loom::Ptr<MplsDecapStatus const> const& decapStatus,
    Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap,
    Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig,
    Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus,
    Loom::Ptr<EsemConfigVpls> const& esemConfigVpls,
    Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls,
    Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig,
    Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir,
    Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl,
    Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus,
    Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm,
    Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap,
    bool startCleanSlate, Loom::Ptr<StartupStageStatus> const& startupStageStatus)
    : hwVplsPwDecapConfig_(hwVplsPwDecapConfig),
      hwVplsPwDecapStatus_(hwVplsPwDecapStatus),
      hwVplsPwConfig_(hwVplsPwConfig),
      hwVplsPwStatus_(hwVplsPwStatus),
      decapConfig_(decapConfig),
      decapStatus_(decapStatus),
      vplsPwIntfAdditionalDataMap_(vplsPwIntfAdditionalDataMap),
      lifProfileOrientationConfig_(lifProfileOrientationConfig),
      lifProfileOrientationStatus_(lifProfileOrientationStatus),
      esemConfigVpls_(esemConfigVpls),
      esemStatusVpls_(esemStatusVpls),
      tagPopPushConfig_(tagPopPushConfig),
      evecProfileRequestDir_(evecProfileRequestDir),
      decapLabelToPwIntfColl_(decapLabelToPwIntfColl),
      vtepTypeStatus_(vtepTypeStatus),
      lifProfileOrientationAllocSm_(lifProfileOrientationAllocSm),
      intfToLifProfileOrientationKeyMap_(intfToLifProfileOrientationKeyMap),
      startCleanSlate_(startCleanSlate),
      startupStageStatus_(startupStageStatus) {
  hasNotificationActiveIs(true);
  try {
    handleInit();
  } catch (...) {
    // Undo in reverse order of acquisition; the members release the held entities as the
    // exception leaves the constructor.
    unsubscribeAll();
    esemProgrammed_.clear();
    localPwInfo_.clear();
    throw;
  }
}

MarlVplsPwIntfDecapSm::~MarlVplsPwIntfDecapSm() {
  hasNotificationActiveIs(false);
  cogDoZombieReactors(true);
  unsubscribeAll();
  esemProgrammed_.clear();
  localPwInfo_.clear();
  // The held entities are released by the members, in reverse declaration order.
}

Loom::Ptr<MarlVplsPwIntfDecapSm> MarlVplsPwIntfDecapSm::MarlVplsPwIntfDecapSmIs(
    Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
    Loom::Ptr<Fab::HwVplsPwDecapStatus> const& hwVplsPwDecapStatus,
    Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig,
    Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus,
    Loom::Ptr<MplsDecapConfig> const& decapConfig,
    Loom::Ptr<MplsDecapStatus const> const& decapStatus,
    Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap,
    Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig,
    Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus,
    Loom::Ptr<EsemConfigVpls> const& esemConfigVpls,
    Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls,
    Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig,
    Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir,
    Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl,
    Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus,
    Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm,
    Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap,
    bool startCleanSlate, Loom::Ptr<StartupStageStatus> const& startupStageStatus) {
  return Loom::make<MarlVplsPwIntfDecapSm>(
      hwVplsPwDecapConfig, hwVplsPwDecapStatus, hwVplsPwConfig, hwVplsPwStatus, decapConfig,
      decapStatus, vplsPwIntfAdditionalDataMap, lifProfileOrientationConfig,
      lifProfileOrientationStatus, esemConfigVpls, esemStatusVpls, tagPopPushConfig,
      evecProfileRequestDir, decapLabelToPwIntfColl, vtepTypeStatus, lifProfileOrientationAllocSm,
      intfToLifProfileOrientationKeyMap, startCleanSlate, startupStageStatus);
}

Loom::Ptr<MarlVplsPwIntfDecapSm> marlVplsPwIntfDecapSmFactory(
    Loom::Ptr<Fab::HwVplsPwDecapConfig const> const& hwVplsPwDecapConfig,
    Loom::Ptr<Fab::HwVplsPwDecapStatus> const& hwVplsPwDecapStatus,
    Loom::Ptr<Fab::HwVplsPwConfig const> const& hwVplsPwConfig,
    Loom::Ptr<Fab::HwVplsPwStatus> const& hwVplsPwStatus,
    Loom::Ptr<MplsDecapConfig> const& decapConfig,
    Loom::Ptr<MplsDecapStatus const> const& decapStatus,
    Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap> const& vplsPwIntfAdditionalDataMap,
    Loom::Ptr<LifProfileOrientationConfig> const& lifProfileOrientationConfig,
    Loom::Ptr<LifProfileOrientationStatus const> const& lifProfileOrientationStatus,
    Loom::Ptr<EsemConfigVpls> const& esemConfigVpls,
    Loom::Ptr<EsemStatusVpls const> const& esemStatusVpls,
    Loom::Ptr<TagPopPushConfig> const& tagPopPushConfig,
    Loom::Ptr<EvecProfileRequestDir> const& evecProfileRequestDir,
    Loom::Ptr<Fab::LabelToPwIntfId> const& decapLabelToPwIntfColl,
    Loom::Ptr<VtepTypeStatus const> const& vtepTypeStatus,
    Loom::Ptr<LifProfileOrientationAllocSm> const& lifProfileOrientationAllocSm,
    Loom::Ptr<IntfToLifProfileOrientationKeyMap> const& intfToLifProfileOrientationKeyMap,
    bool startCleanSlate, Loom::Ptr<StartupStageStatus> const& startupStageStatus) {
  return MarlVplsPwIntfDecapSm::MarlVplsPwIntfDecapSmIs(
      hwVplsPwDecapConfig, hwVplsPwDecapStatus, hwVplsPwConfig, hwVplsPwStatus, decapConfig,
      decapStatus, vplsPwIntfAdditionalDataMap, lifProfileOrientationConfig,
      lifProfileOrientationStatus, esemConfigVpls, esemStatusVpls, tagPopPushConfig,
      evecProfileRequestDir, decapLabelToPwIntfColl, vtepTypeStatus, lifProfileOrientationAllocSm,
      intfToLifProfileOrientationKeyMap, startCleanSlate, startupStageStatus);
}

Loom::TypeData const& MarlVplsPwIntfDecapSm::type() {
  using Loom::AttributeKind;
  static Loom::TypeData const data(
      typeName,
      {
          {"hwVplsPwDecapConfig", AttributeKind::reference, "Fab::HwVplsPwDecapConfig"},
          {"hwVplsPwDecapStatus", AttributeKind::reference, "Fab::HwVplsPwDecapStatus"},
          {"hwVplsPwConfig", AttributeKind::reference, "Fab::HwVplsPwConfig"},
          {"hwVplsPwStatus", AttributeKind::reference, "Fab::HwVplsPwStatus"},
          {"decapConfig", AttributeKind::reference, "Hardware::MarlTunnel::MplsDecapConfig"},
          {"decapStatus", AttributeKind::reference, "Hardware::MarlTunnel::MplsDecapStatus"},
          {"vplsPwIntfAdditionalDataMap", AttributeKind::reference,
           "Fab::VplsPwIntfAdditionalDataMap"},
          {"lifProfileOrientationConfig", AttributeKind::reference,
           "Hardware::MarlTunnel::LifProfileOrientationConfig"},
          {"lifProfileOrientationStatus", AttributeKind::reference,
           "Hardware::MarlTunnel::LifProfileOrientationStatus"},
          {"esemConfigVpls", AttributeKind::reference, "Hardware::MarlTunnel::EsemConfigVpls"},
          {"esemStatusVpls", AttributeKind::reference, "Hardware::MarlTunnel::EsemStatusVpls"},
          {"tagPopPushConfig", AttributeKind::reference, "Hardware::MarlTunnel::TagPopPushConfig"},
          {"evecProfileRequestDir", AttributeKind::reference,
           "Hardware::MarlTunnel::EvecProfileRequestDir"},
          {"decapLabelToPwIntfColl", AttributeKind::reference, "Fab::LabelToPwIntfId"},
          {"vtepTypeStatus", AttributeKind::reference, "Hardware::MarlTunnel::VtepTypeStatus"},
          {"lifProfileOrientationAllocSm", AttributeKind::reference,
           "Hardware::MarlTunnel::LifProfileOrientationAllocSm"},
          {"intfToLifProfileOrientationKeyMap", AttributeKind::reference,
           "Hardware::MarlTunnel::IntfToLifProfileOrientationKeyMap"},
          {"startCleanSlate", AttributeKind::scalar, "bool"},
          {"startupStageStatus", AttributeKind::reference,
           "Hardware::MarlTunnel::StartupStageStatus"},
          {"localPwInfo", AttributeKind::collection, "Hardware::MarlTunnel::MarlVplsPwIntfInfo"},
          {"esemProgrammed", AttributeKind::collection, "U16"},
          {"initialized", AttributeKind::scalar, "bool"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 19, typeName);
        auto const arg = [&args]<class T>(std::size_t i) -> T const& {
          return Loom::argAt<T>(args, i, typeName);
        };
        return MarlVplsPwIntfDecapSmIs(
            arg.operator()<Loom::Ptr<Fab::HwVplsPwDecapConfig const>>(0),
            arg.operator()<Loom::Ptr<Fab::HwVplsPwDecapStatus>>(1),
            arg.operator()<Loom::Ptr<Fab::HwVplsPwConfig const>>(2),
            arg.operator()<Loom::Ptr<Fab::HwVplsPwStatus>>(3),
            arg.operator()<Loom::Ptr<MplsDecapConfig>>(4),
            arg.operator()<Loom::Ptr<MplsDecapStatus const>>(5),
            arg.operator()<Loom::Ptr<Fab::VplsPwIntfAdditionalDataMap>>(6),
            arg.operator()<Loom::Ptr<LifProfileOrientationConfig>>(7),
            arg.operator()<Loom::Ptr<LifProfileOrientationStatus const>>(8),
            arg.operator()<Loom::Ptr<EsemConfigVpls>>(9),
            arg.operator()<Loom::Ptr<EsemStatusVpls const>>(10),
            arg.operator()<Loom::Ptr<TagPopPushConfig>>(11),
            arg.operator()<Loom::Ptr<EvecProfileRequestDir>>(12),
            arg.operator()<Loom::Ptr<Fab::LabelToPwIntfId>>(13),
            arg.operator()<Loom::Ptr<VtepTypeStatus const>>(14),
            arg.operator()<Loom::Ptr<LifProfileOrientationAllocSm>>(15),
            arg.operator()<Loom::Ptr<IntfToLifProfileOrientationKeyMap>>(16),
            arg.operator()<bool>(17), arg.operator()<Loom::Ptr<StartupStageStatus>>(18));
      });
  return data;
}

namespace {
Loom::TypeRegistration const registration(MarlVplsPwIntfDecapSm::type());
}

// ---- Local collections ----

// The record stored under a key must carry that key; checked where a record is looked up.
namespace {

constexpr char kLocalPwInfoSig[] =
    "Loom::Ptr<Hardware::MarlTunnel::MarlVplsPwIntfInfo> "
    "Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::localPwInfo(Netcore::IntfId) const";

struct LocalPwInfoEntry {
  struct KeyFunktor {
    Netcore::IntfId operator()(Loom::Ptr<MarlVplsPwIntfInfo> const& record) const {
      return record->pwIntfId();
    }
  };
  Netcore::IntfId fwkKey() const { return key; }
  void checkKey() const {
    // clang-format off
    LOOM_ASSERT( fwkKey() == KeyFunktor()( _value ), kDecapSmUnit, kLocalPwInfoSig );
    // clang-format on
  }

  Netcore::IntfId key;
  Loom::Ptr<MarlVplsPwIntfInfo> const& _value;
};

}  // namespace

Loom::Ptr<MarlVplsPwIntfInfo> MarlVplsPwIntfDecapSm::localPwInfo(Netcore::IntfId pwIntfId) const {
  auto const* stored = localPwInfo_.find(pwIntfId);
  if (!stored) {
    return {};
  }
  LocalPwInfoEntry{pwIntfId, *stored}.checkKey();
  return *stored;
}

void MarlVplsPwIntfDecapSm::localPwInfoIs(Loom::Ptr<MarlVplsPwIntfInfo> const& record) {
  if (!record) {
    throw Loom::NullPointerArgumentError(typeName, "localPwInfo");
  }
  localPwInfo_.set(record->pwIntfId(), record);
}

Loom::Ptr<MarlVplsPwIntfInfo> MarlVplsPwIntfDecapSm::localPwInfoDel(Netcore::IntfId pwIntfId) {
  auto const* stored = localPwInfo_.find(pwIntfId);
  if (!stored) {
    return {};
  }
  Loom::Ptr<MarlVplsPwIntfInfo> removed = *stored;
  localPwInfo_.erase(pwIntfId);
  return removed;
}

std::optional<std::uint16_t> MarlVplsPwIntfDecapSm::esemProgrammed(Bridging::VlanId vlanId) const {
  auto const* count = esemProgrammed_.find(vlanId);
  return count ? std::optional<std::uint16_t>(*count) : std::nullopt;
}

// ---- Notification switch and dispatch ----

void MarlVplsPwIntfDecapSm::hasNotificationActiveIs(bool on) {
  if (hasNotificationActive() == on) {
    return;
  }
  nodeFlagIs(Loom::NodeFlag::notificationActive, on);
  bool const wasZombie = cogDoZombieReactors(true);
  auto const update = [this, on](auto const& entity, auto& slot) {
    if (!entity) {
      return;
    }
    if (on && !slot.filled()) {
      slot.fill(*entity, *this);
    } else if (!on && slot.filled()) {
      slot.empty(*entity);
    }
  };
  update(hwVplsPwDecapConfig_, decapConfigSlot_);
  update(hwVplsPwConfig_, pwConfigSlot_);
  update(vtepTypeStatus_, vtepTypeSlot_);
  cogDoZombieReactors(wasZombie);
}

bool MarlVplsPwIntfDecapSm::cogDoZombieReactors(bool zombie) {
  bool const previous = zombieReactors();
  if (previous != zombie) {
    nodeFlagIs(Loom::NodeFlag::zombieReactors, zombie);
  }
  return previous;
}

void MarlVplsPwIntfDecapSm::unsubscribeAll() {
  if (hwVplsPwDecapConfig_ && decapConfigSlot_.filled()) {
    decapConfigSlot_.empty(*hwVplsPwDecapConfig_);
  }
  if (hwVplsPwConfig_ && pwConfigSlot_.filled()) {
    pwConfigSlot_.empty(*hwVplsPwConfig_);
  }
  if (vtepTypeStatus_ && vtepTypeSlot_.filled()) {
    vtepTypeSlot_.empty(*vtepTypeStatus_);
  }
  nodeFlagIs(Loom::NodeFlag::notificationActive, false);
}

void MarlVplsPwIntfDecapSm::DecapConfigDispatcher::onVlanTagInfo(
    Fab::VplsPwIntfVlanKey const& key) {
  if (!sm_.zombieReactors()) {
    sm_.cog_handleHwVplsPwDecapConfig_vlanTagInfo(key);
  }
}

void MarlVplsPwIntfDecapSm::DecapConfigDispatcher::onEncapHwFecId(Netcore::IntfId const& pwIntfId) {
  if (!sm_.zombieReactors()) {
    sm_.cog_handleHwVplsPwDecapConfig_encapHwFecId(pwIntfId);
  }
}

void MarlVplsPwIntfDecapSm::DecapConfigDispatcher::onDecapLabel(Netcore::IntfId const& pwIntfId) {
  if (!sm_.zombieReactors()) {
    sm_.cog_handleHwVplsPwDecapConfig_decapLabel(pwIntfId);
  }
}

void MarlVplsPwIntfDecapSm::DecapConfigDispatcher::onStartupSyncDone() {
  if (!sm_.zombieReactors()) {
    sm_.cog_handleHwVplsPwDecapConfig_startupSyncDone();
  }
}

void MarlVplsPwIntfDecapSm::PwConfigDispatcher::onVplsPwIntfInfo(Netcore::IntfId const& pwIntfId) {
  if (!sm_.zombieReactors()) {
    sm_.cog_handleHwVplsPwConfig_vplsPwIntfInfo(pwIntfId);
  }
}

void MarlVplsPwIntfDecapSm::VtepTypeDispatcher::onVxlanPresent() {
  if (!sm_.zombieReactors()) {
    sm_.retractVplsGroups();
  }
}

void MarlVplsPwIntfDecapSm::VtepTypeDispatcher::onVxlanDciConfigured() {
  if (!sm_.zombieReactors()) {
    sm_.retractVplsGroups();
  }
}

// ---- Start-up ----

void MarlVplsPwIntfDecapSm::handleInit() {
  static constexpr char kSig[] = "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::handleInit()";
  MARL_TRACE(kTraceStartup, kSig);
  if (startCleanSlate_) {
    MARL_TRACE(kTraceCleanSlate, "handleInit", " Starting clean slate ");
    if (hwVplsPwStatus_) {
      hwVplsPwStatus_->encapAdditionalIdDelAll();
    }
  }
  // The walk order is fixed: interface info first, so that labels, tags and FEC ids find the
  // pseudowire's instance when they are handled.
  if (hwVplsPwConfig_) {
    for (auto const& [pwIntfId, info] : hwVplsPwConfig_->vplsPwIntfInfo()) {
      handleVplsPwIntfInfo(pwIntfId);
    }
  }
  if (hwVplsPwDecapConfig_) {
    for (auto const& [key, tag] : hwVplsPwDecapConfig_->vlanTagInfo()) {
      handleVlanTagInfo(key);
    }
    for (auto const& [pwIntfId, index] : hwVplsPwDecapConfig_->encapHwFecId()) {
      handleEncapHwFecId(pwIntfId);
    }
    for (auto const& [pwIntfId, label] : hwVplsPwDecapConfig_->decapLabel()) {
      handleDecapLabel(pwIntfId);
    }
  }
  if (esemProgrammed_.empty()) {
    // No VLAN of any pseudowire needs tag handling: withdraw what a previous run left.
    if (tagPopPushConfig_) {
      tagPopPushConfig_->appDel(Marl::VtAppId::vplsPwTagPopPush);
    }
    if (evecProfileRequestDir_) {
      evecProfileRequestDir_->evecProfileRequestDel(
          EvecProfileKey(EvecProfileKey::kVplsEditProfile, EvecProfileKey::kVplsVtApp));
    }
  }
  retractVplsGroups();
  initialized_ = true;
}

void MarlVplsPwIntfDecapSm::handleStartupSyncDone() {
  static constexpr char kSig[] =
      "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::handleStartupSyncDone()";
  MARL_TRACE(kTraceStartup, kSig);
  if (!hwVplsPwDecapConfig_ || !hwVplsPwDecapConfig_->startupSyncDone()) {
    return;
  }
  // The allocator settles its state first, so readiness is only reported once orientations are.
  if (lifProfileOrientationAllocSm_) {
    lifProfileOrientationAllocSm_->handleStartupSyncDone();
  }
  if (startupStageStatus_) {
    startupStageStatus_->vplsSmReadyIs(true);
  }
}

// ---- Reads and writes shared by the handlers ----

Fab::VplsPwIntfInfo const& MarlVplsPwIntfDecapSm::pwIntfInfo(Netcore::IntfId pwIntfId) const {
  static Fab::VplsPwIntfInfo const absent;
  auto const* info = hwVplsPwConfig_ ? hwVplsPwConfig_->vplsPwIntfInfo().find(pwIntfId) : nullptr;
  return info ? *info : absent;
}

bool MarlVplsPwIntfDecapSm::vxlanPresent() const {
  return vtepTypeStatus_ && vtepTypeStatus_->vxlanPresent();
}

bool MarlVplsPwIntfDecapSm::vxlanDciConfigured() const {
  return vtepTypeStatus_ && vtepTypeStatus_->vxlanDciConfigured();
}

bool MarlVplsPwIntfDecapSm::restartDone() const {
  return hwVplsPwDecapConfig_ && hwVplsPwDecapConfig_->restartDone();
}

std::optional<LifProfileAndOrientation> MarlVplsPwIntfDecapSm::lpoResponse(
    LifProfileOrientationKey const& key) const {
  if (!lifProfileOrientationStatus_) {
    return std::nullopt;
  }
  // One search of the answers, which are as many as the requests.
  auto const* response = lifProfileOrientationStatus_->lpoResponse().find(key);
  return response ? std::optional<LifProfileAndOrientation>(*response) : std::nullopt;
}

void MarlVplsPwIntfDecapSm::lpoRequestIs(LifProfileOrientationKey const& key) {
  if (lifProfileOrientationConfig_) {
    lifProfileOrientationConfig_->lpoRequestIs(key);
  }
}

void MarlVplsPwIntfDecapSm::lpoRequestDel(LifProfileOrientationKey const& key) {
  if (lifProfileOrientationConfig_) {
    lifProfileOrientationConfig_->lpoRequestDel(key);
  }
}

void MarlVplsPwIntfDecapSm::lifProfileOrientationKeyIs(Netcore::IntfId pwIntfId,
                                                       LifProfileOrientationKey const& key) {
  if (intfToLifProfileOrientationKeyMap_) {
    intfToLifProfileOrientationKeyMap_->lifProfileOrientationKeyIs(pwIntfId, key);
  }
}

}  // namespace Hardware::MarlTunnel
