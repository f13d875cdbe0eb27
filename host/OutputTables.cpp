// The description of every output table: its names, its key and value columns, and how its
// elements are read from and written to the harness's entities. Every encoding (state-database
// rows written and read back, the runner's JSON state, the rows of changed keys) is derived from
// these by OutputTableOf.

#include <array>

#include "Fab/VplsEncapAdditionalId.h"
#include "Hardware/Orientation.h"
#include "MarlTunnel/VplsSmWrapper.h"
#include "host/OutputTableOf.h"

namespace Host {
namespace {

using Hardware::Marl::Jericho2LifProfiles;
using Hardware::Marl::VtAppId;
using Hardware::MarlTunnel::EsemConfigInfoVpls;
using Hardware::MarlTunnel::EsemConfigKeyVpls;
using Hardware::MarlTunnel::EvecProfileKey;
using Hardware::MarlTunnel::EvecProfileRequest;
using Hardware::MarlTunnel::LifProfileAndOrientation;
using Hardware::MarlTunnel::LifProfileOrientationKey;
using Hardware::MarlTunnel::MplsDecapInfo;
using Hardware::MarlTunnel::MplsDecapInfoKey;
using Hardware::MarlTunnel::Orientation;
using Hardware::MarlTunnel::VlanAndVplsKey;
using K = ColumnKind;

// The value of a set-like table's element: present.
struct Present {
  bool operator==(Present const&) const = default;
};

std::string pwText(Netcore::IntfId pw) {
  return pw.toString();
}

template <class T>
T narrow(Cell const& cell) {
  return static_cast<T>(numberOf(cell));
}

// The columns of an orientation request's key, as the key of LPO_REQUEST and LPO_RESPONSE
// rows and as the value of INTF_TO_LPO_KEY rows.
template <class T, LifProfileOrientationKey const& (*keyOf)(T const&)>
constexpr std::array<Column<T>, 5> lpoKeyColumns{{
    {"instanceName", K::text, kAnyLength,
     [](T const& t) -> Cell { return keyOf(t).instanceName().str(); }},
    {"vlan", K::number, kMaxVlan, [](T const& t) -> Cell { return keyOf(t).vlanId(); }},
    {"groupName", K::text, kAnyLength,
     [](T const& t) -> Cell { return keyOf(t).groupName().str(); }},
    {"splitHorizon", K::boolean, 1, [](T const& t) -> Cell { return keyOf(t).splitHorizon(); }},
    {"pw", K::pw, 0, [](T const& t) -> Cell { return pwText(keyOf(t).pwIntfId()); }},
}};

template <class T>
T const& itself(T const& t) {
  return t;
}

// The columns of a decap request, as the value of MPLS_DECAP_CONFIG rows and within the chip's
// entries installed from them.
template <class T, MplsDecapInfo const& (*infoOf)(T const&)>
constexpr std::array<Column<T>, 8> mplsDecapInfoColumns{{
    {"name", K::text, MplsDecapInfo::kNameMaxLength,
     [](T const& t) -> Cell { return infoOf(t).name().str(); }},
    {"flag", K::boolean, 1, [](T const& t) -> Cell { return infoOf(t).flag(); }},
    {"hwFecId", K::number, kMaxU64, [](T const& t) -> Cell { return infoOf(t).hwFecId(); }},
    {"globalInLif", K::number, kMaxU32, [](T const& t) -> Cell { return infoOf(t).globalInLif(); }},
    {"inLifProfile", K::number, kMaxU32,
     [](T const& t) -> Cell { return Hardware::Marl::toValue(infoOf(t).inLifProfile()); }},
    {"vlanId", K::number, kMaxU16, [](T const& t) -> Cell { return infoOf(t).vlanId(); }},
    {"field8", K::number, kMaxU8, [](T const& t) -> Cell { return infoOf(t).field8(); }},
    {"field9", K::number, kMaxU16, [](T const& t) -> Cell { return infoOf(t).field9(); }},
}};

constexpr std::array<Column<MplsDecapInfoKey>, 3> kMplsDecapKeyColumns{{
    {"label", K::number, Netcore::MplsLabel::kMaxLabel,
     [](MplsDecapInfoKey const& k) -> Cell { return k.label().value(); }},
    {"innerDot1QTag", K::number, kMaxVlan,
     [](MplsDecapInfoKey const& k) -> Cell { return k.innerDot1QTag().value(); }},
    {"keyField3", K::number, kMaxU8,
     [](MplsDecapInfoKey const& k) -> Cell { return k.keyField3(); }},
}};

MplsDecapInfoKey mplsDecapKey(Cells const& c) {
  return MplsDecapInfoKey(Netcore::MplsLabel(narrow<std::uint32_t>(c[0])),
                          Bridging::VlanIdOrNone(narrow<std::uint16_t>(c[1])),
                          narrow<std::uint8_t>(c[2]));
}

// A decap request from the cells of its columns, from `at` on.
MplsDecapInfo mplsDecapInfo(MplsDecapInfoKey const& key, Cells const& c, std::size_t at) {
  return MplsDecapInfo(key)
      .nameIs(MplsDecapInfo::Name(textOf(c[at])))
      .flagIs(boolOf(c[at + 1]))
      .hwFecIdIs(numberOf(c[at + 2]))
      .globalInLifIs(narrow<std::uint32_t>(c[at + 3]))
      .inLifProfileIs(Jericho2LifProfiles{narrow<std::uint32_t>(c[at + 4])})
      .vlanIdIs(narrow<std::uint16_t>(c[at + 5]))
      .field8Is(narrow<std::uint8_t>(c[at + 6]))
      .field9Is(narrow<std::uint16_t>(c[at + 7]));
}

LifProfileOrientationKey lpoKey(Cells const& c, std::size_t at) {
  return LifProfileOrientationKey(
      VlanAndVplsKey(Loom::String(textOf(c[at])), narrow<std::uint16_t>(c[at + 1]),
                     Loom::String(textOf(c[at + 2])), boolOf(c[at + 3])),
      pwOf(c[at + 4]));
}

// What most tables are: a list in the JSON state, elements with values, loaded at start, their
// entity notifying each key. A description states only where it differs.
struct TableDefaults {
  static constexpr JsonShape jsonShape = JsonShape::list;
  static constexpr bool isSet = false;
  static constexpr bool loadedAtStart = true;
};

// A reactor whose one handler `handler` passes each key to Note.
#define VPLS_KEY_REACTOR(Handler)                           \
  template <class Note>                                     \
  struct Reactor : Entity::Reactor {                        \
    explicit Reactor(Note note) : note_(std::move(note)) {} \
    void Handler(Key const& key) override { note_(key); }   \
    Note note_;                                             \
  };                                                        \
  static constexpr bool notifies = true;

struct MplsDecapConfigTable : TableDefaults {
  using Entity = Hardware::MarlTunnel::MplsDecapConfig;
  using Key = MplsDecapInfoKey;
  using Value = MplsDecapInfo;
  static constexpr std::string_view redisName = "MPLS_DECAP_CONFIG";
  static constexpr std::string_view jsonName = "mplsDecapConfig";
  static constexpr auto keyColumns = kMplsDecapKeyColumns;
  static constexpr auto valueColumns = mplsDecapInfoColumns<Value, itself<Value>>;
  static Entity const* entity(AgentHarness const& h) { return h.mplsDecapConfig.get(); }
  static auto const& elements(Entity const& e) { return e.config(); }
  static std::pair<Key, Value> make(Cells const& c) {
    auto const key = mplsDecapKey(c);
    return {key, mplsDecapInfo(key, c, 3)};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.mplsDecapConfig->configIs(k, v);
  }
  VPLS_KEY_REACTOR(onConfig)
};

struct LabelToPwIntfTable : TableDefaults {
  using Entity = Fab::LabelToPwIntfId;
  using Key = Netcore::MplsLabel;
  using Value = Netcore::IntfId;
  static constexpr std::string_view redisName = "LABEL_TO_PW_INTF";
  static constexpr std::string_view jsonName = "labelToPwIntf";
  static constexpr JsonShape jsonShape = JsonShape::map;
  static constexpr std::array<Column<Key>, 1> keyColumns{{
      {"label", K::number, Netcore::MplsLabel::kMaxLabel,
       [](Key const& k) -> Cell { return k.value(); }},
  }};
  static constexpr std::array<Column<Value>, 1> valueColumns{{
      {"pw", K::pw, 0, [](Value const& v) -> Cell { return pwText(v); }},
  }};
  static Entity const* entity(AgentHarness const& h) { return h.decapLabelToPwIntfColl.get(); }
  static auto const& elements(Entity const& e) { return e.labelToPwIntf(); }
  static std::pair<Key, Value> make(Cells const& c) {
    return {Netcore::MplsLabel(narrow<std::uint32_t>(c[0])), pwOf(c[1])};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.decapLabelToPwIntfColl->labelToPwIntfIs(k, v);
  }
  VPLS_KEY_REACTOR(onLabelToPwIntf)
};

struct DecapStatusTable : TableDefaults {
  using Entity = Fab::HwVplsPwDecapStatus;
  using Key = Fab::VplsPwIntfVlanKey;
  using Value = Fab::NexthopIndex;
  static constexpr std::string_view redisName = "VPLS_DECAP_STATUS";
  static constexpr std::string_view jsonName = "decapStatus";
  // The starting agent's walk rebuilds it.
  static constexpr bool loadedAtStart = false;
  static constexpr std::array<Column<Key>, 2> keyColumns{{
      {"pw", K::pw, 0, [](Key const& k) -> Cell { return pwText(k.pwIntfId()); }},
      {"vlan", K::number, kMaxVlan, [](Key const& k) -> Cell { return k.vlanId().value(); }},
  }};
  static constexpr std::array<Column<Value>, 1> valueColumns{{
      {"index", K::number, kMaxU64, [](Value const& v) -> Cell { return v.value(); }},
  }};
  // Each running wrapper creates its own; none while the agent is stopped.
  static Entity const* entity(AgentHarness const& h) { return h.hwVplsPwDecapStatus().get(); }
  static auto const& elements(Entity const& e) { return e.decapStatus(); }
  static std::pair<Key, Value> make(Cells const& c) {
    return {Key(pwOf(c[0]), Bridging::VlanId(narrow<std::uint16_t>(c[1]))), Value(numberOf(c[2]))};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    if (auto const status = h.hwVplsPwDecapStatus()) {
      status->decapStatusIs(k, v);
    }
  }
  VPLS_KEY_REACTOR(onDecapStatus)
};

struct EncapAdditionalIdTable : TableDefaults {
  using Entity = Fab::HwVplsPwStatus;
  using Key = Netcore::IntfId;
  using Value = Fab::VplsEncapAdditionalId;
  static constexpr std::string_view redisName = "VPLS_ENCAP_ADDITIONAL_ID";
  static constexpr std::string_view jsonName = "encapAdditionalId";
  static constexpr JsonShape jsonShape = JsonShape::map;
  static constexpr std::array<Column<Key>, 1> keyColumns{{
      {"pw", K::pw, 0, [](Key const& k) -> Cell { return pwText(k); }},
  }};
  static constexpr std::array<Column<Value>, 1> valueColumns{{
      {"value", K::number, kMaxU16, [](Value const& v) -> Cell { return v.value(); }},
  }};
  static Entity const* entity(AgentHarness const& h) { return h.hwVplsPwStatus.get(); }
  static auto const& elements(Entity const& e) { return e.encapAdditionalId(); }
  static std::pair<Key, Value> make(Cells const& c) {
    return {pwOf(c[0]), Value(narrow<std::uint16_t>(c[1]))};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.hwVplsPwStatus->encapAdditionalIdIs(k, v);
  }
  VPLS_KEY_REACTOR(onEncapAdditionalId)
};

struct AdditionalDataTable : TableDefaults {
  using Entity = Fab::VplsPwIntfAdditionalDataMap;
  using Key = Fab::VplsIntfKey;
  using Value = std::uint16_t;
  static constexpr std::string_view redisName = "VPLS_ADDITIONAL_DATA";
  static constexpr std::string_view jsonName = "additionalDataMap";
  static constexpr std::array<Column<Key>, 4> keyColumns{{
      {"vplsInstanceName", K::text, kAnyLength,
       [](Key const& k) -> Cell { return k.vplsInstanceName().str(); }},
      {"groupName", K::text, kAnyLength, [](Key const& k) -> Cell { return k.groupName().str(); }},
      {"pw", K::pw, 0, [](Key const& k) -> Cell { return pwText(k.pwIntfId()); }},
      {"splitHorizon", K::boolean, 1, [](Key const& k) -> Cell { return k.splitHorizon(); }},
  }};
  static constexpr std::array<Column<Value>, 1> valueColumns{{
      {"value", K::number, kMaxU16, [](Value const& v) -> Cell { return std::uint64_t{v}; }},
  }};
  static Entity const* entity(AgentHarness const& h) { return h.vplsPwIntfAdditionalDataMap.get(); }
  static auto const& elements(Entity const& e) { return e.additionalDataMap(); }
  static std::pair<Key, Value> make(Cells const& c) {
    return {Key(Loom::String(textOf(c[0])), Loom::String(textOf(c[1])), pwOf(c[2]), boolOf(c[3])),
            narrow<std::uint16_t>(c[4])};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.vplsPwIntfAdditionalDataMap->additionalDataMapIs(k, v);
  }
  VPLS_KEY_REACTOR(onAdditionalDataMap)
};

struct LpoRequestTable : TableDefaults {
  using Entity = Hardware::MarlTunnel::LifProfileOrientationConfig;
  using Key = LifProfileOrientationKey;
  using Value = Present;
  static constexpr std::string_view redisName = "LPO_REQUEST";
  static constexpr std::string_view jsonName = "lpoRequest";
  static constexpr bool isSet = true;
  static constexpr auto keyColumns = lpoKeyColumns<Key, itself<Key>>;
  static constexpr std::array<Column<Value>, 1> valueColumns{{
      {"requested", K::boolean, 1, [](Value const&) -> Cell { return true; }},
  }};
  static Entity const* entity(AgentHarness const& h) { return h.lifProfileOrientationConfig.get(); }
  template <class F>
  static void forEach(Entity const& e, F const& visit) {
    for (auto const& key : e.lpoRequest()) {
      visit(key, Present{});
    }
  }
  static Value const* find(Entity const& e, Key const& k) {
    static constexpr Present kPresent{};
    return e.lpoRequestHas(k) ? &kPresent : nullptr;
  }
  static std::pair<Key, Value> make(Cells const& c) { return {lpoKey(c, 0), Present{}}; }
  static void store(AgentHarness& h, Key const& k, Value const&) {
    h.lifProfileOrientationConfig->lpoRequestIs(k);
  }
  VPLS_KEY_REACTOR(onLpoRequest)
};

struct LpoResponseTable : TableDefaults {
  using Entity = Hardware::MarlTunnel::LifProfileOrientationStatus;
  using Key = LifProfileOrientationKey;
  using Value = LifProfileAndOrientation;
  static constexpr std::string_view redisName = "LPO_RESPONSE";
  static constexpr std::string_view jsonName = "lpoResponse";
  static constexpr auto keyColumns = lpoKeyColumns<Key, itself<Key>>;
  static constexpr std::array<Column<Value>, 2> valueColumns{{
      {"inLifProfile", K::number, kMaxU32,
       [](Value const& v) -> Cell { return Hardware::Marl::toValue(v.inLifProfile()); }},
      {"orientation", K::number, 8,
       [](Value const& v) -> Cell { return Hardware::MarlTunnel::toValue(v.orientation()); }},
  }};
  static Entity const* entity(AgentHarness const& h) { return h.lifProfileOrientationStatus.get(); }
  static auto const& elements(Entity const& e) { return e.lpoResponse(); }
  static std::pair<Key, Value> make(Cells const& c) {
    return {lpoKey(c, 0), Value(Jericho2LifProfiles{narrow<std::uint32_t>(c[5])},
                                Orientation{narrow<std::uint8_t>(c[6])})};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.lifProfileOrientationStatus->lpoResponseIs(k, v);
  }
  VPLS_KEY_REACTOR(onLpoResponse)
};

struct IntfToLpoKeyTable : TableDefaults {
  using Entity = Hardware::MarlTunnel::IntfToLifProfileOrientationKeyMap;
  using Key = Netcore::IntfId;
  using Value = LifProfileOrientationKey;
  static constexpr std::string_view redisName = "INTF_TO_LPO_KEY";
  static constexpr std::string_view jsonName = "intfToLifProfileOrientationKey";
  static constexpr JsonShape jsonShape = JsonShape::map;
  static constexpr std::array<Column<Key>, 1> keyColumns{{
      {"pw", K::pw, 0, [](Key const& k) -> Cell { return pwText(k); }},
  }};
  static constexpr auto valueColumns = lpoKeyColumns<Value, itself<Value>>;
  static Entity const* entity(AgentHarness const& h) {
    return h.intfToLifProfileOrientationKeyMap.get();
  }
  static auto const& elements(Entity const& e) { return e.lifProfileOrientationKey(); }
  static std::pair<Key, Value> make(Cells const& c) { return {pwOf(c[0]), lpoKey(c, 1)}; }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.intfToLifProfileOrientationKeyMap->lifProfileOrientationKeyIs(k, v);
  }
  VPLS_KEY_REACTOR(onLifProfileOrientationKey)
};

struct EsemConfigTable : TableDefaults {
  using Entity = Hardware::MarlTunnel::EsemConfigVpls;
  using Key = EsemConfigKeyVpls;
  using Value = EsemConfigInfoVpls;
  static constexpr std::string_view redisName = "ESEM_CONFIG";
  static constexpr std::string_view jsonName = "esemConfig";
  static constexpr std::array<Column<Key>, 3> keyColumns{{
      {"vlanDomain", K::number, kMaxU32, [](Key const& k) -> Cell { return k.vlanDomain(); }},
      {"vlanId", K::number, kMaxU16, [](Key const& k) -> Cell { return k.vlanId(); }},
      {"keyField3", K::number, kMaxU16, [](Key const& k) -> Cell { return k.keyField3(); }},
  }};
  static constexpr std::array<Column<Value>, 3> valueColumns{{
      {"tag", K::number, kMaxU16, [](Value const& v) -> Cell { return v.tag(); }},
      {"editProfile", K::number, kMaxU8, [](Value const& v) -> Cell { return v.editProfile(); }},
      {"outLifProfile", K::number, kMaxU8,
       [](Value const& v) -> Cell { return Hardware::Marl::toValue(v.outLifProfile()); }},
  }};
  static Entity const* entity(AgentHarness const& h) { return h.esemConfigVpls.get(); }
  static auto const& elements(Entity const& e) { return e.esemConfig(); }
  static std::pair<Key, Value> make(Cells const& c) {
    return {
        Key(narrow<std::uint32_t>(c[0]), narrow<std::uint16_t>(c[1]), narrow<std::uint16_t>(c[2])),
        Value(narrow<std::uint16_t>(c[3]), narrow<std::uint8_t>(c[4]),
              Jericho2LifProfiles{narrow<std::uint32_t>(c[5])})};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.esemConfigVpls->esemConfigIs(k, v);
  }
  VPLS_KEY_REACTOR(onEsemConfig)
};

struct TagPopPushAppTable : TableDefaults {
  using Entity = Hardware::MarlTunnel::TagPopPushConfig;
  using Key = VtAppId;
  using Value = bool;
  static constexpr std::string_view redisName = "TAG_POP_PUSH_APP";
  static constexpr std::string_view jsonName = "tagPopPushApp";
  static constexpr JsonShape jsonShape = JsonShape::map;
  static constexpr std::array<Column<Key>, 1> keyColumns{{
      {"appId", K::number, kMaxU32,
       [](Key const& k) -> Cell { return std::uint64_t{static_cast<std::uint32_t>(k)}; }},
  }};
  static constexpr std::array<Column<Value>, 1> valueColumns{{
      {"enabled", K::boolean, 1, [](Value const& v) -> Cell { return v; }},
  }};
  static Entity const* entity(AgentHarness const& h) { return h.tagPopPushConfig.get(); }
  static auto const& elements(Entity const& e) { return e.app(); }
  static std::pair<Key, Value> make(Cells const& c) {
    return {VtAppId{narrow<std::uint32_t>(c[0])}, boolOf(c[1])};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.tagPopPushConfig->appIs(k, v);
  }
  VPLS_KEY_REACTOR(onApp)
};

struct EvecProfileRequestTable : TableDefaults {
  using Entity = Hardware::MarlTunnel::EvecProfileRequestDir;
  using Key = EvecProfileKey;
  using Value = Present;
  static constexpr std::string_view redisName = "EVEC_PROFILE_REQUEST";
  static constexpr std::string_view jsonName = "evecProfileRequest";
  static constexpr bool isSet = true;
  static constexpr std::array<Column<Key>, 2> keyColumns{{
      {"first", K::number, kMaxU32, [](Key const& k) -> Cell { return k.first(); }},
      {"second", K::number, kMaxU32, [](Key const& k) -> Cell { return k.second(); }},
  }};
  static constexpr std::array<Column<Value>, 1> valueColumns{{
      {"requested", K::boolean, 1, [](Value const&) -> Cell { return true; }},
  }};
  static Entity const* entity(AgentHarness const& h) { return h.evecProfileRequestDir.get(); }
  template <class F>
  static void forEach(Entity const& e, F const& visit) {
    for (auto const& [key, request] : e.evecProfileRequest()) {
      visit(key, Present{});
    }
  }
  static Value const* find(Entity const& e, Key const& k) {
    static constexpr Present kPresent{};
    return e.evecProfileRequestHas(k) ? &kPresent : nullptr;
  }
  static std::pair<Key, Value> make(Cells const& c) {
    return {Key(narrow<std::uint32_t>(c[0]), narrow<std::uint32_t>(c[1])), Present{}};
  }
  static void store(AgentHarness& h, Key const& k, Value const&) {
    h.evecProfileRequestDir->evecProfileRequestIs(EvecProfileRequest(k.first(), k.second()));
  }
  VPLS_KEY_REACTOR(onEvecProfileRequest)
};

#undef VPLS_KEY_REACTOR

MplsDecapInfo const& installedInfo(Chip::DecapProgrammer::Installed const& installed) {
  return installed.info;
}

// The emulated chip's installed decap entries: the row each holds and the request it was
// installed from. Kept as the chip keeps its tables when its agent restarts.
struct ChipDecapEntryTable : TableDefaults {
  using Entity = Chip::DecapProgrammer;
  using Key = MplsDecapInfoKey;
  using Value = Chip::DecapProgrammer::Installed;
  static constexpr std::string_view redisName = "CHIP_DECAP_ENTRY";
  static constexpr std::string_view jsonName = "chipDecapEntries";
  static constexpr bool notifies = false;
  static constexpr auto keyColumns = kMplsDecapKeyColumns;
  static constexpr auto valueColumns = [] {
    std::array<Column<Value>, 9> columns{};
    columns[0] = {"lifIndex", K::number, Hardware::Marl::AradIhpLifTable::kMaxLifIndex,
                  [](Value const& v) -> Cell { return std::uint64_t{v.row.value()}; }};
    auto const info = mplsDecapInfoColumns<Value, installedInfo>;
    for (std::size_t i = 0; i < info.size(); ++i) {
      columns[i + 1] = info[i];
    }
    return columns;
  }();
  static Entity const* entity(AgentHarness const& h) { return h.chip(); }
  static auto const& elements(Entity const& e) { return e.installed(); }
  static std::pair<Key, Value> make(Cells const& c) {
    auto const key = mplsDecapKey(c);
    Value installed;
    installed.row = Chip::InLifRow(narrow<std::uint32_t>(c[3]));
    installed.info = mplsDecapInfo(key, c, 4);
    return {key, installed};
  }
  static void store(AgentHarness& h, Key const& k, Value const& v) {
    h.chipEntryFound(Chip::DecapProgrammer::Saved{k, v.row, v.info});
  }
  // What changed since the last call (none while the chip is detached).
  static std::vector<Key> takeChanged(AgentHarness& h) {
    return h.chip() ? h.chip()->takeChanged() : std::vector<Key>{};
  }
  template <class Note>
  struct Reactor {};
};

// The state machines' readiness and the allocator's count of start-up syncs: one row, which
// nothing notifies (a holder compares it).
struct SmStatus {
  bool vplsSmReady = false;
  std::uint32_t allocatorStartupSyncDoneCalls = 0;
};

struct SmStatusTable : TableDefaults {
  using Entity = AgentHarness;
  using Key = std::monostate;
  using Value = SmStatus;
  static constexpr std::string_view redisName = "VPLS_SM_STATUS";
  static constexpr std::string_view jsonName = "";
  static constexpr JsonShape jsonShape = JsonShape::members;
  static constexpr bool notifies = false;
  static constexpr std::array<Column<Key>, 0> keyColumns{};
  static constexpr std::array<Column<Value>, 2> valueColumns{{
      {"vplsSmReady", K::boolean, 1, [](Value const& v) -> Cell { return v.vplsSmReady; }},
      {"allocatorStartupSyncDoneCalls", K::number, kMaxU32,
       [](Value const& v) -> Cell { return std::uint64_t{v.allocatorStartupSyncDoneCalls}; }},
  }};
  static Entity const* entity(AgentHarness const& h) { return &h; }
  template <class F>
  static void forEach(Entity const& h, F const& visit) {
    visit(Key{}, SmStatus{h.startupStageStatus->vplsSmReady(),
                          h.lifProfileOrientationAllocSm->startupSyncDoneCalls()});
  }
  static std::optional<Value> find(Entity const& h, Key const&) {
    return SmStatus{h.startupStageStatus->vplsSmReady(),
                    h.lifProfileOrientationAllocSm->startupSyncDoneCalls()};
  }
  static std::pair<Key, Value> make(Cells const& c) {
    return {Key{}, SmStatus{boolOf(c[0]), narrow<std::uint32_t>(c[1])}};
  }
  static void store(AgentHarness& h, Key const&, Value const& v) {
    h.startupStageStatus->vplsSmReadyIs(v.vplsSmReady);
    h.lifProfileOrientationAllocSm->startupSyncDoneCallsIs(v.allocatorStartupSyncDoneCalls);
  }
  template <class Note>
  struct Reactor {};
};

OutputTableOf<MplsDecapConfigTable> const kMplsDecapConfig;
OutputTableOf<LabelToPwIntfTable> const kLabelToPwIntf;
OutputTableOf<DecapStatusTable> const kDecapStatus;
OutputTableOf<EncapAdditionalIdTable> const kEncapAdditionalId;
OutputTableOf<AdditionalDataTable> const kAdditionalData;
OutputTableOf<LpoRequestTable> const kLpoRequest;
OutputTableOf<LpoResponseTable> const kLpoResponse;
OutputTableOf<IntfToLpoKeyTable> const kIntfToLpoKey;
OutputTableOf<EsemConfigTable> const kEsemConfig;
OutputTableOf<TagPopPushAppTable> const kTagPopPushApp;
OutputTableOf<EvecProfileRequestTable> const kEvecProfileRequest;
OutputTableOf<SmStatusTable> const kSmStatus;
OutputTableOf<ChipDecapEntryTable> const kChipDecapEntry;

constexpr std::array<OutputTable const*, 13> kOutputTables{
    &kMplsDecapConfig,    &kLabelToPwIntf, &kDecapStatus,   &kEncapAdditionalId, &kAdditionalData,
    &kLpoRequest,         &kLpoResponse,   &kIntfToLpoKey,  &kEsemConfig,        &kTagPopPushApp,
    &kEvecProfileRequest, &kSmStatus,      &kChipDecapEntry};

}  // namespace

std::span<OutputTable const* const> outputTables() {
  return kOutputTables;
}

OutputTable const* outputTableOf(std::string_view key) {
  auto const name = key.substr(0, key.find('|'));
  for (auto const* table : kOutputTables) {
    if (table->redisName() == name) {
      return table;
    }
  }
  return nullptr;
}

}  // namespace Host
