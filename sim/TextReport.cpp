#include "sim/TextReport.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

#include "MarlTunnel/MarlVplsPwIntfDecapSm.h"
#include "MarlTunnel/SplitHorizonToggle.h"
#include "host/PseudowireStatus.h"

namespace Sim {
namespace {

using Host::AgentHarness;

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
  for (auto const pw : Host::knownPseudowires(harness)) {
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
    for (auto const& [vlan, tag] : Host::vlanTags(harness, pw)) {
      tags.push_back(std::to_string(vlan) + ":" + (tag == 0 ? "none" : std::to_string(tag)));
    }
    std::vector<std::string> orientations;
    for (auto const orientation : Host::orientationsOf(harness, pw)) {
      orientations.push_back(orientationText(orientation));
    }
    auto const& status = *harness.hwVplsPwStatus;
    table.add(
        {shortName(pw), orText(info.vplsInstanceName().str()), orText(info.groupName().str()),
         decap.decapLabelHas(pw) ? decap.decapLabel(pw).toString() : kNone,
         orText(joined(flags, ",")), orText(joined(tags, ",")), orText(joined(orientations, ",")),
         status.encapAdditionalIdHas(pw) ? std::to_string(status.encapAdditionalId(pw).value())
                                         : kNone,
         Host::pseudowireStatus(harness, pw).words});
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

std::string textReport(AgentHarness const& harness, std::vector<LogRecord> const& logs,
                       std::vector<ShowRecord> const& shows) {
  return summary(harness) + "\n" + pseudowireSection(harness) + "\n" + decapSection(harness) +
         "\n" + esemSection(harness) + "\n" + splitHorizonSection(harness) + "\n" +
         logSection(logs) + (shows.empty() ? "" : "\n" + showSection(shows));
}

}  // namespace Sim
