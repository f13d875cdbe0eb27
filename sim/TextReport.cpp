#include "sim/TextReport.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "MarlTunnel/SplitHorizonToggle.h"

namespace Sim {
namespace {

using Hardware::Marl::Jericho2LifProfiles;
using Hardware::Marl::toValue;
using Hardware::MarlTunnel::Orientation;

constexpr char kNone[] = "-";

// Columns of text, each as wide as its widest cell, two blanks apart, indented by two.
class TextTable {
 public:
  explicit TextTable(std::vector<std::string> header) : header_(std::move(header)) {}

  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  bool empty() const noexcept { return rows_.empty(); }

  std::string render() const {
    std::vector<std::size_t> widths(header_.size(), 0);
    auto const measure = [&](std::vector<std::string> const& row) {
      for (std::size_t i = 0; i < row.size() && i < widths.size(); ++i) {
        widths[i] = std::max(widths[i], row[i].size());
      }
    };
    measure(header_);
    for (auto const& row : rows_) {
      measure(row);
    }
    std::string out;
    auto const line = [&](std::vector<std::string> const& row) {
      std::string text = "  ";
      for (std::size_t i = 0; i < row.size(); ++i) {
        text += row[i];
        if (i + 1 < row.size()) {
          text += std::string(widths[i] - row[i].size() + 2, ' ');
        }
      }
      text.erase(text.find_last_not_of(' ') + 1);
      out += text + "\n";
    };
    line(header_);
    for (auto const& row : rows_) {
      line(row);
    }
    return out;
  }

 private:
  std::vector<std::string> header_;
  std::vector<std::vector<std::string>> rows_;
};

std::string section(std::string const& title, TextTable const& table) {
  if (table.empty()) {
    return title + ": (none)\n";
  }
  return title + "\n" + table.render();
}

std::string shortName(Netcore::IntfId pw) {
  return pw.isPseudowire() ? "Pw" + std::to_string(pw.pseudowireNumber())
                           : (pw.empty() ? std::string(kNone) : pw.toString());
}

std::string orText(std::string const& text) {
  return text.empty() ? std::string(kNone) : text;
}

std::string joined(std::vector<std::string> const& parts, std::string const& separator) {
  std::string out;
  for (auto const& part : parts) {
    out += (out.empty() ? "" : separator) + part;
  }
  return out;
}

std::string orientationText(Orientation orientation) {
  return orientation == Orientation::orientationAllocFailed
             ? "failed"
             : std::to_string(Hardware::MarlTunnel::toValue(orientation));
}

// The members of a collection keyed by (pseudowire, VLAN) that belong to one pseudowire: a
// range of the ordered keys, so that a status costs a lookup, not a walk of the table.
template <class Coll, class Visit>
void forEachOfPseudowire(Coll const& collection, Netcore::IntfId pw, Visit const& visit) {
  for (auto it = collection.lowerBound(Fab::VplsPwIntfVlanKey(pw, Bridging::VlanId(1)));
       it != collection.end() && it->first.pwIntfId() == pw; ++it) {
    visit(it->first, it->second);
  }
}

// The VLANs of a pseudowire's tag info, with their normalised tags, in VLAN order.
std::vector<std::pair<std::uint16_t, std::uint16_t>> vlanTags(AgentHarness const& harness,
                                                              Netcore::IntfId pw) {
  std::vector<std::pair<std::uint16_t, std::uint16_t>> tags;
  forEachOfPseudowire(harness.hwVplsPwDecapConfig->vlanTagInfo(), pw,
                      [&](Fab::VplsPwIntfVlanKey const& key, Bridging::VlanIdOrNone tag) {
                        tags.emplace_back(key.vlanId().value(), tag.value());
                      });
  return tags;
}

std::vector<Orientation> orientationsOf(AgentHarness const& harness, Netcore::IntfId pw) {
  std::vector<Orientation> orientations;
  for (auto const& [key, answer] : harness.lifProfileOrientationStatus->lpoResponse()) {
    if (key.pwIntfId() == pw && std::find(orientations.begin(), orientations.end(),
                                          answer.orientation()) == orientations.end()) {
      orientations.push_back(answer.orientation());
    }
  }
  return orientations;
}

std::size_t programmedVlans(AgentHarness const& harness, Netcore::IntfId pw) {
  std::size_t count = 0;
  if (auto const status = harness.hwVplsPwDecapStatus()) {
    forEachOfPseudowire(status->decapStatus(), pw,
                        [&](Fab::VplsPwIntfVlanKey const&, Fab::NexthopIndex) { ++count; });
  }
  return count;
}

// A standby pseudowire has one decap entry, under its label and no inner tag.
bool standbyEntryProgrammed(AgentHarness const& harness, Netcore::IntfId pw) {
  auto const& decap = *harness.hwVplsPwDecapConfig;
  if (!decap.decapLabelHas(pw)) {
    return false;
  }
  auto const label = decap.decapLabel(pw);
  return harness.mplsDecapConfig->configHas(
             Hardware::MarlTunnel::MplsDecapInfoKey(label, Bridging::VlanIdOrNone(), 0)) &&
         harness.decapLabelToPwIntfColl->labelToPwIntf(label) == pw;
}

std::string standbyStatus(AgentHarness const& harness, Netcore::IntfId pw) {
  if (!harness.hwVplsPwDecapConfig->decapLabelHas(pw)) {
    return "standby, waiting for label";
  }
  return standbyEntryProgrammed(harness, pw) ? "standby" : "standby, not programmed";
}

// A group under VXLAN asks for its orientation once it can: an instance-wide group with the
// configuration, a group per VLAN domain with each VLAN.
bool refusedUnderVxlan(AgentHarness const& harness, Netcore::IntfId pw,
                       Fab::VplsPwIntfInfo const& info, bool hasVlans) {
  bool const meshGroup = info.splitHorizon() && !info.groupName().empty();
  bool const instanceWide =
      info.vlanAware() || !Hardware::MarlTunnel::toggleMarlTunnelSplitHorizonGroupEnabled();
  return harness.vtepTypeStatus->vxlanPresent() && meshGroup && (instanceWide || hasVlans) &&
         !harness.hwVplsPwStatus->encapAdditionalIdHas(pw);
}

std::string summary(AgentHarness const& harness) {
  std::string agent = "stopped";
  if (harness.running()) {
    auto const& sm = harness.decapSm();
    agent = std::string("running (") +
            (sm.startCleanSlate() ? "clean slate" : "not clean slate: HW FEC ids present") + "), " +
            (sm.initialized() ? "initialized" : "not initialized");
  }
  agent +=
      std::string(", VPLS SM ready: ") + (harness.startupStageStatus->vplsSmReady() ? "yes" : "no");
  auto const& vtep = *harness.vtepTypeStatus;
  std::string const vxlan = std::string(vtep.vxlanPresent() ? "present" : "absent") +
                            (vtep.vxlanDciConfigured() ? ", DCI configured" : ", no DCI");
  std::string const toggle =
      Hardware::MarlTunnel::toggleMarlTunnelSplitHorizonGroupEnabled()
          ? "split-horizon groups per VLAN domain (toggle MarlTunnelSplitHorizonGroup on)"
          : "split-horizon groups per instance (toggle MarlTunnelSplitHorizonGroup off)";
  std::string tagging = "tag pop/push application ";
  tagging += harness.tagPopPushConfig->app().empty() ? "off" : "on";
  tagging += harness.evecProfileRequestDir->evecProfileRequest().empty()
                 ? ", no EVEC profile request"
                 : ", EVEC profile requested";
  return "Agent:    " + agent + "\nVXLAN:    " + vxlan + "\nGroups:   " + toggle +
         "\nTagging:  " + tagging + "\n";
}

std::string pseudowireSection(AgentHarness const& harness) {
  TextTable table(
      {"PW", "INSTANCE", "GROUP", "LABEL", "FLAGS", "VLAN:TAG", "ORIENT", "ADDL-ID", "STATUS"});
  for (auto const pw : knownPseudowires(harness)) {
    auto const info = harness.hwVplsPwConfig->vplsPwIntfInfo(pw);
    auto const& decap = *harness.hwVplsPwDecapConfig;
    std::vector<std::string> flags;
    if (info.standby()) {
      flags.emplace_back("standby");
    }
    if (info.vlanAware()) {
      flags.emplace_back("vlan-aware");
    }
    if (info.splitHorizon()) {
      flags.emplace_back("split-horizon");
    }
    std::vector<std::string> tags;
    for (auto const& [vlan, tag] : vlanTags(harness, pw)) {
      tags.push_back(std::to_string(vlan) + ":" + (tag == 0 ? "none" : std::to_string(tag)));
    }
    std::vector<std::string> orientations;
    for (auto const orientation : orientationsOf(harness, pw)) {
      orientations.push_back(orientationText(orientation));
    }
    auto const& status = *harness.hwVplsPwStatus;
    table.add(
        {shortName(pw), orText(info.vplsInstanceName().str()), orText(info.groupName().str()),
         decap.decapLabelHas(pw) ? decap.decapLabel(pw).toString() : kNone,
         orText(joined(flags, ",")), orText(joined(tags, ",")), orText(joined(orientations, ",")),
         status.encapAdditionalIdHas(pw) ? std::to_string(status.encapAdditionalId(pw).value())
                                         : kNone,
         pseudowireStatus(harness, pw)});
  }
  return section("Pseudowires", table);
}

std::string decapSection(AgentHarness const& harness) {
  TextTable table({"LABEL", "INNER TAG", "KIND", "PW", "VLAN", "FEC", "GLOBAL IN-LIF", "PROFILE"});
  for (auto const& [key, info] : harness.mplsDecapConfig->config()) {
    auto const profile = info.inLifProfile();
    std::string kind = "normal";
    std::string vlan = std::to_string(info.vlanId());
    if (profile == Jericho2LifProfiles::vplsVtt2InLifProfile_) {
      kind = "VTT2";
      vlan = std::to_string(key.innerDot1QTag().value());  // a VTT2 entry is keyed by the VLAN
    } else if (profile == Jericho2LifProfiles::noLifProfile_) {
      kind = "standby";
      vlan = kNone;
    }
    auto const pw = harness.decapLabelToPwIntfColl->labelToPwIntf(key.label());
    table.add({key.label().toString(), std::to_string(key.innerDot1QTag().value()), kind,
               shortName(pw), vlan, std::to_string(info.hwFecId()),
               std::to_string(info.globalInLif()), std::to_string(toValue(profile))});
  }
  return section("Decap entries", table);
}

std::string esemSection(AgentHarness const& harness) {
  struct VlanEntries {
    std::set<std::uint16_t> tags;
    std::set<unsigned> editProfiles;
    std::vector<std::string> domains;
  };
  std::map<std::uint16_t, VlanEntries> perVlan;
  for (auto const& [key, info] : harness.esemConfigVpls->esemConfig()) {
    auto& entries = perVlan[key.vlanId()];
    entries.tags.insert(info.tag());
    entries.editProfiles.insert(info.editProfile());
    entries.domains.push_back(std::to_string(key.vlanDomain()) + ":" +
                              std::to_string(toValue(info.outLifProfile())));
  }
  TextTable table({"VLAN", "TAG", "EDIT PROFILE", "USERS", "DOMAIN:OUT-LIF PROFILE"});
  for (auto const& [vlan, entries] : perVlan) {
    auto const one = [](auto const& values) {
      return values.size() == 1 ? std::to_string(*values.begin()) : std::string("mixed");
    };
    std::string users = kNone;
    if (harness.running()) {
      if (auto const count = harness.decapSm().esemProgrammed(Bridging::VlanId(vlan))) {
        users = std::to_string(*count);
      }
    }
    table.add({std::to_string(vlan), one(entries.tags), one(entries.editProfiles), users,
               joined(entries.domains, " ")});
  }
  return section("ESEM entries", table);
}

std::string splitHorizonSection(AgentHarness const& harness) {
  TextTable table({"INSTANCE", "VLAN", "GROUP", "SPLIT-HORIZON", "PW", "PROFILE", "ORIENTATION"});
  auto const& answers = *harness.lifProfileOrientationStatus;
  for (auto const& key : harness.lifProfileOrientationConfig->lpoRequest()) {
    std::string profile = kNone;
    std::string orientation = "(no answer)";
    if (answers.lpoResponseHas(key)) {
      auto const answer = answers.lpoResponse(key);
      profile = std::to_string(toValue(answer.inLifProfile()));
      orientation = orientationText(answer.orientation());
    }
    table.add({orText(key.instanceName().str()), std::to_string(key.vlanId()),
               orText(key.groupName().str()), key.splitHorizon() ? "yes" : "no",
               shortName(key.pwIntfId()), profile, orientation});
  }
  return section("Split-horizon requests", table);
}

std::string logSection(std::vector<LogRecord> const& logs) {
  if (logs.empty()) {
    return "Log messages: (none)\n";
  }
  std::string out = "Log messages\n";
  for (auto const& log : logs) {
    out += "  " + log.id + ": " + log.text + "\n";
  }
  return out;
}

std::string showSection(std::vector<ShowRecord> const& shows) {
  std::string out;
  for (auto const& show : shows) {
    out += "Show output of event " + std::to_string(show.event) + " (vplsDecap " + show.request +
           ")\n";
    std::istringstream lines(show.answer);
    for (std::string line; std::getline(lines, line);) {
      out += "  " + line + "\n";
    }
  }
  return out;
}

}  // namespace

std::set<Netcore::IntfId> knownPseudowires(AgentHarness const& harness) {
  std::set<Netcore::IntfId> pws;
  for (auto const& [pw, info] : harness.hwVplsPwConfig->vplsPwIntfInfo()) {
    pws.insert(pw);
  }
  auto const& decap = *harness.hwVplsPwDecapConfig;
  for (auto const& [pw, label] : decap.decapLabel()) {
    pws.insert(pw);
  }
  for (auto const& [key, tag] : decap.vlanTagInfo()) {
    pws.insert(key.pwIntfId());
  }
  for (auto const& [pw, index] : decap.encapHwFecId()) {
    pws.insert(pw);
  }
  if (harness.running()) {
    for (auto const& [pw, record] : harness.decapSm().localPwInfo()) {
      pws.insert(pw);
    }
  }
  return pws;
}

std::string pseudowireStatus(AgentHarness const& harness, Netcore::IntfId pw) {
  return pseudowireStatus(harness, pw, orientationsOf(harness, pw));
}

bool pseudowireKnown(AgentHarness const& harness, Netcore::IntfId pw) {
  auto const& decap = *harness.hwVplsPwDecapConfig;
  bool hasTags = false;
  forEachOfPseudowire(
      decap.vlanTagInfo(), pw,
      [&](Fab::VplsPwIntfVlanKey const&, Bridging::VlanIdOrNone) { hasTags = true; });
  return harness.hwVplsPwConfig->vplsPwIntfInfoHas(pw) || decap.decapLabelHas(pw) || hasTags ||
         decap.encapHwFecIdHas(pw) || (harness.running() && harness.decapSm().localPwInfo(pw));
}

std::string pseudowireStatus(AgentHarness const& harness, Netcore::IntfId pw,
                             std::vector<Orientation> const& orientations) {
  if (!harness.running()) {
    return "agent stopped";
  }
  auto const& pwConfig = *harness.hwVplsPwConfig;
  auto const& decap = *harness.hwVplsPwDecapConfig;
  if (!pwConfig.vplsPwIntfInfoHas(pw)) {
    return "waiting for configuration";
  }
  auto const info = pwConfig.vplsPwIntfInfo(pw);
  if (info.standby()) {
    return standbyStatus(harness, pw);
  }
  if (std::find(orientations.begin(), orientations.end(), Orientation::orientationAllocFailed) !=
      orientations.end()) {
    return "orientation allocation failed";
  }
  auto const vlans = vlanTags(harness, pw).size();
  auto const programmed = programmedVlans(harness, pw);
  bool const complete = vlans > 0 && programmed == vlans;
  if (harness.vtepTypeStatus->vxlanDciConfigured() && !complete) {
    return "no split-horizon group under VXLAN DCI";
  }
  if (refusedUnderVxlan(harness, pw, info, vlans > 0)) {
    return "split-horizon group refused under VXLAN";
  }
  auto const record = harness.decapSm().localPwInfo(pw);
  if (decap.encapHwFecIdHas(pw) && record && !record->vplsInstanceName().empty() &&
      !record->encapHwFecIdAvail()) {
    return "FEC id arrived before instance (re-publish it)";
  }
  std::vector<std::string> missing;
  if (!decap.decapLabelHas(pw)) {
    missing.emplace_back("label");
  }
  if (vlans == 0) {
    missing.emplace_back("VLAN tag info");
  }
  if (!decap.encapHwFecIdHas(pw)) {
    missing.emplace_back("encap FEC id");
  }
  if (!missing.empty()) {
    return "waiting for " + joined(missing, ", ");
  }
  if (complete) {
    return "programmed";
  }
  if (programmed > 0) {
    return "programmed for " + std::to_string(programmed) + " of " + std::to_string(vlans) +
           " VLANs";
  }
  return "not programmed";
}

std::string textReport(AgentHarness const& harness, std::vector<LogRecord> const& logs,
                       std::vector<ShowRecord> const& shows) {
  return summary(harness) + "\n" + pseudowireSection(harness) + "\n" + decapSection(harness) +
         "\n" + esemSection(harness) + "\n" + splitHorizonSection(harness) + "\n" +
         logSection(logs) + (shows.empty() ? "" : "\n" + showSection(shows));
}

}  // namespace Sim
