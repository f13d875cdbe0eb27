// The description of every input table (host/InputTables.h).

#include "host/InputTables.h"

#include <array>
#include <nlohmann/json.hpp>

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Netcore/MplsLabel.h"

namespace Host {
namespace {

using K = ColumnKind;

// Instance and group names: enough for any name a configuration holds, and a bound on what a
// name costs in every key and log line that carries it.
constexpr std::uint64_t kMaxNameLength = 255;

std::string printable(std::string const& text) {
  std::string const quoted =
      nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return quoted.substr(1, quoted.size() - 2);
}

void nothingToPrepare(InputChange&) {}

// ---- Keys ----

constexpr InputColumn kPwColumn{"pw",
                                K::pw,
                                0,
                                0,
                                false,
                                [](InputChange const& c) -> Cell { return c.pw.toString(); },
                                [](InputChange& c, Cell const& v) { c.pw = pwOf(v); }};
constexpr InputColumn kVlanColumn{
    "vlan",
    K::number,
    1,
    kMaxVlan,
    false,
    [](InputChange const& c) -> Cell { return std::uint64_t{c.vlan}; },
    [](InputChange& c, Cell const& v) { c.vlan = static_cast<std::uint16_t>(numberOf(v)); }};
constexpr std::array kPwKey{kPwColumn};
constexpr std::array kPwVlanKey{kPwColumn, kVlanColumn};

// ---- vplsPwIntfInfo ----

template <Loom::String const& (Fab::VplsPwIntfInfo::*Get)() const,
          Fab::VplsPwIntfInfo& (Fab::VplsPwIntfInfo::*Set)(Loom::String)>
constexpr InputColumn nameColumn(std::string_view name) {
  return {name,
          K::text,
          0,
          kMaxNameLength,
          true,
          [](InputChange const& c) -> Cell { return (c.pwIntfInfo.*Get)().str(); },
          [](InputChange& c, Cell const& v) { (c.pwIntfInfo.*Set)(Loom::String(textOf(v))); }};
}

template <bool (Fab::VplsPwIntfInfo::*Get)() const,
          Fab::VplsPwIntfInfo& (Fab::VplsPwIntfInfo::*Set)(bool)>
constexpr InputColumn flagColumn(std::string_view name) {
  return {name,
          K::boolean,
          0,
          1,
          true,
          [](InputChange const& c) -> Cell { return (c.pwIntfInfo.*Get)(); },
          [](InputChange& c, Cell const& v) { (c.pwIntfInfo.*Set)(boolOf(v)); }};
}

using Info = Fab::VplsPwIntfInfo;
constexpr std::array kPwIntfInfoValue{
    nameColumn<&Info::vplsInstanceName, &Info::vplsInstanceNameIs>("vplsInstanceName"),
    nameColumn<&Info::groupName, &Info::groupNameIs>("groupName"),
    flagColumn<&Info::splitHorizon, &Info::splitHorizonIs>("splitHorizon"),
    flagColumn<&Info::standby, &Info::standbyIs>("standby"),
    flagColumn<&Info::vlanAware, &Info::vlanAwareIs>("vlanAware"),
    flagColumn<&Info::controlWord, &Info::controlWordIs>("controlWord"),
    flagColumn<&Info::flowLabel, &Info::flowLabelIs>("flowLabel"),
};

std::string describePwIntfInfo(InputChange const& change) {
  auto const& info = change.pwIntfInfo;
  std::string text = "instance \"" + printable(info.vplsInstanceName().str()) + "\"";
  if (!info.groupName().empty()) {
    text += " group \"" + printable(info.groupName().str()) + "\"";
  }
  std::pair<bool, char const*> const flags[] = {
      {info.splitHorizon(), "split-horizon"}, {info.standby(), "standby"},
      {info.vlanAware(), "vlan-aware"},       {info.controlWord(), "control-word"},
      {info.flowLabel(), "flow-label"},
  };
  for (auto const& [on, name] : flags) {
    if (on) {
      text += std::string(" ") + name;
    }
  }
  return text;
}

// ---- decapLabel, vlanTagInfo ----

constexpr InputColumn numberColumn(std::string_view name, std::uint64_t max) {
  return {
      name,
      K::number,
      0,
      max,
      false,
      [](InputChange const& c) -> Cell { return std::uint64_t{c.number}; },
      [](InputChange& c, Cell const& v) { c.number = static_cast<std::uint32_t>(numberOf(v)); }};
}
constexpr std::array kLabelValue{numberColumn("label", Netcore::MplsLabel::kMaxLabel)};
constexpr std::array kTagValue{numberColumn("tag", kMaxVlan)};

std::string describeNumber(InputChange const& change) {
  return std::to_string(change.number);
}

Fab::VplsPwIntfVlanKey vlanKey(InputChange const& c) {
  return Fab::VplsPwIntfVlanKey(c.pw, Bridging::VlanId(c.vlan));
}

// ---- encapHwFecId ----

constexpr std::array kHwFecIdValue{
    InputColumn{"hwFecId", K::number, 0, kMaxU32, false,
                [](InputChange const& c) -> Cell { return std::uint64_t{c.hwFecIndex.hwFecId()}; },
                [](InputChange& c, Cell const& v) {
                  c.hwFecIndex = Fab::NexthopIndex(static_cast<std::uint32_t>(numberOf(v)),
                                                   c.hwFecIndex.globalInLif());
                }},
    InputColumn{
        "globalInLif", K::number, 0, kMaxU32, false,
        [](InputChange const& c) -> Cell { return std::uint64_t{c.hwFecIndex.globalInLif()}; },
        [](InputChange& c, Cell const& v) {
          c.hwFecIndex =
              Fab::NexthopIndex(c.hwFecIndex.hwFecId(), static_cast<std::uint32_t>(numberOf(v)));
        }},
};

std::string describeHwFecId(InputChange const& change) {
  return "hwFecId " + std::to_string(change.hwFecIndex.hwFecId()) + " globalInLif " +
         std::to_string(change.hwFecIndex.globalInLif());
}

// ---- Attributes ----

// An attribute's one value column, the field of its own state-database key.
constexpr std::array kAttributeValue{InputColumn{
    "value", K::boolean, 0, 1, false, [](InputChange const& c) -> Cell { return c.flag; },
    [](InputChange& c, Cell const& v) { c.flag = boolOf(v); }}};

std::string describeFlag(InputChange const& change) {
  return change.flag ? "true" : "false";
}

void noElements(AgentHarness const&, std::function<void(InputChange&&)> const&) {}

InputChange setOf(InputTable table, Netcore::IntfId pw) {
  InputChange change;
  change.table = table;
  change.pw = pw;
  return change;
}

// An attribute: its names and its reader and writer on the harness's entities.
template <class Entity, Loom::Ptr<Entity> const AgentHarness::*member, bool (Entity::*Get)() const,
          void (Entity::*Set)(bool)>
InputTableDescription attribute(InputTable table, std::string_view name,
                                std::string_view redisKey) {
  return {
      table,
      name,
      redisKey,
      {},
      kAttributeValue,
      nothingToPrepare,
      [](AgentHarness& h, InputChange const& c) { ((*(h.*member)).*Set)(c.flag); },
      [](AgentHarness const& h, InputChange const& c) { return ((*(h.*member)).*Get)() == c.flag; },
      noElements,
      describeFlag};
}

using Fab::HwVplsPwConfig;
using Fab::HwVplsPwDecapConfig;
using Hardware::MarlTunnel::VtepTypeStatus;

std::array<InputTableDescription, 8> const kInputTables{{
    {InputTable::vplsPwIntfInfo, "vplsPwIntfInfo", "VPLS_PW_INTF_INFO", kPwKey, kPwIntfInfoValue,
     [](InputChange& c) { c.pwIntfInfo = Fab::VplsPwIntfInfo(c.pw); },
     [](AgentHarness& h, InputChange const& c) {
       if (c.kind == ChangeKind::set) {
         h.hwVplsPwConfig->vplsPwIntfInfoIs(c.pw, c.pwIntfInfo);
       } else {
         h.hwVplsPwConfig->vplsPwIntfInfoDel(c.pw);
       }
     },
     [](AgentHarness const& h, InputChange const& c) {
       auto const* info = h.hwVplsPwConfig->vplsPwIntfInfo().find(c.pw);
       return c.kind == ChangeKind::set ? info && *info == c.pwIntfInfo : !info;
     },
     [](AgentHarness const& h, std::function<void(InputChange&&)> const& visit) {
       for (auto const& [pw, info] : h.hwVplsPwConfig->vplsPwIntfInfo()) {
         auto change = setOf(InputTable::vplsPwIntfInfo, pw);
         change.pwIntfInfo = info;
         visit(std::move(change));
       }
     },
     describePwIntfInfo},
    {InputTable::decapLabel, "decapLabel", "VPLS_DECAP_LABEL", kPwKey, kLabelValue,
     nothingToPrepare,
     [](AgentHarness& h, InputChange const& c) {
       if (c.kind == ChangeKind::set) {
         h.hwVplsPwDecapConfig->decapLabelIs(c.pw, Netcore::MplsLabel(c.number));
       } else {
         h.hwVplsPwDecapConfig->decapLabelDel(c.pw);
       }
     },
     [](AgentHarness const& h, InputChange const& c) {
       auto const* label = h.hwVplsPwDecapConfig->decapLabel().find(c.pw);
       return c.kind == ChangeKind::set ? label && label->value() == c.number : !label;
     },
     [](AgentHarness const& h, std::function<void(InputChange&&)> const& visit) {
       for (auto const& [pw, label] : h.hwVplsPwDecapConfig->decapLabel()) {
         auto change = setOf(InputTable::decapLabel, pw);
         change.number = label.value();
         visit(std::move(change));
       }
     },
     describeNumber},
    {InputTable::vlanTagInfo, "vlanTagInfo", "VPLS_VLAN_TAG_INFO", kPwVlanKey, kTagValue,
     nothingToPrepare,
     [](AgentHarness& h, InputChange const& c) {
       if (c.kind == ChangeKind::set) {
         h.hwVplsPwDecapConfig->vlanTagInfoIs(vlanKey(c), Bridging::VlanIdOrNone(c.number));
       } else {
         h.hwVplsPwDecapConfig->vlanTagInfoDel(vlanKey(c));
       }
     },
     [](AgentHarness const& h, InputChange const& c) {
       auto const* tag = h.hwVplsPwDecapConfig->vlanTagInfo().find(vlanKey(c));
       return c.kind == ChangeKind::set ? tag && tag->value() == c.number : !tag;
     },
     [](AgentHarness const& h, std::function<void(InputChange&&)> const& visit) {
       for (auto const& [key, tag] : h.hwVplsPwDecapConfig->vlanTagInfo()) {
         auto change = setOf(InputTable::vlanTagInfo, key.pwIntfId());
         change.vlan = key.vlanId().value();
         change.number = tag.value();
         visit(std::move(change));
       }
     },
     describeNumber},
    {InputTable::encapHwFecId, "encapHwFecId", "VPLS_ENCAP_HW_FEC_ID", kPwKey, kHwFecIdValue,
     nothingToPrepare,
     [](AgentHarness& h, InputChange const& c) {
       if (c.kind == ChangeKind::set) {
         h.hwVplsPwDecapConfig->encapHwFecIdIs(c.pw, c.hwFecIndex);
       } else {
         h.hwVplsPwDecapConfig->encapHwFecIdDel(c.pw);
       }
     },
     [](AgentHarness const& h, InputChange const& c) {
       auto const* index = h.hwVplsPwDecapConfig->encapHwFecId().find(c.pw);
       return c.kind == ChangeKind::set ? index && *index == c.hwFecIndex : !index;
     },
     [](AgentHarness const& h, std::function<void(InputChange&&)> const& visit) {
       for (auto const& [pw, index] : h.hwVplsPwDecapConfig->encapHwFecId()) {
         auto change = setOf(InputTable::encapHwFecId, pw);
         change.hwFecIndex = index;
         visit(std::move(change));
       }
     },
     describeHwFecId},
    attribute<HwVplsPwDecapConfig, &AgentHarness::hwVplsPwDecapConfig,
              &HwVplsPwDecapConfig::startupSyncDone, &HwVplsPwDecapConfig::startupSyncDoneIs>(
        InputTable::startupSyncDone, "startupSyncDone", "VPLS_DECAP_CONFIG|startupSyncDone"),
    attribute<HwVplsPwDecapConfig, &AgentHarness::hwVplsPwDecapConfig,
              &HwVplsPwDecapConfig::restartDone, &HwVplsPwDecapConfig::restartDoneIs>(
        InputTable::restartDone, "restartDone", "VPLS_DECAP_CONFIG|restartDone"),
    attribute<VtepTypeStatus, &AgentHarness::vtepTypeStatus, &VtepTypeStatus::vxlanPresent,
              &VtepTypeStatus::vxlanPresentIs>(InputTable::vxlanPresent, "vxlanPresent",
                                               "VTEP_TYPE_STATUS|vxlanPresent"),
    attribute<VtepTypeStatus, &AgentHarness::vtepTypeStatus, &VtepTypeStatus::vxlanDciConfigured,
              &VtepTypeStatus::vxlanDciConfiguredIs>(InputTable::vxlanDciConfigured,
                                                     "vxlanDciConfigured",
                                                     "VTEP_TYPE_STATUS|vxlanDciConfigured"),
}};

}  // namespace

std::span<InputTableDescription const> inputTables() {
  return kInputTables;
}

InputTableDescription const& inputTable(InputTable table) {
  return kInputTables[static_cast<std::size_t>(table)];
}

}  // namespace Host
