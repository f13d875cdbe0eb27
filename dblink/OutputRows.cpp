#include "dblink/OutputRows.h"

#include "Hardware/Orientation.h"

namespace DbLink {
namespace {

using Hardware::Marl::Jericho2LifProfiles;
using Hardware::Marl::toValue;
using Hardware::MarlTunnel::EsemConfigInfoVpls;
using Hardware::MarlTunnel::EsemConfigKeyVpls;
using Hardware::MarlTunnel::EvecProfileKey;
using Hardware::MarlTunnel::LifProfileAndOrientation;
using Hardware::MarlTunnel::LifProfileOrientationKey;
using Hardware::MarlTunnel::MplsDecapInfo;
using Hardware::MarlTunnel::MplsDecapInfoKey;
using Hardware::MarlTunnel::Orientation;
using Hardware::MarlTunnel::VlanAndVplsKey;
using Host::AgentHarness;

constexpr std::uint64_t kMaxU16 = 0xffff;
constexpr std::uint64_t kMaxU32 = 0xffffffff;
constexpr std::uint64_t kMaxU64 = ~std::uint64_t{0};

std::string n(std::uint64_t value) {
  return numberText(value);
}

std::string pwText(Netcore::IntfId pw) {
  return pw.toString();
}

std::string lpoKeyText(std::string_view table, LifProfileOrientationKey const& k) {
  return joinKey({table, k.instanceName().str(), n(k.vlanId()), k.groupName().str(),
                  boolText(k.splitHorizon()), pwText(k.pwIntfId())});
}

Fields lpoKeyFields(LifProfileOrientationKey const& k) {
  return {{"instanceName", k.instanceName().str()},
          {"vlan", n(k.vlanId())},
          {"groupName", k.groupName().str()},
          {"splitHorizon", boolText(k.splitHorizon())},
          {"pw", pwText(k.pwIntfId())}};
}

Fields mplsDecapFields(MplsDecapInfo const& info) {
  return {{"name", info.name().str()},
          {"flag", boolText(info.flag())},
          {"hwFecId", n(info.hwFecId())},
          {"globalInLif", n(info.globalInLif())},
          {"inLifProfile", n(toValue(info.inLifProfile()))},
          {"vlanId", n(info.vlanId())},
          {"field8", n(info.field8())},
          {"field9", n(info.field9())}};
}

Fields esemFields(EsemConfigInfoVpls info) {
  return {{"tag", n(info.tag())},
          {"editProfile", n(info.editProfile())},
          {"outLifProfile", n(toValue(info.outLifProfile()))}};
}

Fields requested() {
  return {{"requested", "true"}};
}

template <class Value, class Encode>
std::optional<Fields> fieldsOf(Value const* value, Encode const& encode) {
  return value ? std::optional<Fields>(encode(*value)) : std::nullopt;
}

// ---- Reading rows back ----

// A row that does not decode; `what` says why.
struct BadRow {
  std::string what;
};

class RowReader {
 public:
  RowReader(std::string const& key, Fields const& fields)
      : fields_(fields), segments_(splitKey(key)) {}

  std::size_t segmentCount() const { return segments_.size(); }
  void requireSegments(std::size_t count) const {
    if (segments_.size() != count) {
      throw BadRow{"expected " + std::to_string(count) + " key segments, found " +
                   std::to_string(segments_.size())};
    }
  }
  std::string_view segment(std::size_t i) const { return segments_.at(i); }
  std::uint64_t segmentNumber(std::size_t i, std::uint64_t max) const {
    return number("key segment " + std::to_string(i), segments_.at(i), max);
  }
  bool segmentBool(std::size_t i) const {
    return boolean("key segment " + std::to_string(i), segments_.at(i));
  }
  Netcore::IntfId segmentPw(std::size_t i) const { return pw(segments_.at(i)); }

  std::string_view field(std::string_view name) const {
    for (auto const& [field, value] : fields_) {
      if (field == name) {
        return value;
      }
    }
    throw BadRow{"field " + std::string(name) + " is missing"};
  }
  std::uint64_t fieldNumber(std::string_view name, std::uint64_t max) const {
    return number("field " + std::string(name), field(name), max);
  }
  bool fieldBool(std::string_view name) const {
    return boolean("field " + std::string(name), field(name));
  }
  Netcore::IntfId fieldPw(std::string_view name) const { return pw(field(name)); }

  LifProfileOrientationKey lpoKey() const {
    requireSegments(6);
    return LifProfileOrientationKey(
        VlanAndVplsKey(Loom::String(segment(1)), static_cast<std::uint16_t>(segmentNumber(2, 4094)),
                       Loom::String(segment(3)), segmentBool(4)),
        segmentPw(5));
  }

 private:
  static std::uint64_t number(std::string const& what, std::string_view text, std::uint64_t max) {
    if (auto const value = readNumber(text, max)) {
      return *value;
    }
    throw BadRow{what + ": \"" + std::string(text) + "\" is not a number up to " +
                 std::to_string(max)};
  }
  static bool boolean(std::string const& what, std::string_view text) {
    if (auto const value = readBool(text)) {
      return *value;
    }
    throw BadRow{what + ": \"" + std::string(text) + "\" is not true or false"};
  }
  static Netcore::IntfId pw(std::string_view text) {
    try {
      if (!text.empty()) {
        return Netcore::IntfId(text);
      }
    } catch (Loom::RangeError const&) {
      // reported below
    }
    throw BadRow{"\"" + std::string(text) + "\" is not an interface name"};
  }

  Fields const& fields_;
  std::vector<std::string_view> segments_;
};

MplsDecapInfoKey mplsDecapKey(RowReader const& r) {
  r.requireSegments(4);
  return MplsDecapInfoKey(
      Netcore::MplsLabel(
          static_cast<std::uint32_t>(r.segmentNumber(1, Netcore::MplsLabel::kMaxLabel))),
      Bridging::VlanIdOrNone(static_cast<std::uint16_t>(r.segmentNumber(2, 4094))),
      static_cast<std::uint8_t>(r.segmentNumber(3, 0xff)));
}

void loadRow(AgentHarness& h, std::string_view table, RowReader const& r) {
  if (table == kMplsDecapConfig) {
    auto const key = mplsDecapKey(r);
    auto const name = r.field("name");
    if (name.size() > MplsDecapInfo::kNameMaxLength) {
      throw BadRow{"field name: longer than " + std::to_string(MplsDecapInfo::kNameMaxLength)};
    }
    h.mplsDecapConfig->configIs(
        key, MplsDecapInfo(key)
                 .nameIs(MplsDecapInfo::Name(std::string(name)))
                 .flagIs(r.fieldBool("flag"))
                 .hwFecIdIs(r.fieldNumber("hwFecId", kMaxU64))
                 .globalInLifIs(static_cast<std::uint32_t>(r.fieldNumber("globalInLif", kMaxU32)))
                 .inLifProfileIs(Jericho2LifProfiles{
                     static_cast<std::uint32_t>(r.fieldNumber("inLifProfile", kMaxU32))})
                 .vlanIdIs(static_cast<std::uint16_t>(r.fieldNumber("vlanId", kMaxU16)))
                 .field8Is(static_cast<std::uint8_t>(r.fieldNumber("field8", 0xff)))
                 .field9Is(static_cast<std::uint16_t>(r.fieldNumber("field9", kMaxU16))));
  } else if (table == kLabelToPwIntf) {
    r.requireSegments(2);
    h.decapLabelToPwIntfColl->labelToPwIntfIs(
        Netcore::MplsLabel(
            static_cast<std::uint32_t>(r.segmentNumber(1, Netcore::MplsLabel::kMaxLabel))),
        r.fieldPw("pw"));
  } else if (table == kEncapAdditionalId) {
    r.requireSegments(2);
    h.hwVplsPwStatus->encapAdditionalIdIs(
        r.segmentPw(1),
        Fab::VplsEncapAdditionalId(static_cast<std::uint16_t>(r.fieldNumber("value", kMaxU16))));
  } else if (table == kAdditionalData) {
    r.requireSegments(5);
    h.vplsPwIntfAdditionalDataMap->additionalDataMapIs(
        Fab::VplsIntfKey(Loom::String(r.segment(1)), Loom::String(r.segment(2)), r.segmentPw(3),
                         r.segmentBool(4)),
        static_cast<std::uint16_t>(r.fieldNumber("value", kMaxU16)));
  } else if (table == kLpoRequest) {
    h.lifProfileOrientationConfig->lpoRequestIs(r.lpoKey());
  } else if (table == kLpoResponse) {
    auto const orientation = r.fieldNumber("orientation", 8);
    h.lifProfileOrientationStatus->lpoResponseIs(
        r.lpoKey(),
        LifProfileAndOrientation(
            Jericho2LifProfiles{static_cast<std::uint32_t>(r.fieldNumber("inLifProfile", kMaxU32))},
            Orientation{static_cast<std::uint8_t>(orientation)}));
  } else if (table == kIntfToLpoKey) {
    r.requireSegments(2);
    h.intfToLifProfileOrientationKeyMap->lifProfileOrientationKeyIs(
        r.segmentPw(1),
        LifProfileOrientationKey(
            VlanAndVplsKey(Loom::String(r.field("instanceName")),
                           static_cast<std::uint16_t>(r.fieldNumber("vlan", 4094)),
                           Loom::String(r.field("groupName")), r.fieldBool("splitHorizon")),
            r.fieldPw("pw")));
  } else if (table == kEsemConfig) {
    r.requireSegments(4);
    h.esemConfigVpls->esemConfigIs(
        EsemConfigKeyVpls(static_cast<std::uint32_t>(r.segmentNumber(1, kMaxU32)),
                          static_cast<std::uint16_t>(r.segmentNumber(2, kMaxU16)),
                          static_cast<std::uint16_t>(r.segmentNumber(3, kMaxU16))),
        EsemConfigInfoVpls(
            static_cast<std::uint16_t>(r.fieldNumber("tag", kMaxU16)),
            static_cast<std::uint8_t>(r.fieldNumber("editProfile", 0xff)),
            Jericho2LifProfiles{static_cast<std::uint32_t>(r.fieldNumber("outLifProfile", 0xff))}));
  } else if (table == kTagPopPushApp) {
    r.requireSegments(2);
    h.tagPopPushConfig->appIs(
        Hardware::Marl::VtAppId{static_cast<std::uint32_t>(r.segmentNumber(1, kMaxU32))},
        r.fieldBool("enabled"));
  } else if (table == kEvecProfileRequest) {
    r.requireSegments(3);
    h.evecProfileRequestDir->evecProfileRequestIs(Hardware::MarlTunnel::EvecProfileRequest(
        static_cast<std::uint32_t>(r.segmentNumber(1, kMaxU32)),
        static_cast<std::uint32_t>(r.segmentNumber(2, kMaxU32))));
  } else if (table == kSmStatus) {
    h.startupStageStatus->vplsSmReadyIs(r.fieldBool("vplsSmReady"));
    h.lifProfileOrientationAllocSm->startupSyncDoneCallsIs(
        static_cast<std::uint32_t>(r.fieldNumber("allocatorStartupSyncDoneCalls", kMaxU32)));
  }
  // The decap status and the pseudowire statuses are rebuilt by the starting agent.
}

}  // namespace

OutputRow mplsDecapConfigRow(AgentHarness const& h, MplsDecapInfoKey const& k) {
  return {joinKey({kMplsDecapConfig, n(k.label().value()), n(k.innerDot1QTag().value()),
                   n(k.keyField3())}),
          fieldsOf(h.mplsDecapConfig->config().find(k), mplsDecapFields)};
}

OutputRow labelToPwIntfRow(AgentHarness const& h, Netcore::MplsLabel k) {
  return {joinKey({kLabelToPwIntf, n(k.value())}),
          fieldsOf(h.decapLabelToPwIntfColl->labelToPwIntf().find(k), [](Netcore::IntfId pw) {
            return Fields{{"pw", pwText(pw)}};
          })};
}

OutputRow decapStatusRow(AgentHarness const& h, Fab::VplsPwIntfVlanKey const& k) {
  auto const status = h.hwVplsPwDecapStatus();
  return {joinKey({kDecapStatus, pwText(k.pwIntfId()), n(k.vlanId().value())}),
          fieldsOf(status ? status->decapStatus().find(k) : nullptr, [](Fab::NexthopIndex index) {
            return Fields{{"index", n(index.value())}};
          })};
}

OutputRow encapAdditionalIdRow(AgentHarness const& h, Netcore::IntfId k) {
  return {
      joinKey({kEncapAdditionalId, pwText(k)}),
      fieldsOf(h.hwVplsPwStatus->encapAdditionalId().find(k), [](Fab::VplsEncapAdditionalId id) {
        return Fields{{"value", n(id.value())}};
      })};
}

OutputRow additionalDataRow(AgentHarness const& h, Fab::VplsIntfKey const& k) {
  return {
      joinKey({kAdditionalData, k.vplsInstanceName().str(), k.groupName().str(),
               pwText(k.pwIntfId()), boolText(k.splitHorizon())}),
      fieldsOf(h.vplsPwIntfAdditionalDataMap->additionalDataMap().find(k), [](std::uint16_t value) {
        return Fields{{"value", n(value)}};
      })};
}

OutputRow lpoRequestRow(AgentHarness const& h, LifProfileOrientationKey const& k) {
  return {lpoKeyText(kLpoRequest, k), h.lifProfileOrientationConfig->lpoRequestHas(k)
                                          ? std::optional<Fields>(requested())
                                          : std::nullopt};
}

OutputRow lpoResponseRow(AgentHarness const& h, LifProfileOrientationKey const& k) {
  return {lpoKeyText(kLpoResponse, k),
          fieldsOf(h.lifProfileOrientationStatus->lpoResponse().find(k),
                   [](LifProfileAndOrientation answer) {
                     return Fields{
                         {"inLifProfile", n(toValue(answer.inLifProfile()))},
                         {"orientation", n(Hardware::MarlTunnel::toValue(answer.orientation()))}};
                   })};
}

OutputRow intfToLpoKeyRow(AgentHarness const& h, Netcore::IntfId k) {
  return {joinKey({kIntfToLpoKey, pwText(k)}),
          fieldsOf(h.intfToLifProfileOrientationKeyMap->lifProfileOrientationKey().find(k),
                   lpoKeyFields)};
}

OutputRow esemConfigRow(AgentHarness const& h, EsemConfigKeyVpls const& k) {
  return {joinKey({kEsemConfig, n(k.vlanDomain()), n(k.vlanId()), n(k.keyField3())}),
          fieldsOf(h.esemConfigVpls->esemConfig().find(k), esemFields)};
}

OutputRow tagPopPushAppRow(AgentHarness const& h, Hardware::Marl::VtAppId k) {
  return {joinKey({kTagPopPushApp, n(static_cast<std::uint32_t>(k))}),
          fieldsOf(h.tagPopPushConfig->app().find(k), [](bool enabled) {
            return Fields{{"enabled", boolText(enabled)}};
          })};
}

OutputRow evecProfileRequestRow(AgentHarness const& h, EvecProfileKey const& k) {
  return {joinKey({kEvecProfileRequest, n(k.first()), n(k.second())}),
          h.evecProfileRequestDir->evecProfileRequestHas(k) ? std::optional<Fields>(requested())
                                                            : std::nullopt};
}

OutputRow smStatusRow(AgentHarness const& h) {
  return {std::string(kSmStatus),
          Fields{{"vplsSmReady", boolText(h.startupStageStatus->vplsSmReady())},
                 {"allocatorStartupSyncDoneCalls",
                  n(h.lifProfileOrientationAllocSm->startupSyncDoneCalls())}}};
}

OutputRow pwStatusRow(Netcore::IntfId pw, std::optional<std::string> status) {
  OutputRow row{joinKey({kPwStatus, pwText(pw)}), std::nullopt};
  if (status) {
    row.fields = Fields{{std::string(kStatusField), std::move(*status)}};
  }
  return row;
}

void forEachOutputRow(AgentHarness const& h,
                      std::function<void(std::string&& key, Fields&& fields)> const& visit) {
  auto const emit = [&](OutputRow&& row) {
    if (row.fields) {
      visit(std::move(row.key), std::move(*row.fields));
    }
  };
  for (auto const& [key, info] : h.mplsDecapConfig->config()) {
    emit(mplsDecapConfigRow(h, key));
  }
  for (auto const& [label, pw] : h.decapLabelToPwIntfColl->labelToPwIntf()) {
    emit(labelToPwIntfRow(h, label));
  }
  if (auto const status = h.hwVplsPwDecapStatus()) {
    for (auto const& [key, index] : status->decapStatus()) {
      emit(decapStatusRow(h, key));
    }
  }
  for (auto const& [pw, id] : h.hwVplsPwStatus->encapAdditionalId()) {
    emit(encapAdditionalIdRow(h, pw));
  }
  for (auto const& [key, value] : h.vplsPwIntfAdditionalDataMap->additionalDataMap()) {
    emit(additionalDataRow(h, key));
  }
  for (auto const& key : h.lifProfileOrientationConfig->lpoRequest()) {
    emit(lpoRequestRow(h, key));
  }
  for (auto const& [key, answer] : h.lifProfileOrientationStatus->lpoResponse()) {
    emit(lpoResponseRow(h, key));
  }
  for (auto const& [pw, key] : h.intfToLifProfileOrientationKeyMap->lifProfileOrientationKey()) {
    emit(intfToLpoKeyRow(h, pw));
  }
  for (auto const& [key, info] : h.esemConfigVpls->esemConfig()) {
    emit(esemConfigRow(h, key));
  }
  for (auto const& [app, enabled] : h.tagPopPushConfig->app()) {
    emit(tagPopPushAppRow(h, app));
  }
  for (auto const& [key, request] : h.evecProfileRequestDir->evecProfileRequest()) {
    emit(evecProfileRequestRow(h, key));
  }
  emit(smStatusRow(h));
}

namespace {

// Loads rows given as (key, fields) pairs by `keyAndFields`.
template <class Rows, class KeyAndFields>
std::vector<std::string> loadRows(AgentHarness& h, Rows const& rows,
                                  KeyAndFields const& keyAndFields) {
  std::vector<std::string> problems;
  // Requests first, so that the allocator's answers to them are then replaced by the answers
  // found; the allocator then takes back the slots those answers hold.
  auto const load = [&](bool requests) {
    for (auto const& row : rows) {
      auto const& [key, fields] = keyAndFields(row);
      auto const table = tableOf(key);
      if (!table || !isOutputTable(*table) || (*table == kLpoRequest) != requests) {
        continue;
      }
      try {
        loadRow(h, *table, RowReader(key, fields));
      } catch (BadRow const& bad) {
        problems.push_back(key + ": " + bad.what);
      } catch (std::exception const& e) {
        problems.push_back(key + ": " + e.what());
      }
    }
  };
  load(true);
  load(false);
  h.lifProfileOrientationAllocSm->takeSlotsBack();
  return problems;
}

}  // namespace

std::vector<std::string> loadOutputRows(AgentHarness& h, std::vector<Host::StateRow> const& rows) {
  return loadRows(h, rows, [](Host::StateRow const& row) {
    return std::pair<std::string const&, Fields const&>(row.key, row.fields);
  });
}

std::vector<std::string> loadOutputRows(AgentHarness& h,
                                        std::unordered_map<std::string, Fields> const& rows) {
  return loadRows(h, rows, [](auto const& row) {
    return std::pair<std::string const&, Fields const&>(row.first, row.second);
  });
}

}  // namespace DbLink
